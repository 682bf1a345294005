#include "tools/trace/trace_session.h"

#include "foundation/trace_record.h"
#include "foundation/unique_handle.h"
#include "tests/support/component_library.h"
#include "tests/support/eventually.h"
#include "tests/support/import_patch.h"
#include "tests/support/process_usage.h"
#include "tests/support/viewer_process.h"
#include "tests/tools/trace/no_receiver_events.h"
#include "tools/trace/arrival_queue.h"

#include <tlhelp32.h>

#include <catch.hpp>

#include <algorithm>
#include <string>
#include <vector>

using namespace velt::test;

namespace
{
using SnapshotPatch = ImportPatch<"CreateToolhelp32Snapshot", decltype(::CreateToolhelp32Snapshot)>;

/// What a session looks up of other processes, by process id.
class Looks
{
public:
    int Opened(DWORD process) const
    {
        return static_cast<int>(std::count(m_opened.begin(), m_opened.end(), process));
    }

    /// Looks at the list of processes, and into processes.
    std::size_t Lists() const
    {
        return m_lists;
    }

    const std::vector<DWORD>& Into() const
    {
        return m_into;
    }

private:
    using OpenPatch = ImportPatch<"OpenProcess", decltype(::OpenProcess)>;

    std::vector<DWORD> m_opened;
    std::size_t m_lists = 0;
    std::vector<DWORD> m_into; // by the session's thread; looked at when it has ended its look
    OpenPatch m_open{"kernel32.dll", [this](DWORD access, BOOL inherit, DWORD process) {
                         m_opened.push_back(process);
                         return OpenPatch::Original(access, inherit, process);
                     }};
    SnapshotPatch m_snapshot{"kernel32.dll", [this](DWORD flags, DWORD process) {
                                 if ((flags & TH32CS_SNAPPROCESS) != 0)
                                 {
                                     ++m_lists;
                                 }
                                 else
                                 {
                                     m_into.push_back(process);
                                 }
                                 return SnapshotPatch::Original(flags, process);
                             }};
};

/// Sends a record to the session of this process, and has the session keep it.
void Send(velt::TraceSession& session, HWND sender)
{
    const HWND receiver = ::FindWindowW(velt::kTraceViewerClass, nullptr);
    REQUIRE(receiver);
    REQUIRE(SendRecord(receiver, "text", 4, "", sender));
    session.Drain(kWaitLimitMs);
}

std::string ProcessOf(const velt::TraceSession& session, std::size_t entry)
{
    return std::string(session.Process(session.Store().At(entry)));
}
} // namespace

