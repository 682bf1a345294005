#include "tools/velt/console.h"

#include "foundation/system_exception.h"
#include "foundation/wide_text.h"

#include <algorithm>
#include <string>

namespace velt::tool
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
        WriteBytes(text.data(), text.size());
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

void Console::WriteBytes(const void* bytes, std::size_t count) const
{
    const auto* from = static_cast<const char*>(bytes);
    while (count > 0)
    {
        DWORD written = 0;
        if (!::WriteFile(m_handle, from, static_cast<DWORD>(count), &written, nullptr))
        {
            ThrowLastError();
        }
        if (written == 0)
        {
            throw SystemException::Win32(ERROR_DISK_FULL);
        }
        from += written;
        count -= written;
    }
}
} // namespace velt::tool
