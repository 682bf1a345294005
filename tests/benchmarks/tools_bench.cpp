// What the trace viewer costs the programs that it watches, and itself. Rows that begin with
// "velt-trace.exe" are of the shipped program, beside an idle window: one that does nothing with
// what it is sent. Those that begin with "classes alone" are of its classes in this process.
//
//   tools_bench <path of velt-trace.exe>

#include "foundation/trace_record.h"
#include "foundation/unique_handle.h"
#include "tests/benchmarks/table.h"
#include "tests/support/keyboard.h"
#include "tools/common/output_file.h"
#include "tools/trace/arrival_queue.h"
#include "tools/trace/trace_store.h"
#include "tools/trace/trace_view.h"

#include <windows.h>

#include <psapi.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace
{
constexpr DWORD kLimitMs = 60'000;
constexpr DWORD kShowLimitMs = 10'000;
constexpr DWORD kStreamLimitMs = 15'000; // where messages are slow, fewer are sent
constexpr int kStream = 200'000;
constexpr int kBatch = 1000;
constexpr int kBatches = 21;
constexpr int kRounds = 9;
constexpr int kFilterings = 9;
constexpr UINT kGetItemCount = 0x1004; // LVM_GETITEMCOUNT
constexpr std::size_t kMillion = 1'000'000;
constexpr wchar_t kIdleClass[] = L"velt-bench idle receiver";

void Check(bool condition, const char* what)
{
    if (!condition)
    {
        throw std::runtime_error(what);
    }
}

template <class Condition>
void WaitFor(Condition&& condition, const char* what)
{
    const DWORD start = ::GetTickCount();
    while (!condition())
    {
        Check(::GetTickCount() - start < kLimitMs, what);
        ::Sleep(5);
    }
}

/// Sends one record, of usual length.
void Send(HWND window, std::string_view text = "    CEnumVariantCol::get_Item - return = 0")
{
    velt::TraceRecord record = velt::EncodeTraceRecord(4, 0, "", std::string(text));
    COPYDATASTRUCT data{velt::kTraceMagic, static_cast<DWORD>(record.size), record.bytes.data()};
    ::SendMessageW(window, WM_COPYDATA, 0, reinterpret_cast<LPARAM>(&data));
}

/// Sends a batch; returns nanoseconds a record, and the longest that one was held.
double SendBatch(HWND window, double& longestNs, int records = kBatch)
{
    const double all = velt::bench::NanosecondsOf([&] {
        for (int i = 0; i < records; ++i)
        {
            longestNs = std::max(longestNs, velt::bench::NanosecondsOf([&] { Send(window); }));
        }
    });
    return all / records;
}

velt::UniqueKernelObject Start(std::wstring commandLine)
{
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process{};
    Check(::CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr,
                           nullptr, &startup, &process) != 0,
          "a process cannot be started");
    ::CloseHandle(process.hThread);
    return velt::UniqueKernelObject(process.hProcess);
}

/// The process that the viewer is measured against: a window that returns at once.
int RunIdleReceiver()
{
    WNDCLASSW type{};
    type.lpfnWndProc = &::DefWindowProcW;
    type.lpszClassName = kIdleClass;
    type.hInstance = ::GetModuleHandleW(nullptr);
    ::RegisterClassW(&type);
    const HWND window = ::CreateWindowExW(0, kIdleClass, L"", WS_POPUP, 0, 0, 0, 0, nullptr,
                                          nullptr, type.hInstance, nullptr);
    MSG message;
    while (window && ::IsWindow(window) && ::GetMessageW(&message, nullptr, 0, 0) > 0)
    {
        ::DispatchMessageW(&message);
    }
    return 0;
}

PROCESS_MEMORY_COUNTERS MemoryOf(HANDLE process)
{
    PROCESS_MEMORY_COUNTERS counters{};
    Check(::GetProcessMemoryInfo(process, &counters, sizeof(counters)) != FALSE,
          "the memory cannot be asked for");
    return counters;
}

