#include "tools/trace/standard_stream.h"

#include "foundation/system_exception.h"
#include "foundation/wide_text.h"
#include "tools/trace/output_file.h"

#include <string>

namespace velt
{
void WriteStandard(DWORD stream, std::string_view text)
{
    const HANDLE output = ::GetStdHandle(stream);
    DWORD mode = 0;
    if (!::GetConsoleMode(output, &mode))
    {
        WriteAll(output, text);
        return;
    }
    const std::wstring wide = WideFromUtf8(text);
    constexpr std::size_t kMost = 8000; // older consoles take no more at once
    for (std::size_t at = 0; at < wide.size(); at += kMost)
    {
        const std::wstring_view part = std::wstring_view(wide).substr(at, kMost);
        DWORD written = 0;
        if (!::WriteConsoleW(output, part.data(), static_cast<DWORD>(part.size()), &written,
                             nullptr))
        {
            ThrowLastError();
        }
    }
}
} // namespace velt
