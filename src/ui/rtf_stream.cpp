#include "ui/rtf_stream.h"

#include "foundation/unique_file.h"
#include "foundation/utrace.h"

#include <richedit.h>

namespace velt
{
namespace
{
/// The control asks for the next bytes; fewer than wanted are its end. By design, a failed read
/// ends the text like the end of the file: nothing is reported.
DWORD CALLBACK ReadNext(DWORD_PTR cookie, LPBYTE buffer, LONG wanted, LONG* read) noexcept
{
    const auto file = reinterpret_cast<HANDLE>(cookie); // NOLINT(performance-no-int-to-ptr)
    DWORD count = 0;
    if (wanted <= 0 || !::ReadFile(file, buffer, static_cast<DWORD>(wanted), &count, nullptr))
    {
        count = 0;
    }
    *read = static_cast<LONG>(count);
    return 0;
}

/// Also true of what has neither a size nor a place in it.
bool IsAtEnd(HANDLE file) noexcept
{
    LARGE_INTEGER size{};
    LARGE_INTEGER at{};
    return !::GetFileSizeEx(file, &size) || !::SetFilePointerEx(file, {}, &at, FILE_CURRENT) ||
           at.QuadPart >= size.QuadPart;
}
} // namespace

bool StreamRtfFile(HWND view, const std::wstring& path) noexcept
{
    const UniqueFile file(::CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                        FILE_ATTRIBUTE_ARCHIVE, nullptr));
    if (!file)
    {
        return false;
    }
    EDITSTREAM stream{};
    stream.dwCookie = reinterpret_cast<DWORD_PTR>(file.Get());
    stream.pfnCallback = &ReadNext;
    ::SendMessageW(view, EM_STREAMIN, SF_RTF, reinterpret_cast<LPARAM>(&stream));
    if (stream.dwError != 0 || !IsAtEnd(file.Get()))
    {
        UTrace::TraceLevel1("the agreement was not read to its end: 0x%08lX", stream.dwError);
    }
    return true;
}
} // namespace velt
