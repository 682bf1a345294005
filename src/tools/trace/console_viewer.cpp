#include "tools/trace/console_viewer.h"

#include "foundation/system_exception.h"
#include "tools/trace/trace_export.h"

#include <array>

namespace velt
{
namespace
{
constexpr DWORD kGatherMs = 20;       // so that fast programs make few, large writes
constexpr DWORD kSenderLimitMs = 500; // a slow look at the processes does not hold the output up
constexpr DWORD kLineLimitMs = 100;   // for the rest of a line of debugger output
constexpr DWORD kLeaveLimitMs = 5000;

UniqueKernelObject MakeEvent(bool manualReset)
{
    UniqueKernelObject event(::CreateEventW(nullptr, manualReset, FALSE, nullptr));
    if (!event)
    {
        ThrowLastError();
    }
    return event;
}

/// Manual-reset events that live as long as the process: the system's thread that calls OnControl
/// may be on its way when the viewer goes.
HANDLE EndedEvent()
{
    static const HANDLE event = MakeEvent(true).Release();
    return event;
}

/// Set when Run is over.
HANDLE LeftEvent()
{
    static const HANDLE event = MakeEvent(true).Release();
    return event;
}
} // namespace

ConsoleViewer::ConsoleViewer(const TraceOptions& options)
    : m_options(options),
      m_arrived(MakeEvent(false)),
      m_session(*this)
{
    if (!options.savePath.empty())
    {
        m_file.emplace(options.savePath, options.saveLimits);
    }
    m_session.ListenToDebugOutput(options.debugOutput);
    LeftEvent(); // made before the handler can ask for it
    ::SetConsoleCtrlHandler(&ConsoleViewer::OnControl, TRUE);
}

ConsoleViewer::~ConsoleViewer()
{
    ::SetConsoleCtrlHandler(&ConsoleViewer::OnControl, FALSE);
}

ConsoleViewer::Counts ConsoleViewer::Run()
{
    const std::array<HANDLE, 2> events{EndedEvent(), m_arrived.Get()};
    bool ended = false;
    while (!ended)
    {
        ::WaitForMultipleObjects(static_cast<DWORD>(events.size()), events.data(), FALSE,
                                 m_session.WantsDrain() ? kLineLimitMs : INFINITE);
        ended = ::WaitForSingleObject(EndedEvent(), kGatherMs) == WAIT_OBJECT_0;
        WriteRecords();
    }
    while (m_session.WantsDrain())
    {
        WriteRecords(); // a line that nobody has ended
    }
    ::SetEvent(LeftEvent());
    return m_counts;
}

BOOL WINAPI ConsoleViewer::OnControl(DWORD event) noexcept
{
    ::SetEvent(EndedEvent());
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT)
    {
        // The console closes or the user logs off: the process ends when this returns.
        ::WaitForSingleObject(LeftEvent(), kLeaveLimitMs);
    }
    return TRUE;
}

void ConsoleViewer::OnArrival() noexcept
{
    ::SetEvent(m_arrived.Get());
}

void ConsoleViewer::OnCloseAsked() noexcept
{
    ::SetEvent(EndedEvent());
}

void ConsoleViewer::WriteRecords()
{
    m_session.Drain(kSenderLimitMs);
    const TraceStore& store = m_session.Store();
    std::string printed;
    for (std::uint64_t at = store.First(); at < store.Next(); ++at)
    {
        const TraceEntry entry = store.At(at);
        const std::string_view process = m_session.Process(entry);
        if (!m_options.filter.Accepts(entry, process))
        {
            continue;
        }
        if (m_options.console)
        {
            AppendTextLine(printed, entry, process);
        }
        if (m_file)
        {
            m_file->Add(entry, process);
        }
        ++m_counts.written;
    }
    m_counts.malformed += m_session.Malformed();
    m_counts.lost += m_session.Lost();
    m_session.Clear();
    if (m_file)
    {
        m_file->Flush();
    }
    m_output.Write(printed);
}
} // namespace velt
