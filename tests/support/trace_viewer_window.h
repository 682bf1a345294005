#pragma once

#include "foundation/unique_handle.h"
#include "foundation/velt_critical_section.h"

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

namespace velt::test
{
/// A record as it arrived at a trace viewer, taken apart byte by byte.
struct ViewerRecord
{
    ULONG_PTR dataKind; // dwData
    DWORD dataSize;     // cbData
    std::uint32_t length;
    std::string magic; // 4 characters
    std::int32_t level;
    std::uint32_t category;
    unsigned reserved;
    std::string sourceField; // all 64 bytes
    std::string text;        // up to its first NUL
    bool endsAfterText;      // the NUL is the last byte of the data

    bool operator==(const ViewerRecord&) const = default;

    /// The source name without its padding.
    std::string Source() const
    {
        return sourceField.substr(0, sourceField.find('\0'));
    }
};

/// A trace viewer: a top-level window on a thread of its own that keeps what it is sent. Sending is
/// synchronous, so after a traced call its records are here.
class TraceViewerWindow
{
public:
    /// Throws std::runtime_error when there is no window.
    TraceViewerWindow();

    TraceViewerWindow(const TraceViewerWindow&) = delete;
    TraceViewerWindow& operator=(const TraceViewerWindow&) = delete;

    /// Closes the window and waits for its thread.
    ~TraceViewerWindow();

    HWND Window() const noexcept
    {
        return m_window;
    }

    /// What has arrived since the last call.
    std::vector<ViewerRecord> Take();

    /// The same, its texts only.
    std::vector<std::string> TakeTexts();

private:
    static DWORD WINAPI Run(void* self) noexcept;
    static LRESULT CALLBACK WindowProc(HWND window, UINT message, WPARAM wParam,
                                       LPARAM lParam) noexcept;
    void Keep(const COPYDATASTRUCT& data);

    UniqueKernelObject m_ready;
    HWND m_window = nullptr; // written before m_ready is set

    VeltCriticalSection m_lock;
    std::vector<ViewerRecord> m_records; // guarded by m_lock

    UniqueKernelObject m_thread;
};
} // namespace velt::test
