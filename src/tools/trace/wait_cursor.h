#pragma once

#include <windows.h>

namespace velt
{
/// Shows the system's wait cursor until the end of the scope.
class WaitCursor
{
public:
    WaitCursor() noexcept : m_former(::SetCursor(::LoadCursorW(nullptr, IDC_WAIT))) {}

    WaitCursor(const WaitCursor&) = delete;
    WaitCursor& operator=(const WaitCursor&) = delete;

    ~WaitCursor()
    {
        ::SetCursor(m_former);
    }

private:
    HCURSOR m_former; // the system's
};
} // namespace velt
