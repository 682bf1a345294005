#pragma once

#include <windows.h>

#include <atomic>

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
        return s_event;
    }

    bool IsSet() const noexcept
    {
        return s_set; // asked at every status of an exchange, so not of the system
    }

private:
    /// On a thread of the system's.
    static BOOL CALLBACK Handler(DWORD control) noexcept;

    // Never closed: the handler may be on its way when the scope ends.
    inline static std::atomic<HANDLE> s_event = nullptr;
    inline static std::atomic<bool> s_set = false;
};
} // namespace velt::tool
