#include "foundation/system_error_text.h"

#include "foundation/library_utils.h"
#include "foundation/unique_handle.h"

#include <string_view>

namespace velt
{
namespace
{
struct MessageModule
{
    DWORD facility;
    const wchar_t* name;
};

/// Where the texts of a facility are looked for, in this order.
constexpr MessageModule kMessageModules[] = {
    {4, L"QUARTZ.DLL"},   {7, L"WMERROR.DLL"},  {13, L"WMERROR.DLL"},
    {7, L"NETMSG.DLL"},   {12, L"MSXML6R.DLL"}, {12, L"MSXML5R.DLL"},
    {12, L"MSXML4R.DLL"}, {12, L"MSXML3R.DLL"}, {12, L"WININET.DLL"},
};

constexpr DWORD kNeutralDefault = MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT);

/// FormatMessageW into a buffer that the system allocates; null when there is no text.
wchar_t* AllocateMessage(DWORD flags, HMODULE module, DWORD id, DWORD language) noexcept
{
    wchar_t* text = nullptr;
    const DWORD length = ::FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | flags, module, id,
                                          language, reinterpret_cast<wchar_t*>(&text), 0, nullptr);
    return length == 0 ? nullptr : text;
}

std::wstring WithoutLineEnds(const wchar_t* text)
{
    std::wstring_view kept = text ? text : L"";
    return std::wstring(kept.substr(0, kept.find_last_not_of(L"\r\n") + 1));
}
} // namespace

std::wstring HResultText(HRESULT hr)
{
    const auto id = static_cast<DWORD>(hr);
    const DWORD facility = (id >> 16) & 0x1FFF;
    // By design, the text's buffer is not given back, unlike that of Win32ErrorText.
    const wchar_t* text = nullptr;
    for (const MessageModule& row : kMessageModules)
    {
        if (row.facility != facility)
        {
            continue;
        }
        const CLibraryUtils::CLibraryUtilsImpl module(LoadSystemLibrary(row.name));
        if (module.GetModule())
        {
            text = AllocateMessage(FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_HMODULE,
                                   module.GetModule(), id, kNeutralDefault);
        }
        if (text)
        {
            break;
        }
    }
    if (!text)
    {
        text = AllocateMessage(FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM, nullptr,
                               id, 0);
    }
    return WithoutLineEnds(text);
}

std::wstring Win32ErrorText(DWORD error)
{
    const UniqueLocalMemory<wchar_t> text(
        AllocateMessage(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, error, 0));
    return WithoutLineEnds(text.Get());
}
} // namespace velt