/// The viewer's own classes in this process at a million records: their work without the system's
/// messages, the window and the look at who sends.
void BenchMillion()
{
    const velt::TraceRecord record =
        velt::EncodeTraceRecord(4, 0, "", "    CEnumVariantCol::get_Item - return = 0");
    const std::span<const std::byte> bytes(record.bytes.data(), record.size);
    const velt::Arrival arrival{0, 0, static_cast<std::uint32_t>(record.size), velt::kTraceMagic};
    constexpr std::size_t kEach = 2000; // about what comes between two refreshes at 50,000 a second

    const std::size_t before = MemoryOf(::GetCurrentProcess()).PagefileUsage;
    velt::ArrivalQueue queue;
    velt::TraceStore store;
    velt::TraceView view(store);
    double copyNs = 0;
    double keepNs = 0;
    for (std::size_t i = 0; i < kMillion; i += kEach)
    {
        copyNs += velt::bench::NanosecondsOf([&] {
            for (std::size_t k = 0; k < kEach; ++k)
            {
                queue.Append(arrival, bytes);
            }
        });
        keepNs += velt::bench::NanosecondsOf([&] {
            queue.Take().ForEach([&](const velt::Arrival& a, std::span<const std::byte> data) {
                const velt::DecodedTraceRecord decoded = velt::DecodeTraceRecord(data);
                velt::TraceEntry entry;
                entry.arrivalUs = a.arrivalUs;
                entry.level = decoded.level;
                entry.source = decoded.source;
                entry.text = decoded.text;
                store.Append(entry);
            });
            view.Advance(kEach);
        });
    }
    const std::size_t used = MemoryOf(::GetCurrentProcess()).PagefileUsage - before;
    Check(view.Size() == kMillion, "a million records are not there");
    // Against reading the texts once as quickly as the system's library looks for a byte.
    std::size_t found = 0;
    const auto readAll = [&] {
        for (std::uint64_t at = store.First(); at < store.Next(); ++at)
        {
            const std::string_view text = store.At(at).text;
            found += std::memchr(text.data(), '\x01', text.size()) ? 1u : 0u;
        }
    };
    const auto filter = [&](const char* pattern) {
        std::vector<double> ours;
        std::vector<double> others;
        std::vector<double> ratios;
        for (int i = 0; i < 5; ++i)
        {
            view.SetFilter({pattern});
            ours.push_back(velt::bench::NanosecondsOf([&] { view.Advance(kMillion); }) / 1e6);
            others.push_back(velt::bench::NanosecondsOf(readAll) / 1e6);
            ratios.push_back(ours.back() / others.back());
        }
        using velt::bench::Median;
        return velt::bench::PairedTimes{Median(ours), Median(others), Median(ratios)};
    };
    const velt::bench::PairedTimes byText = filter("no such text");
    const velt::bench::PairedTimes byPattern = filter("get?item*no such*text");
    Check(found == 0, "a text has a byte that none has");
    view.SetFilter({"return"}); // which all of them pass
    view.Advance(kMillion);
    Check(view.Size() == kMillion, "not all pass");
    const std::size_t filtered = MemoryOf(::GetCurrentProcess()).PagefileUsage - before;

    velt::bench::PrintFigure("classes alone: copying a record", copyNs / kMillion, "ns", "");
    velt::bench::PrintFigure("classes alone: records a second, kept",
                             1e9 * kMillion / (copyNs + keepNs), "  ", ">= 50000");
    velt::bench::PrintFigure("classes alone: 1,000,000 short records",
                             static_cast<double>(used) / (1024.0 * 1024.0), "MB", "<= 80 MB");
    velt::bench::PrintFigure("classes alone: them with a filter all pass",
                             static_cast<double>(filtered) / (1024.0 * 1024.0), "MB", "<= 80 MB");
    velt::bench::PrintRow("classes alone: filter them by a text, ms", "a memchr over each text",
                          byText, "<= 4.00");
    velt::bench::PrintRow("classes alone: filter with wildcards, ms", "a memchr over each text",
                          byPattern, "<= 4.00");
}

/// What a record takes on its way while the viewer is at work, beside what one takes right before.
class WhileBusy
{
public:
    struct Times
    {
        velt::bench::PairedTimes calm; // against one while the viewer idles
        velt::bench::PairedTimes
            idle; // against the idle window meanwhile, which shares the machine
    };

    /// `settle` is told how many records were sent and waits until they are shown.
    WhileBusy(HWND window, HWND receiver, HWND idle, HWND list, std::function<void(int)> settle)
        : m_window(window),
          m_receiver(receiver),
          m_idle(idle),
          m_list(list),
          m_settle(std::move(settle))
    {
    }

    /// Another text again and again, over all that has been sent.
    Times Filtering() const
    {
        int i = 0;
        return Measure([&] {
            ::SendMessageW(::GetDlgItem(m_window, 302), WM_SETTEXT, 0,
                           reinterpret_cast<LPARAM>(i++ % 2 == 0 ? L"n" : L"*n")); // begins at once
        });
    }

