#include "internet/internet_exception.h"

#include "foundation/last_error_scope.h"
#include "foundation/library_utils.h"
#include "foundation/unique_handle.h"

#include <wininet.h>

#include <algorithm>
#include <climits>
#include <utility>

namespace
{
using UniqueText = velt::UniqueLocalMemory<wchar_t>;

UniqueText FormatCode(DWORD source, HMODULE module, DWORD code)
{
    wchar_t* text = nullptr;
    ::FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | source, module, code,
                     MAKELANGID(LANG_NEUTRAL, SUBLANG_SYS_DEFAULT),
                     reinterpret_cast<wchar_t*>(&text), 0, nullptr);
    return UniqueText(text);
}

/// The first exception of a process makes the locks of the compiler's run-time, and that changes
/// the thread's last error, which callers of a failed operation still ask for. So the first one is
/// thrown here.
void ThrowFirstException()
{
    const velt::LastErrorScope keep;
    static const bool thrown = [] {
        try
        {
            throw 0;
        }
        catch (int)
        {
            return true;
        }
    }();
    static_cast<void>(thrown);
}

/// What the server said last; null when it said nothing.
UniqueText LastResponse()
{
    DWORD error = 0;
    DWORD length = 0;
    if (::InternetGetLastResponseInfoW(&error, nullptr, &length) ||
        ::GetLastError() != ERROR_INSUFFICIENT_BUFFER)
    {
        return {};
    }
    // The count is one of characters, and a final NUL may be missing from it.
    const SIZE_T bytes = (SIZE_T{length} + 1) * sizeof(wchar_t);
    UniqueText text(static_cast<wchar_t*>(::LocalAlloc(LMEM_ZEROINIT, bytes)));
    if (text)
    {
        ::InternetGetLastResponseInfoW(&error, text.Get(), &length);
    }
    return text;
}
} // namespace

CInternetException::CInternetException(DWORD error) : CInternetException(error, std::string()) {}

CInternetException::CInternetException(DWORD error, std::string message)
    : _com_error(static_cast<HRESULT>(error)),
      m_code(error),
      m_message(std::move(message))
{
    ThrowFirstException();
}

DWORD CInternetException::GetCode() const noexcept
{
    return m_code;
}

const std::string& CInternetException::GetDetail() const noexcept
{
    return m_message;
}

bool CInternetException::GetErrorMessage(wchar_t* buffer, UINT capacity, UINT* helpContext) const
{
    if (helpContext)
    {
        *helpContext = 0;
    }
    if (!buffer || capacity == 0)
    {
        return false;
    }
    const auto size = static_cast<int>(std::min<UINT>(capacity, INT_MAX));
    const CLibraryUtils::CLibraryUtilsImpl module(velt::LoadSystemLibrary(L"WININET.DLL"));
    UniqueText text;
    if (module.GetModule())
    {
        text = FormatCode(FORMAT_MESSAGE_FROM_HMODULE, module.GetModule(), m_code);
    }
    if (!text)
    {
        text = FormatCode(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, m_code);
    }
    if (!text)
    {
        buffer[0] = L'\0';
        return false;
    }
    if (m_code == ERROR_INTERNET_EXTENDED_ERROR)
    {
        const UniqueText response = LastResponse();
        ::lstrcpynW(buffer, response ? response.Get() : L"", size);
        return true;
    }
    ::lstrcpynW(buffer, text.Get(), size);
    return true;
}
