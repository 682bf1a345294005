#pragma once

#include "foundation/unique_handle.h"

#include <windows.h>

namespace velt::tool
{
/// Ctrl+C and Ctrl+Break as an event, until the end of the scope; one lives at a time. The second
/// one ends the process as usual. Throws CommandFailure.
class Interrupt
{
public:
    Interrupt();

    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;

    ~Interrupt();

    /// Manual-reset; set from the first one on.
    HANDLE Event() const noexcept
    {
        return m_event.Get();
    }

    bool IsSet() const noexcept
    {
        return ::WaitForSingleObject(m_event.Get(), 0) == WAIT_OBJECT_0;
    }

private:
    /// On a thread of the system's.
    static BOOL CALLBACK Handler(DWORD control) noexcept;

    inline static HANDLE s_event = nullptr;

    UniqueKernelObject m_event;
};
} // namespace velt::tool