TEST_CASE("TraceStore: what is cleared takes no memory", "[tools]")
{
    constexpr std::size_t kBytes = std::size_t{64} << 20;
    velt::TraceStore store;
    const std::string text(65'535, 'x');
    velt::TraceEntry entry;
    entry.text = text;
    const std::size_t before = CurrentUsage().privateBytes;
    while (store.Size() * text.size() < kBytes)
    {
        store.Append(entry);
    }
    REQUIRE(CurrentUsage().privateBytes >= before + kBytes);
    store.Clear();
    CHECK(CurrentUsage().privateBytes < before + kBytes / 8);
}

TEST_CASE("TraceSession: who has sent is known once the look at the processes is done", "[tools]")
{
    NoReceiverEvents events;
    velt::TraceSession session(events);
    CHECK(session.KnowsSender()); // nobody has sent
    const velt::UniqueKernelObject goOn(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const SnapshotPatch held("kernel32.dll", [&](DWORD flags, DWORD process) {
        ::WaitForSingleObject(goOn.Get(), kWaitLimitMs);
        return SnapshotPatch::Original(flags, process);
    });
    REQUIRE(SendRecord(::FindWindowW(velt::kTraceViewerClass, nullptr), "text"));
    CHECK_FALSE(session.KnowsSender());
    session.Drain(0); // does not wait for it
    CHECK_FALSE(session.KnowsSender());
    CHECK(session.Store().Size() == 1);
    ::SetEvent(goOn.Get());
    CHECK(Eventually([&] { return session.KnowsSender(); }));
}

TEST_CASE("TraceSession: a sender that says who it is is opened once, and nobody is looked for",
          "[tools]")
{
    NoReceiverEvents events;
    velt::TraceSession session(events);
    const Looks looks;
    const HWND own = ::CreateWindowExW(0, L"STATIC", L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                                       nullptr, nullptr);
    REQUIRE(own);
    for (int i = 0; i < 3; ++i)
    {
        Send(session, own);
    }
    ::DestroyWindow(own);
    const std::string number = std::to_string(::GetCurrentProcessId());
    REQUIRE(session.Store().Size() == 3);
    CHECK_THAT(ProcessOf(session, 2), Catch::EndsWith("_test.exe (" + number + ")"));
    CHECK(ProcessOf(session, 0) == ProcessOf(session, 2));
    CHECK(looks.Opened(::GetCurrentProcessId()) == 1);
    CHECK(looks.Lists() == 0);
    CHECK(looks.Into().empty());
}

TEST_CASE("TraceSession: for a sender that does not, each process is looked into once", "[tools]")
{
    NoReceiverEvents events;
    velt::TraceSession session(events);
    const Looks looks;
    Send(session, nullptr);
    CHECK(looks.Lists() == 1);
    std::vector<DWORD> into = looks.Into();
    CHECK_FALSE(into.empty());
    std::sort(into.begin(), into.end());
    CHECK(std::adjacent_find(into.begin(), into.end()) == into.end());
    // The list has what this one has loaded, and it is no sender.
    CHECK_FALSE(std::binary_search(into.begin(), into.end(), ::GetCurrentProcessId()));
}

TEST_CASE("TraceSession: what is cleared leaves no names behind", "[tools]")
{
    NoReceiverEvents events;
    velt::TraceSession session(events);
    velt::TraceEntry entry;
    entry.text = "text";
    session.Add(entry, "first.exe (4)");
    session.Add(entry, "second.exe (8)");
    REQUIRE(ProcessOf(session, 1) == "second.exe (8)");
    session.Clear();
    session.Add(entry, "third.exe (12)");
    CHECK(ProcessOf(session, 2) == "third.exe (12)");
    CHECK(session.Names().Name(1) == "?"); // which the second one had
}

TEST_CASE("TraceSession: what came while nobody took it is counted as lost", "[tools]")
{
    NoReceiverEvents events;
    velt::TraceSession session(events);
    const HWND receiver = ::FindWindowW(velt::kTraceViewerClass, nullptr);
    REQUIRE(receiver);
    const std::string longest(velt::ArrivalQueue::kMostKept, 'x');
    constexpr std::size_t kSent = 17'000; // more than 64 MB of them
    for (std::size_t i = 0; i < kSent; ++i)
    {
        SendBytes(receiver, longest);
    }
    session.Drain(0);
    CHECK(session.Lost() > 0);
    CHECK(session.Store().Size() + session.Lost() == kSent);
    session.Clear();
    CHECK(session.Lost() == 0);
}

TEST_CASE("ProcessNames: a process keeps its name until what it has sent is taken", "[tools]")
{
    velt::ProcessNames names;
    DWORD id = 0;
    std::string name;
    {
        ViewerProcess process(L"--console");
        process.AwaitReceiver();
        id = process.Id();
        name = names.NameOf(id);
        CHECK(name == "velt-trace.exe (" + std::to_string(id) + ")");
        names.MarkEnded();
        names.ForgetMarked();
        const Looks looks;
        CHECK(names.NameOf(id) == name);
        CHECK(looks.Opened(id) == 0);
    }
    CHECK(names.NameOf(id) == name); // it is held
    names.MarkEnded();
    CHECK(names.NameOf(id) == name);
    names.ForgetMarked();
    const Looks looks;
    names.NameOf(id);
    CHECK(looks.Opened(id) == 1);
}
