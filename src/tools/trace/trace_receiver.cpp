#include "tools/trace/trace_receiver.h"

#include "foundation/system_exception.h"
#include "foundation/trace_record.h"
#include "foundation/velt_auto_critical_section.h"

#include <algorithm>
#include <cstddef>
#include <span>

namespace velt
{
TraceReceiver::TraceReceiver(TraceReceiverEvents& events)
    : m_events(events),
      m_ready(::CreateEventW(nullptr, TRUE, FALSE, nullptr))
{
    if (!m_ready)
    {
        ThrowLastError();
    }
    m_thread.Reset(::CreateThread(nullptr, 0, &TraceReceiver::ThreadEntry, this, 0, nullptr));
    if (!m_thread)
    {
        ThrowLastError();
    }
    ::WaitForSingleObject(m_ready.Get(), INFINITE);
    if (m_error != ERROR_SUCCESS)
    {
        ::WaitForSingleObject(m_thread.Get(), INFINITE);
        throw SystemException::Win32(m_error);
    }
}

TraceReceiver::~TraceReceiver()
{
    ::PostMessageW(m_window, kEnd, 0, 0);
    ::WaitForSingleObject(m_thread.Get(), INFINITE);
}

ArrivalQueue TraceReceiver::Take()
{
    const VeltAutoCriticalSection lock(&m_lock);
    return m_queue.Take();
}

DWORD WINAPI TraceReceiver::ThreadEntry(void* self) noexcept
{
    static_cast<TraceReceiver*>(self)->Run();
    return 0;
}

void TraceReceiver::Run() noexcept
{
    // Senders wait for this thread, and it only copies: it comes before painting and filtering.
    ::SetThreadPriority(::GetCurrentThread(), THREAD_PRIORITY_HIGHEST);
    m_error = MakeWindow();
    const bool made = m_error == ERROR_SUCCESS;
    ::SetEvent(m_ready.Get());
    MSG message;
    while (made && ::GetMessageW(&message, nullptr, 0, 0) > 0)
    {
        ::DispatchMessageW(&message);
    }
}

DWORD TraceReceiver::MakeWindow() noexcept
{
    const HINSTANCE instance = ::GetModuleHandleW(nullptr);
    WNDCLASSEXW type{};
    type.cbSize = sizeof(type);
    type.lpfnWndProc = &TraceReceiver::WindowProc;
    type.hInstance = instance;
    type.lpszClassName = kTraceViewerClass;
    if (!::RegisterClassExW(&type) && ::GetLastError() != ERROR_CLASS_ALREADY_EXISTS)
    {
        return ::GetLastError();
    }
    // A top-level window: senders look for no other kind.
    m_window = ::CreateWindowExW(0, kTraceViewerClass, kTraceViewerClass, WS_POPUP, 0, 0, 0, 0,
                                 nullptr, nullptr, instance, this);
    if (!m_window)
    {
        return ::GetLastError();
    }
    // So that programs with fewer rights than the viewer reach it; what they send is checked. Where
    // the system refuses, those of the same rights still do.
    ::ChangeWindowMessageFilterEx(m_window, WM_COPYDATA, MSGFLT_ALLOW, nullptr);
    return ERROR_SUCCESS;
}

LRESULT CALLBACK TraceReceiver::WindowProc(HWND window, UINT message, WPARAM wParam,
                                           LPARAM lParam) noexcept
{
    auto* const self = reinterpret_cast<TraceReceiver*>(::GetWindowLongPtrW(window, GWLP_USERDATA));
    switch (message)
    {
    case WM_NCCREATE:
    {
        const auto* const creation = reinterpret_cast<const CREATESTRUCTW*>(lParam);
        ::SetWindowLongPtrW(window, GWLP_USERDATA,
                            reinterpret_cast<LONG_PTR>(creation->lpCreateParams));
        break;
    }
    case WM_COPYDATA:
        if (self && lParam)
        {
            self->Receive(reinterpret_cast<HWND>(wParam),
                          *reinterpret_cast<const COPYDATASTRUCT*>(lParam));
        }
        return TRUE;
    case WM_CLOSE:
        if (self)
        {
            self->m_events.OnCloseAsked();
        }
        return 0;
    case kEnd:
        ::DestroyWindow(window);
        return 0;
    case WM_DESTROY:
        ::PostQuitMessage(0);
        return 0;
    default:
        break;
    }
    return ::DefWindowProcW(window, message, wParam, lParam);
}

void TraceReceiver::Receive(HWND sender, const COPYDATASTRUCT& data) noexcept
{
    Arrival arrival;
    arrival.sizeBytes = data.lpData ? data.cbData : 0;
    // One that does not fit is no kind of ours, and neither is the largest.
    arrival.dataKind = static_cast<std::uint32_t>(std::min<ULONG_PTR>(data.dwData, 0xFFFFFFFF));
    if (sender)
    {
        DWORD process = 0;
        ::GetWindowThreadProcessId(sender, &process);
        arrival.processId = process;
    }
    Add(arrival, {static_cast<const std::byte*>(data.lpData), arrival.sizeBytes});
}

void TraceReceiver::Add(Arrival arrival, std::span<const std::byte> data) noexcept
{
    bool first = false;
    {
        const VeltAutoCriticalSection lock(&m_lock);
        arrival.arrivalUs = m_clock.Now(); // here, so that times only rise
        first = m_queue.IsEmpty();
        m_queue.Append(arrival, data);
    }
    if (first)
    {
        m_events.OnArrival();
    }
}
} // namespace velt
