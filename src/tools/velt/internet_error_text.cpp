#include "tools/velt/internet_error_text.h"

#include "foundation/system_error_text.h"
#include "internet/internet_exception.h"

#include <wininet.h>

#include <array>

namespace velt::tool
{
std::wstring FailureText(HRESULT hr)
{
    const auto error = static_cast<DWORD>(HRESULT_CODE(hr));
    const bool internet = HRESULT_FACILITY(hr) == FACILITY_WIN32 && error >= INTERNET_ERROR_BASE &&
                          error <= INTERNET_ERROR_LAST;
    std::array<wchar_t, 512> text{};
    if (internet &&
        CInternetException(error).GetErrorMessage(text.data(), static_cast<UINT>(text.size())))
    {
        std::wstring message = text.data();
        message.erase(message.find_last_not_of(L" \r\n") + 1);
        return message;
    }
    return HResultText(hr);
}
} // namespace velt::tool
