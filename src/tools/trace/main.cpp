// The trace viewer's program.
//
// It is a console program although it mostly shows a window: only so does a prompt wait for
// --console and get its exit code, and only so does Ctrl+C arrive. Where the system made a console
// for the window's sake it is given back at once; recent systems, told by the manifest, make none.

#include "foundation/system_exception.h"
#include "foundation/trace_record.h"
#include "foundation/wide_text.h"
#include "tools/common/console.h"
#include "tools/common/search_path.h"
#include "tools/trace/console_viewer.h"
#include "tools/trace/error_text.h"
#include "tools/trace/main_window.h"
#include "tools/trace/trace_export.h"
#include "tools/trace/trace_options.h"
#include "tools/trace/viewer_instance.h"
#include "tools/trace/viewer_settings.h"

#include <windows.h>

#include <uxtheme.h>

#include <string>
#include <variant>
#include <vector>

namespace
{
enum ExitCode
{
    kDone = 0,
    kNothing = 1,
    kWrongUsage = 2,
    kFailed = 3,
};

constexpr wchar_t kTitle[] = L"Trace viewer";
constexpr wchar_t kRunning[] = L"A trace viewer is running already.";

/// To standard error; where that cannot be written there is nobody to tell.
void Complain(const std::string& text) noexcept
{
    try
    {
        velt::Console(STD_ERROR_HANDLE).Write("velt-trace: " + text + "\r\n");
    }
    catch (const std::exception&)
    {
        static_cast<void>(text);
    }
}

/// Gives a console back that was made for this process alone; returns whether it was.
bool LeaveOwnConsole() noexcept
{
    DWORD others[2];
    return ::GetConsoleProcessList(others, 2) == 1 && ::FreeConsole();
}

/// Whether nobody sees what goes to standard error, as after a start from the desktop; gives its
/// own console back.
bool LeaveToDesktop() noexcept
{
    return LeaveOwnConsole() || !::GetStdHandle(STD_ERROR_HANDLE);
}

/// The process of a window; 0 for none.
DWORD ProcessOf(HWND window) noexcept
{
    DWORD process = 0;
    ::GetWindowThreadProcessId(window, &process);
    return process;
}

/// Brings the window of the viewer that runs to the front; false when it has none.
bool ShowFirst() noexcept
{
    const HWND receiver = ::FindWindowW(velt::kTraceViewerClass, nullptr);
    const DWORD process = ProcessOf(receiver);
    HWND first = nullptr;
    do
    {
        // Windows that show saved files may be there as well.
        first = ::FindWindowExW(nullptr, first, velt::MainWindow::kClass, nullptr);
    } while (first && ProcessOf(first) != process);
    if (!first || process == 0)
    {
        return false;
    }
    if (::IsIconic(first))
    {
        ::ShowWindowAsync(first, SW_RESTORE); // returns also while that viewer is busy
    }
    ::SetForegroundWindow(first);
    return true;
}

int RunWindow(const velt::TraceOptions& options)
{
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    ::GetStartupInfoW(&startup);
    // Loaded late, and from here on there: where it is missing this throws, which windows must not.
    ::IsAppThemed();
    velt::MainWindow window(options, (startup.dwFlags & STARTF_USESHOWWINDOW) != 0
                                         ? startup.wShowWindow
                                         : SW_SHOWDEFAULT);
    window.Run();
    return kDone;
}

int ShowWindow(const velt::TraceOptions& options, const velt::ViewerInstance& instance)
{
    const bool fromDesktop = LeaveToDesktop();
    if (!instance.IsFirst())
    {
        Complain(velt::Utf8FromWide(kRunning));
        if (!ShowFirst() && fromDesktop)
        {
            // The one that runs prints or records: nothing else would be seen.
            ::MessageBoxW(nullptr, kRunning, kTitle, MB_OK | MB_ICONINFORMATION);
        }
        return kNothing;
    }
    return RunWindow(options);
}

int ShowFiles(const velt::TraceOptions& options)
{
    const bool fromDesktop = LeaveToDesktop();
    try
    {
        return RunWindow(options);
    }
    catch (...)
    {
        if (fromDesktop)
        {
            ::MessageBoxW(nullptr, velt::CurrentErrorText().c_str(), kTitle, MB_OK | MB_ICONERROR);
        }
        throw;
    }
}

int Record(const velt::TraceOptions& options, const velt::ViewerInstance& instance)
{
    if (!instance.IsFirst())
    {
        Complain(velt::Utf8FromWide(kRunning));
        return kNothing;
    }
    velt::ConsoleViewer viewer(options);
    if (!viewer.HearsAll())
    {
        Complain("another program listens to the debugger output; the rest is recorded");
    }
    const velt::ConsoleViewer::Counts counts = viewer.Run();
    Complain(velt::FormatCount(counts.written) + " records, " +
             velt::FormatCount(counts.malformed) + " malformed, " + velt::FormatCount(counts.lost) +
             " lost");
    return counts.written != 0 ? kDone : kNothing;
}

int Run(const std::vector<std::string>& arguments)
{
    const auto parsed = velt::ParseTraceOptions(arguments);
    if (const auto* error = std::get_if<velt::TraceUsageError>(&parsed))
    {
        Complain(error->message + "\r\nvelt-trace --help tells how it is used");
        return kWrongUsage;
    }
    const auto& options = std::get<velt::TraceOptions>(parsed);
    if (options.help)
    {
        velt::Console(STD_OUTPUT_HANDLE).Write(velt::kTraceHelp);
        return kDone;
    }
    if (options.defaults)
    {
        velt::ViewerSettings::Forget();
    }
    if (!options.files.empty())
    {
        return ShowFiles(options); // it receives nothing, so it is nobody's second
    }
    const velt::ViewerInstance instance;
    return options.console || !options.savePath.empty() ? Record(options, instance)
                                                        : ShowWindow(options, instance);
}
} // namespace

int wmain(int argc, wchar_t** argv)
{
    velt::SearchSystemFolderOnly();
    try
    {
        std::vector<std::string> arguments;
        for (int i = 1; i < argc; ++i)
        {
            arguments.push_back(velt::Utf8FromWide(argv[i]));
        }
        return Run(arguments);
    }
    catch (...)
    {
        Complain(velt::Utf8FromWide(velt::CurrentErrorText()));
    }
    return kFailed;
}
