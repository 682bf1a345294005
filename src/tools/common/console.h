#pragma once

#include "tools/common/write_all.h"

#include <windows.h>

#include <cstddef>
#include <string_view>

namespace velt
{
/// One of the process's standard streams: UTF-8 when it is piped or a file, and the console's own
/// characters when it is a terminal. Any thread may write.
class Console
{
public:
    /// `standardHandle` is STD_OUTPUT_HANDLE or STD_ERROR_HANDLE.
    explicit Console(DWORD standardHandle) noexcept;

    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    ~Console() = default;

    bool IsTerminal() const noexcept
    {
        return m_terminal;
    }

    /// The characters of a line of the terminal; 0 when it is none.
    std::size_t Width() const noexcept;

    /// Writes a UTF-8 text; on a terminal, as characters. Throws SystemException::Win32.
    void Write(std::string_view text) const;

    /// Writes bytes as they are. Throws SystemException::Win32.
    void WriteBytes(std::string_view bytes) const
    {
        WriteAll(m_handle, bytes);
    }

private:
    HANDLE m_handle; // the process's
    bool m_terminal;
};
} // namespace velt