    /// The list, page after page.
    Times Painting() const
    {
        ::SendMessageW(m_window, WM_COMMAND, kFollowCommand, 0);
        const Times times = Measure([&] {
            for (int i = 0; i < kPages; ++i)
            {
                ::PostMessageW(m_list, WM_VSCROLL, i % 20 < 10 ? SB_PAGEUP : SB_PAGEDOWN, 0);
            }
        });
        ::SendMessageW(m_window, WM_COMMAND, kFollowCommand, 0);
        return times;
    }

    /// All that is shown, into a file.
    Times Saving() const
    {
        wchar_t folder[MAX_PATH] = {};
        ::GetTempPathW(MAX_PATH, folder);
        const std::wstring path = std::wstring(folder) + L"velt-bench-saved.txt";
        const Times times = Measure([&] {
            ::DeleteFileW(path.c_str());
            ::PostMessageW(m_window, WM_COMMAND, kSaveCommand, 0);
            HWND name = nullptr;
            WaitFor([&] { return (name = Dialog(kNameField, kOldNameField)) != nullptr; },
                    "no dialog to save with");
            ::SendMessageW(name, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(path.c_str()));
            HWND dialog = ::GetAncestor(name, GA_ROOT);
            ::PostMessageW(dialog, WM_COMMAND, IDOK, 0);
            WaitFor([&] { return !::IsWindow(dialog); }, "the dialog stays"); // then it saves
        });
        ::DeleteFileW(path.c_str());
        return times;
    }

    /// The table of the slowest calls, of thousands of functions.
    Times Sorting() const
    {
        for (int i = 0; i < kFunctions; ++i)
        {
            const std::string name = "CName::Function" + std::to_string(i);
            ::Send(m_receiver, name + " - enter");
            ::Send(m_receiver, name + " - return");
        }
        m_settle(2 * kFunctions);
        ::PostMessageW(m_window, WM_COMMAND, kCallsCommand, 0);
        HWND order = nullptr;
        WaitFor([&] { return (order = Dialog(kOrder, kOrder)) != nullptr; }, "no table");
        const HWND dialog = ::GetAncestor(order, GA_ROOT);
        WaitFor(
            [&] {
                return ::SendDlgItemMessageW(dialog, kTable, kGetItemCount, 0, 0) == kFunctions;
            },
            "the table stays empty");
        const Times times = Measure([&] {
            for (int i = 0; i < kSorts; ++i)
            {
                ::PostMessageW(dialog, WM_COMMAND, MAKEWPARAM(kOrder, CBN_SELCHANGE), 0);
            }
        });
        ::PostMessageW(dialog, WM_COMMAND, IDCANCEL, 0);
        return times;
    }

private:
    static constexpr int kFollowCommand = 207;
    static constexpr int kSaveCommand = 201;
    static constexpr int kCallsCommand = 220;
    static constexpr int kOrder = 422;
    static constexpr int kTable = 421;
    static constexpr int kNameField = 0x47C;    // cmb13
    static constexpr int kOldNameField = 0x480; // edt1
    static constexpr int kTurn = 50;
    static constexpr int kPages = 60;
    static constexpr int kFunctions = 3000;
    static constexpr int kSorts = 3;

    template <class Begin>
    Times Measure(Begin&& begin) const
    {
        std::vector<double> busy;
        std::vector<double> calm;
        std::vector<double> idle;
        std::vector<double> toCalm;
        std::vector<double> toIdle;
        for (int i = 0; i < kRounds; ++i)
        {
            calm.push_back(Send().first);
            begin();
            const auto [ours, other] = Send();
            busy.push_back(ours);
            idle.push_back(other);
            toCalm.push_back(ours / calm.back());
            toIdle.push_back(ours / other);
            ::SendMessageW(m_window, WM_NULL, 0, 0);
            m_settle(2 * kBatch);
        }
        using velt::bench::Median;
        return {{Median(busy), Median(calm), Median(toCalm)},
                {Median(busy), Median(idle), Median(toIdle)}};
    }

    /// A batch to the viewer, and as much to the idle window, in turns, so that both meet the same
    /// work; what one record took.
    std::pair<double, double> Send() const
    {
        double ignored = 0;
        std::pair<double, double> times;
        for (int i = 0; i < kBatch; i += kTurn)
        {
            times.first += SendBatch(m_receiver, ignored, kTurn) * kTurn / kBatch;
            times.second += SendBatch(m_idle, ignored, kTurn) * kTurn / kBatch;
        }
        return times;
    }

