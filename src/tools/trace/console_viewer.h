#pragma once

#include "foundation/unique_handle.h"
#include "tools/common/console.h"
#include "tools/trace/record_file.h"
#include "tools/trace/trace_options.h"
#include "tools/trace/trace_session.h"

#include <windows.h>

#include <cstdint>
#include <optional>

namespace velt
{
/// The viewer without a window: prints records, records them to a file, or both, until Ctrl+C.
/// One lives in a process.
class ConsoleViewer final : private TraceReceiverEvents
{
public:
    struct Counts
    {
        std::uint64_t written = 0;   // records that the filter let through
        std::uint64_t malformed = 0; // of all that arrived
        std::uint64_t lost = 0;      // arrived faster than they could be written
    };

    /// Opens the file, which is replaced when it exists. Throws SystemException::Win32.
    explicit ConsoleViewer(const TraceOptions& options);

    ConsoleViewer(const ConsoleViewer&) = delete;
    ConsoleViewer& operator=(const ConsoleViewer&) = delete;

    ~ConsoleViewer();

    /// Runs until Ctrl+C, or until somebody asks the receiver's window to close. Throws
    /// SystemException::Win32.
    Counts Run();

    /// False when another program listens to the debugger output, which was asked for.
    bool HearsAll() const noexcept
    {
        return m_session.ListensToDebugOutput() == m_options.debugOutput;
    }

private:
    static BOOL WINAPI OnControl(DWORD event) noexcept;
    void OnArrival() noexcept override;
    void OnCloseAsked() noexcept override;
    void WriteRecords();

    const TraceOptions m_options;
    UniqueKernelObject m_arrived;
    std::optional<RecordFile> m_file;
    const Console m_output{STD_OUTPUT_HANDLE};
    Counts m_counts;
    TraceSession m_session; // last: its threads use the others
};
} // namespace velt
