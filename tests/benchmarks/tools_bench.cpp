// What the trace viewer costs the programs that it watches, and itself. Rows that begin with
// "velt-trace.exe" are of the shipped program, beside an idle window: one that does nothing with
// what it is sent. Those that begin with "classes alone" are of its classes in this process.
//
//   tools_bench <path of velt-trace.exe>

#include "foundation/trace_record.h"
#include "foundation/unique_handle.h"
#include "tests/benchmarks/table.h"
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
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace
{
constexpr DWORD kLimitMs = 60'000;
constexpr DWORD kShowLimitMs = 10'000;
constexpr DWORD kStreamLimitMs = 15'000; // where messages are slow, fewer are sent
constexpr int kStream = 200'000;
constexpr int kBatch = 1000;
constexpr int kBatches = 21;
constexpr int kFilterings = 9;
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

/// Sends one record of usual length.
void Send(HWND window)
{
    static velt::TraceRecord record =
        velt::EncodeTraceRecord(4, 0, "", "    CEnumVariantCol::get_Item - return = 0");
    COPYDATASTRUCT data{velt::kTraceMagic, static_cast<DWORD>(record.size), record.bytes.data()};
    ::SendMessageW(window, WM_COPYDATA, 0, reinterpret_cast<LPARAM>(&data));
}

/// Sends a batch; returns nanoseconds a record, and the longest that one was held.
double SendBatch(HWND window, double& longestNs)
{
    const double all = velt::bench::NanosecondsOf([&] {
        for (int i = 0; i < kBatch; ++i)
        {
            longestNs = std::max(longestNs, velt::bench::NanosecondsOf([&] { Send(window); }));
        }
    });
    return all / kBatch;
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

    velt::bench::PrintFigure("classes alone: copying a record", copyNs / kMillion, "ns", "");
    velt::bench::PrintFigure("classes alone: records a second, kept",
                             1e9 * kMillion / (copyNs + keepNs), "  ", ">= 50000");
    velt::bench::PrintFigure("classes alone: 1,000,000 short records",
                             static_cast<double>(used) / (1024.0 * 1024.0), "MB", "<= 80 MB");
    velt::bench::PrintRow("classes alone: filter them by a text, ms", "a memchr over each text",
                          byText, "<= 4.00");
    velt::bench::PrintRow("classes alone: filter with wildcards, ms", "a memchr over each text",
                          byPattern, "<= 4.00");
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
    constexpr UINT kGetItemCount = 0x1004; // LVM_GETITEMCOUNT
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

    // While it filters: another text again and again, over what has been sent.
    std::vector<double> busy;
    std::vector<double> calm;
    std::vector<double> busyRatios;
    std::vector<double> firstRows;
    std::vector<double> allRows;
    const HWND field = ::GetDlgItem(shown, 302);
    const auto type = [&](const wchar_t* text) {
        ::SendMessageW(field, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text));
    };
    for (int i = 0; i < kFilterings; ++i)
    {
        double ignored = 0;
        calm.push_back(SendBatch(receiver, ignored));
        type(i % 2 == 0 ? L"return = 0" : L"get?item*0"); // it begins at once
        busy.push_back(SendBatch(receiver, ignored));
        busyRatios.push_back(busy.back() / calm.back());
        sent += 2 * kBatch;
        WaitFor([&] { return shownRows() == sent; }, "the filter does not end");
    }
    for (int i = 0; i < kFilterings; ++i)
    {
        type(L"nothing has this");
        WaitFor([&] { return shownRows() == 0; }, "the list does not become empty");
        const double start = velt::bench::NowNs();
        type(i % 2 == 0 ? L"return = 0" : L"get?item*0");
        WaitFor([&] { return shownRows() > 0; }, "nothing is found");
        firstRows.push_back((velt::bench::NowNs() - start) / 1e6);
        WaitFor([&] { return shownRows() == sent; }, "not all is found");
        allRows.push_back((velt::bench::NowNs() - start) / 1e6);
    }

    using velt::bench::Median;
    velt::bench::PrintHeading("");
    velt::bench::PrintRow("velt-trace.exe: one record, ns", "an idle window",
                          {Median(ours), Median(others), Median(ratios)}, "<= 1.50");
    velt::bench::PrintRow("velt-trace.exe: one while it filters, ns", "one while it idles",
                          {Median(busy), Median(calm), Median(busyRatios)}, "<= 1.50");
    velt::bench::PrintFigure("velt-trace.exe: first rows after a key", Median(firstRows), "ms",
                             "<= 100");
    velt::bench::PrintFigure("velt-trace.exe: all rows after a key", Median(allRows), "ms",
                             "<= 1500");
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
        BenchMillion();
        return 0;
    }
    catch (const std::exception& e)
    {
        std::fprintf(stderr, "bench: %s\n", e.what());
        return 1;
    }
}
