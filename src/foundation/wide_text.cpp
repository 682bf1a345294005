#include "foundation/wide_text.h"

#include "foundation/system_exception.h"
#include "foundation/utf.h"

#include <limits>

namespace velt
{
std::wstring WideFromUtf8(std::string_view text)
{
    const std::u16string wide = Utf16FromUtf8(text);
    return {wide.begin(), wide.end()};
}

std::string Utf8FromWide(std::wstring_view text)
{
    return Utf8FromUtf16(std::u16string(text.begin(), text.end()));
}

std::string NarrowFromWide(std::wstring_view text, UINT codePage)
{
    if (text.empty())
    {
        return {};
    }
    if (text.size() > static_cast<std::size_t>(std::numeric_limits<int>::max()))
    {
        throw SystemException::Win32(ERROR_INVALID_PARAMETER);
    }
    const auto length = static_cast<int>(text.size());
    const int size =
        ::WideCharToMultiByte(codePage, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    if (size <= 0)
    {
        ThrowLastError();
    }
    std::string narrow(static_cast<std::size_t>(size), '\0');
    if (::WideCharToMultiByte(codePage, 0, text.data(), length, narrow.data(), size, nullptr,
                              nullptr) != size)
    {
        ThrowLastError();
    }
    return narrow;
}

std::optional<std::string> ExactNarrowFromWide(std::wstring_view text, UINT codePage)
{
    try
    {
        std::string narrow = NarrowFromWide(text, codePage);
        if (WideFromNarrow(narrow, codePage) == text)
        {
            return narrow;
        }
    }
    catch (const SystemException::Win32&)
    {
        // Refused on the way there or back.
    }
    return std::nullopt;
}

std::wstring WideFromNarrow(std::string_view text, UINT codePage)
{
    if (text.empty())
    {
        return {};
    }
    if (text.size() > static_cast<std::size_t>(std::numeric_limits<int>::max()))
    {
        throw SystemException::Win32(ERROR_INVALID_PARAMETER);
    }
    const auto length = static_cast<int>(text.size());
    const int size = ::MultiByteToWideChar(codePage, 0, text.data(), length, nullptr, 0);
    if (size <= 0)
    {
        ThrowLastError();
    }
    std::wstring wide(static_cast<std::size_t>(size), L'\0');
    if (::MultiByteToWideChar(codePage, 0, text.data(), length, wide.data(), size) != size)
    {
        ThrowLastError();
    }
    return wide;
}
} // namespace velt
