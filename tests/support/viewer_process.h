#pragma once

#include "foundation/unique_handle.h"
#include "tests/support/component_library.h"
#include "tests/support/eventually.h"

#include <windows.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace velt::test
{
/// The shipped velt-trace.exe as a process of its own, used the way a person uses it: by its
/// window, its keys and its output. Failures throw std::runtime_error.
class ViewerProcess
{
public:
    /// Children of its window and commands of its menu.
    static constexpr int kList = 301;
    static constexpr int kFilter = 302;
    static constexpr int kLevel = 303;
    static constexpr int kHighlight = 304;
    static constexpr int kDetails = 305;
    static constexpr int kStatus = 306;
    static constexpr int kToolbar = 307;
    static constexpr int kSaveCommand = 201;
    static constexpr int kClearCommand = 205;
    static constexpr int kPauseCommand = 206;
    static constexpr int kFollowCommand = 207;
    static constexpr int kOpenCommand = 212;
    static constexpr int kRulesCommand = 213; // filters and highlights
    static constexpr int kCallsCommand = 220; // slowest calls
    static constexpr int kDebugOutputCommand = 223;

    /// Where it keeps what it remembers, below the user's key.
    static constexpr wchar_t kSettings[] = L"Software\\Velt\\TraceViewer";

    enum class Memory
    {
        none, // of earlier tests
        kept,
    };

    /// Starts it with these arguments; its output is caught.
    explicit ViewerProcess(const std::wstring& arguments = L"",
                           const std::wstring& program = ShippedFile(L"velt-trace.exe"),
                           Memory memory = Memory::none);

    ViewerProcess(const ViewerProcess&) = delete;
    ViewerProcess& operator=(const ViewerProcess&) = delete;

    /// Closes it; one that does not close is ended.
    ~ViewerProcess();

    /// Waits until its window is there, or only the one that receives.
    void AwaitWindow();
    void AwaitReceiver();

    /// Waits until the window of one that shows saved files is there.
    void AwaitFileWindow();

    HWND Window() const noexcept
    {
        return m_window;
    }

    HWND Receiver() const noexcept
    {
        return m_receiver;
    }

    DWORD Id() const noexcept
    {
        return m_id;
    }

    HANDLE Process() const noexcept
    {
        return m_process.Get();
    }

    HWND Child(int id) const noexcept
    {
        return ::GetDlgItem(m_window, id);
    }

    /// Waits until the list has this many rows; returns whether it has.
    bool AwaitRows(int rows) const;
    int Rows() const noexcept;

    /// A cell of the list: time, process, level, source, text.
    std::wstring Cell(int row, int column) const;

    /// A cell of another list of its.
    std::wstring CellOf(HWND list, int row, int column) const;

    /// The texts of all rows.
    std::vector<std::wstring> Texts() const;

    /// A part of the status bar, from 0: records, shown, dropped, malformed, selection.
    std::wstring Status(int part) const;

    /// Waits until a part of the status bar says this, which comes after the rows; returns whether
    /// it does.
    bool AwaitStatus(int part, const std::wstring& text) const;

    /// Types into a field: replaces its text and tells its parent, as the keyboard does.
    void Type(int field, const std::wstring& text) const;
    std::wstring TextOf(int child) const;

    /// Carries a command out, as its menu item does.
    void Command(int id) const;

    /// Drops a file onto the window, as the desktop does.
    void Drop(const std::wstring& path) const;

    /// Asks it to close and waits for its exit code.
    DWORD Close();
    DWORD AwaitExit();

    /// What it has written to standard output and standard error until it ended.
    std::string Output();
    std::string Errors();

    /// What of standard output nobody has read yet; it stays there.
    std::string OutputWaiting() const;

private:
    std::wstring RemoteText(HWND window, UINT message, int item, int part) const;

    UniqueKernelObject m_process;
    DWORD m_id = 0;
    UniqueKernelObject m_output;
    UniqueKernelObject m_errors;
    HWND m_window = nullptr;
    HWND m_receiver = nullptr;
};

/// Sends a record as the component does; returns whether somebody took it.
bool SendRecord(HWND receiver, std::string_view text, std::int32_t level = 4,
                std::string_view source = "", HWND sender = nullptr);

/// Sends any bytes.
bool SendBytes(HWND receiver, std::string_view bytes, ULONG_PTR kind = 0x55543132);
} // namespace velt::test
