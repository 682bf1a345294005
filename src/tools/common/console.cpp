#include "tools/common/console.h"

#include "foundation/system_exception.h"
#include "foundation/wide_text.h"
#include "tools/common/write_all.h"

#include <algorithm>
#include <string>

namespace velt
{
Console::Console(DWORD standardHandle) noexcept : m_handle(::GetStdHandle(standardHandle))
{
    DWORD mode = 0;
    m_terminal = ::GetConsoleMode(m_handle, &mode) != FALSE;
}

std::size_t Console::Width() const noexcept
{
    CONSOLE_SCREEN_BUFFER_INFO info{};
    return ::GetConsoleScreenBufferInfo(m_handle, &info) && info.dwSize.X > 0
               ? static_cast<std::size_t>(info.dwSize.X)
               : 0;
}

void Console::Write(std::string_view text) const
{
    if (!m_terminal)
    {
        WriteBytes(text);
        return;
    }
    constexpr std::size_t kMostCharacters = 8192; // what consoles take at once
    const std::wstring wide = WideFromUtf8(text);
    for (std::size_t at = 0; at < wide.size();)
    {
        const auto count = static_cast<DWORD>(std::min(kMostCharacters, wide.size() - at));
        DWORD written = 0;
        if (!::WriteConsoleW(m_handle, wide.data() + at, count, &written, nullptr) || written == 0)
        {
            ThrowLastError();
        }
        at += written;
    }
}
} // namespace velt