    /// A control of a dialog that is visible: with one identifier or the other.
    static HWND Dialog(int id, int otherId)
    {
        HWND dialog = nullptr;
        while ((dialog = ::FindWindowExW(nullptr, dialog, L"#32770", nullptr)) != nullptr)
        {
            const HWND control = ::GetDlgItem(dialog, id);
            const HWND found = control ? control : ::GetDlgItem(dialog, otherId);
            if (found && ::IsWindowVisible(dialog))
            {
                return found;
            }
        }
        return nullptr;
    }

    HWND m_window;
    HWND m_receiver;
    HWND m_idle;
    HWND m_list;
    std::function<void(int)> m_settle;
};

/// From a key to the rows, at a million records. They come from a file, so that there is time for
/// so many.
void BenchTyping(const std::wstring& viewerPath)
{
    wchar_t folder[MAX_PATH] = {};
    ::GetTempPathW(MAX_PATH, folder);
    const std::wstring path = std::wstring(folder) + L"velt-bench-million.txt";
    {
        std::string lines;
        for (std::size_t i = 0; i < kMillion; ++i)
        {
            lines += "2024-02-29 12:34:56.000789  4  host.exe (12)  CEnumVariantCol::get_Item - "
                     "return = " +
                     std::to_string(i % 1000) + "\r\n";
        }
        velt::OutputFile file(path);
        file.Write(lines);
        file.Commit();
    }
    const velt::UniqueKernelObject viewer = Start(L"\"" + viewerPath + L"\" \"" + path + L"\"");
    HWND window = nullptr;
    WaitFor(
        [&] {
            window = ::FindWindowW(L"VeltTraceViewer", nullptr);
            return window && ::IsWindowVisible(window);
        },
        "no viewer of the file");
    const HWND field = ::GetDlgItem(window, 302);
    const HWND list = ::GetDlgItem(window, 301);
    const auto rows = [&] { return ::SendMessageW(list, kGetItemCount, 0, 0); };
    const auto type = [&](const wchar_t* text) {
        ::SendMessageW(field, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text));
    };
    WaitFor([&] { return rows() == static_cast<LRESULT>(kMillion); }, "the file is not read");
    ::SetForegroundWindow(window);
    WaitFor([&] { return ::GetForegroundWindow() == window; }, "the viewer stays behind");
    velt::test::SendKeys({VK_CONTROL, 'F'});
    WaitFor(
        [&] {
            GUITHREADINFO info{};
            info.cbSize = sizeof(info);
            return ::GetGUIThreadInfo(::GetWindowThreadProcessId(window, nullptr), &info) &&
                   info.hwndFocus == field;
        },
        "the field has no keyboard");
    constexpr LRESULT kFound = 111'000; // 9, 90 to 99 and 900 to 999 of each thousand
    std::vector<double> first;
    std::vector<double> all;
    for (int i = 0; i < kFilterings; ++i)
    {
        type(i % 2 == 0 ? L"!return = 9" : L"!get?item*= 9"); // the caret stands before it
        WaitFor([&] { return rows() == 0; }, "the list does not become empty");
        const double start = velt::bench::NowNs();
        velt::test::SendKeys({VK_DELETE}); // while it still looks for the former
        WaitFor([&] { return rows() > 0; }, "nothing is found");
        first.push_back((velt::bench::NowNs() - start) / 1e6);
        WaitFor([&] { return rows() == kFound; }, "not all is found");
        all.push_back((velt::bench::NowNs() - start) / 1e6);
    }
    ::PostMessageW(window, WM_CLOSE, 0, 0);
    ::WaitForSingleObject(viewer.Get(), kLimitMs);
    ::DeleteFileW(path.c_str());
    using velt::bench::Median;
    velt::bench::PrintFigure("velt-trace.exe: first rows after a key", Median(first), "ms",
                             "<= 100");
    velt::bench::PrintFigure("velt-trace.exe: slowest first rows",
                             *std::max_element(first.begin(), first.end()), "ms", "<= 100");
    velt::bench::PrintFigure("velt-trace.exe: all rows after a key", Median(all), "ms", "<= 1500");
}

