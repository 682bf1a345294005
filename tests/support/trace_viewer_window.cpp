#include "tests/support/trace_viewer_window.h"

#include "foundation/velt_auto_critical_section.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace velt::test
{
namespace
{
constexpr wchar_t kName[] = L"Pembrook Corporation::Trace::1.0";
constexpr std::size_t kSourceAt = 17;
constexpr std::size_t kTextAt = 81;

std::uint32_t NumberAt(const std::string& bytes, std::size_t at)
{
    std::uint32_t number = 0;
    for (std::size_t i = 4; i-- > 0;)
    {
        number = number << 8 | static_cast<unsigned char>(bytes[at + i]);
    }
    return number;
}
} // namespace

TraceViewerWindow::TraceViewerWindow()
    : m_ready(::CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      m_thread(::CreateThread(nullptr, 0, &TraceViewerWindow::Run, this, 0, nullptr))
{
    ::WaitForSingleObject(m_ready.Get(), INFINITE);
    if (!m_window)
    {
        throw std::runtime_error("no trace viewer window");
    }
}

TraceViewerWindow::~TraceViewerWindow()
{
    ::SendMessageW(m_window, WM_CLOSE, 0, 0);
    ::WaitForSingleObject(m_thread.Get(), INFINITE);
}

std::vector<ViewerRecord> TraceViewerWindow::Take()
{
    const VeltAutoCriticalSection lock(&m_lock);
    return std::exchange(m_records, {});
}

std::vector<std::string> TraceViewerWindow::TakeTexts()
{
    std::vector<std::string> texts;
    for (const ViewerRecord& record : Take())
    {
        texts.push_back(record.text);
    }
    return texts;
}

DWORD WINAPI TraceViewerWindow::Run(void* self) noexcept
{
    auto* const viewer = static_cast<TraceViewerWindow*>(self);
    const HINSTANCE instance = ::GetModuleHandleW(nullptr);
    WNDCLASSW description{};
    description.lpfnWndProc = &TraceViewerWindow::WindowProc;
    description.hInstance = instance;
    description.lpszClassName = kName;
    ::RegisterClassW(&description);
    viewer->m_window = ::CreateWindowExW(0, kName, kName, WS_OVERLAPPED, 0, 0, 1, 1, nullptr,
                                         nullptr, instance, nullptr);
    ::SetWindowLongPtrW(viewer->m_window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(viewer));
    ::SetEvent(viewer->m_ready.Get());

    MSG message;
    while (viewer->m_window && ::GetMessageW(&message, nullptr, 0, 0) > 0)
    {
        ::DispatchMessageW(&message);
    }
    ::UnregisterClassW(kName, instance);
    return 0;
}

LRESULT CALLBACK TraceViewerWindow::WindowProc(HWND window, UINT message, WPARAM wParam,
                                               LPARAM lParam) noexcept
{
    switch (message)
    {
    case WM_COPYDATA:
        reinterpret_cast<TraceViewerWindow*>(::GetWindowLongPtrW(window, GWLP_USERDATA))
            ->Keep(*reinterpret_cast<const COPYDATASTRUCT*>(lParam));
        return TRUE;
    case WM_DESTROY:
        ::PostQuitMessage(0);
        return 0;
    default:
        return ::DefWindowProcW(window, message, wParam, lParam);
    }
}

void TraceViewerWindow::Keep(const COPYDATASTRUCT& data)
{
    // Padded, so that a short one is taken apart too and then fails its test.
    std::string bytes(static_cast<const char*>(data.lpData), data.cbData);
    const std::size_t nul = bytes.find('\0', kTextAt);
    bytes.resize(std::max<std::size_t>(bytes.size(), kTextAt + 1));

    ViewerRecord record;
    record.dataKind = data.dwData;
    record.dataSize = data.cbData;
    record.length = NumberAt(bytes, 0);
    record.magic = bytes.substr(4, 4);
    record.level = static_cast<std::int32_t>(NumberAt(bytes, 8));
    record.category = NumberAt(bytes, 12);
    record.reserved = static_cast<unsigned char>(bytes[16]);
    record.sourceField = bytes.substr(kSourceAt, kTextAt - kSourceAt);
    record.text = bytes.substr(kTextAt, nul == std::string::npos ? nul : nul - kTextAt);
    record.endsAfterText = nul != std::string::npos && nul + 1 == data.cbData;

    const VeltAutoCriticalSection lock(&m_lock);
    m_records.push_back(std::move(record));
}
} // namespace velt::test
