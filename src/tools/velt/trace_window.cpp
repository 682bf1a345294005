#include "tools/velt/trace_window.h"

#include "foundation/system_exception.h"
#include "foundation/trace_record.h"
#include "tools/common/to_utf8.h"
#include "tools/common/trace_text.h"
#include "tools/velt/command_context.h"

#include <exception>
#include <span>
#include <string>

namespace velt::tool
{
TraceWindow::TraceWindow(const Console& console)
    : m_console(console),
      m_ready(::CreateEventW(nullptr, TRUE, FALSE, nullptr))
{
    m_thread.Reset(m_ready ? ::CreateThread(nullptr, 0, &TraceWindow::ThreadEntry, this, 0, nullptr)
                           : nullptr);
    if (!m_thread)
    {
        throw LastFailure(L"the trace window");
    }
    ::WaitForSingleObject(m_ready.Get(), INFINITE);
    if (!m_window)
    {
        ::WaitForSingleObject(m_thread.Get(), INFINITE);
        throw CommandFailure{HRESULT_FROM_WIN32(m_error), L"the trace window"};
    }
}

TraceWindow::~TraceWindow()
{
    ::PostMessageW(m_window, WM_CLOSE, 0, 0);
    ::WaitForSingleObject(m_thread.Get(), INFINITE);
}

DWORD CALLBACK TraceWindow::ThreadEntry(void* window) noexcept
{
    auto& self = *static_cast<TraceWindow*>(window);
    try
    {
        self.RunThread();
    }
    catch (const SystemException::Win32& missing) // what windows need is loaded late
    {
        self.m_error = missing.GetCode();
        ::SetEvent(self.m_ready.Get());
    }
    return 0;
}

void TraceWindow::RunThread()
{
    WNDCLASSW type{};
    type.lpfnWndProc = &TraceWindow::Procedure;
    type.hInstance = ::GetModuleHandleW(nullptr);
    type.lpszClassName = kTraceViewerClass;
    if (!::RegisterClassW(&type))
    {
        m_error = ::GetLastError();
        ::SetEvent(m_ready.Get());
        return;
    }
    // Above other viewers, so that it is the one that is found.
    m_window =
        ::CreateWindowExW(WS_EX_TOPMOST | WS_EX_TOOLWINDOW, kTraceViewerClass, kTraceViewerClass,
                          WS_POPUP, 0, 0, 0, 0, nullptr, nullptr, type.hInstance, nullptr);
    if (m_window)
    {
        ::SetWindowLongPtrW(m_window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
    }
    else
    {
        m_error = ::GetLastError();
    }
    ::SetEvent(m_ready.Get());
    MSG message;
    while (m_window && ::GetMessageW(&message, nullptr, 0, 0) > 0)
    {
        ::DispatchMessageW(&message);
    }
}

LRESULT CALLBACK TraceWindow::Procedure(HWND window, UINT message, WPARAM wParam,
                                        LPARAM lParam) noexcept
{
    const auto* const self =
        reinterpret_cast<const TraceWindow*>(::GetWindowLongPtrW(window, GWLP_USERDATA));
    if (message == WM_COPYDATA && self)
    {
        self->Print(*reinterpret_cast<const COPYDATASTRUCT*>(lParam));
        return TRUE;
    }
    if (message == WM_DESTROY)
    {
        ::PostQuitMessage(0);
    }
    return ::DefWindowProcW(window, message, wParam, lParam);
}

void TraceWindow::Print(const COPYDATASTRUCT& data) const noexcept
{
    const std::span bytes(static_cast<const std::byte*>(data.lpData),
                          data.lpData ? data.cbData : 0);
    DecodedTraceRecord record = DecodeTraceRecord(bytes);
    if (record.fault == TraceRecordFault::none && data.dwData != kTraceMagic)
    {
        record.fault = TraceRecordFault::wrongMagic;
    }
    try
    {
        m_console.Write("trace: " +
                        (record.fault == TraceRecordFault::none
                             ? WithoutControls(ToUtf8(record.text))
                             : DescribeMalformed(record.fault, bytes.size(), bytes)) +
                        "\n");
    }
    catch (const std::exception&)
    {
        // The line is lost; the traced program goes on.
    }
}
} // namespace velt::tool
