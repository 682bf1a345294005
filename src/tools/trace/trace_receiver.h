#pragma once

#include "foundation/unique_handle.h"
#include "foundation/velt_critical_section.h"
#include "tools/trace/arrival_clock.h"
#include "tools/trace/arrival_queue.h"

#include <windows.h>

#include <cstddef>
#include <span>

namespace velt
{
/// What a receiver tells its owner, on the receiver's thread. A sender waits meanwhile: be brief.
class TraceReceiverEvents
{
public:
    /// A message has come into the empty queue.
    virtual void OnArrival() noexcept = 0;

    /// A message does not say which process it is of; once for all that one Take gets.
    virtual void OnUnknownSender() noexcept {}

    /// Somebody asks the receiver's window to close (the system's task list, for example).
    virtual void OnCloseAsked() noexcept = 0;

protected:
    ~TraceReceiverEvents() = default;
};

/// The window that traced programs find and send to. It is hidden and has a thread of its own that
/// does nothing but copy what arrives, so that no program waits for drawing, filtering or a dialog.
class TraceReceiver
{
public:
    /// `events` must outlive the receiver. Throws SystemException::Win32.
    explicit TraceReceiver(TraceReceiverEvents& events);

    TraceReceiver(const TraceReceiver&) = delete;
    TraceReceiver& operator=(const TraceReceiver&) = delete;

    /// Takes the window away and waits for the thread.
    ~TraceReceiver();

    /// What has arrived since the last call. Any thread may call. Throws std::bad_alloc.
    ArrivalQueue Take();

    /// Adds what has come on another way, and sets the time of its arrival: all of its
    /// `sizeBytes`. Any thread may call.
    void Add(Arrival arrival, std::span<const std::byte> data) noexcept;

private:
    static constexpr UINT kEnd = WM_APP;

    static DWORD WINAPI ThreadEntry(void* self) noexcept;
    static LRESULT CALLBACK WindowProc(HWND window, UINT message, WPARAM wParam,
                                       LPARAM lParam) noexcept;
    DWORD MakeWindow() noexcept;
    void Run() noexcept;
    void Receive(HWND sender, const COPYDATASTRUCT& data) noexcept;

    // Constant after construction.
    TraceReceiverEvents& m_events;
    const ArrivalClock m_clock;
    UniqueKernelObject m_ready;
    HWND m_window = nullptr;
    DWORD m_error = ERROR_SUCCESS;

    VeltCriticalSection m_lock;
    ArrivalQueue m_queue;             // guarded by m_lock
    bool m_unknownSenderSaid = false; // guarded by m_lock: since the last Take

    UniqueKernelObject m_thread;
};
} // namespace velt