void Run(const std::wstring& self, const std::wstring& viewerPath)
{
    const velt::UniqueKernelObject idle = Start(L"\"" + self + L"\" --idle");
    const velt::UniqueKernelObject viewer = Start(L"\"" + viewerPath + L"\"");
    HWND idleWindow = nullptr;
    HWND receiver = nullptr;
    HWND shown = nullptr;
    WaitFor([&] { return (idleWindow = ::FindWindowW(kIdleClass, nullptr)) != nullptr; },
            "no idle receiver");
    WaitFor(
        [&] {
            receiver = ::FindWindowW(velt::kTraceViewerClass, nullptr);
            shown = ::FindWindowW(L"VeltTraceViewer", nullptr);
            return receiver && shown && ::IsWindowVisible(shown);
        },
        "no viewer");

    std::vector<double> ours;
    std::vector<double> others;
    std::vector<double> ratios;
    double longestNs = 0;
    double otherLongestNs = 0;
    for (int i = 0; i < kBatches; ++i)
    {
        ours.push_back(SendBatch(receiver, longestNs));
        others.push_back(SendBatch(idleWindow, otherLongestNs));
        ratios.push_back(ours.back() / others.back());
    }
    const HWND list = ::GetDlgItem(shown, 301);
    const auto shownRows = [&] { return ::SendMessageW(list, kGetItemCount, 0, 0); };
    int sent = kBatch * kBatches;
    double streamNs = 0;
    const DWORD startMs = ::GetTickCount();
    while (sent < kStream && ::GetTickCount() - startMs < kStreamLimitMs)
    {
        streamNs += SendBatch(receiver, longestNs) * kBatch;
        sent += kBatch;
    }
    const int streamed = sent - kBatch * kBatches;
    const DWORD sentMs = ::GetTickCount();
    while (shownRows() != sent && ::GetTickCount() - sentMs < kShowLimitMs)
    {
        ::Sleep(5); // what is not shown by the limit is counted as lost
    }

    const WhileBusy busy{shown, receiver, idleWindow, list, [&](int records) {
                             sent += records;
                             WaitFor([&] { return shownRows() == sent; }, "the list stands still");
                         }};

    using velt::bench::Median;
    velt::bench::PrintHeading("");
    velt::bench::PrintRow("velt-trace.exe: one record, ns", "an idle window",
                          {Median(ours), Median(others), Median(ratios)}, "<= 1.50");
    const auto printHeld = [](const std::string& what, const WhileBusy::Times& times) {
        const std::string measure = "velt-trace.exe: one while it " + what + ", ns";
        velt::bench::PrintRow(measure.c_str(), "one while it idles", times.calm, "<= 1.50");
        velt::bench::PrintRow(measure.c_str(), "an idle window meanwhile", times.idle, "<= 1.50");
    };
    printHeld("filters", busy.Filtering());
    printHeld("paints", busy.Painting());
    printHeld("saves", busy.Saving());
    printHeld("sorts", busy.Sorting());
    velt::bench::PrintFigure("velt-trace.exe: longest that one was held", longestNs / 1e6, "ms",
                             "");
    velt::bench::PrintFigure("idle window: longest that one was held", otherLongestNs / 1e6, "ms",
                             "");
    velt::bench::PrintFigure("velt-trace.exe: records sent to it", sent, "", "");
    velt::bench::PrintFigure("velt-trace.exe: lost of them",
                             static_cast<double>(sent - shownRows()), "", "0");
    velt::bench::PrintFigure("velt-trace.exe: a second, as sent one by one",
                             1e9 * streamed / streamNs, "", "");
    velt::bench::PrintFigure("velt-trace.exe: peak commit",
                             static_cast<double>(MemoryOf(viewer.Get()).PeakPagefileUsage) /
                                 (1024.0 * 1024.0),
                             "MB", "<= 100 MB");

    ::PostMessageW(shown, WM_CLOSE, 0, 0);
    ::PostMessageW(idleWindow, WM_CLOSE, 0, 0);
    ::WaitForSingleObject(viewer.Get(), kLimitMs);
    // A window that closes by itself leaves its thread waiting for another message.
    ::TerminateProcess(idle.Get(), 0);
}
} // namespace

int wmain(int argc, wchar_t** argv)
{
    if (argc == 2 && std::wstring(argv[1]) == L"--idle")
    {
        return RunIdleReceiver();
    }
    if (argc != 2)
    {
        std::fprintf(stderr, "usage: tools_bench <path of velt-trace.exe>\n");
        return 2;
    }
    try
    {
        Run(argv[0], argv[1]);
        BenchTyping(argv[1]);
        BenchMillion();
        return 0;
    }
    catch (const std::exception& e)
    {
        std::fprintf(stderr, "bench: %s\n", e.what());
        return 1;
    }
}
