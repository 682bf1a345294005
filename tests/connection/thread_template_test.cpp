#include "connection/thread_template.h"

#include "foundation/find_function.h"
#include "foundation/system_exception.h"
#include "tests/connection/grace_watch.h"
#include "tests/connection/thread_library.h"
#include "tests/support/import_patch.h"
#include "tests/support/process_usage.h"
#include "tests/support/test_thread.h"
#include "tests/support/trace_recorder.h"
#include "tests/support/virtual_slot.h"

#include <windows.h>

#include <objbase.h>

#include <catch.hpp>

#include <atomic>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>

using namespace velt::test;

namespace
{
constexpr char kTerminating[] = "thread_template::stop WaitForSingleObject m_hWaitThreadEvent "
                                "returned 258: Terminating Thread!!!";

/// A worker that does what the test says, on its thread.
class Worker final : public ONLINE_THREADS::thread_template<Worker>
{
public:
    explicit Worker(std::function<void(Worker&)> body = nullptr) : m_body(std::move(body)) {}

    ~Worker() override
    {
        stop();
    }

    void Run() override
    {
        ++runs;
        if (m_body)
        {
            m_body(*this);
        }
    }

    /// Waits for the stop signal the way workers do.
    void AwaitStop()
    {
        while (!IsStopSignalled())
        {
            ::Sleep(1);
        }
    }

    DWORD ThreadId() const noexcept
    {
        return m_threadId;
    }

    using thread_template::IsStopSignalled;

    std::atomic<int> runs = 0;

private:
    std::function<void(Worker&)> m_body;
};

using ClosePatch = ImportPatch<"CloseHandle", decltype(::CloseHandle)>;
using SetEventPatch = ImportPatch<"SetEvent", decltype(::SetEvent)>;
using TerminatePatch = ImportPatch<"TerminateThread", decltype(::TerminateThread)>;
using UninitializePatch = ImportPatch<"CoUninitialize", decltype(::CoUninitialize)>;

/// A handle of the test's own on the worker's thread, which must not end before.
velt::UniqueKernelObject Duplicate(HANDLE thread)
{
    HANDLE copy = nullptr;
    REQUIRE(::DuplicateHandle(::GetCurrentProcess(), thread, ::GetCurrentProcess(), &copy, 0, FALSE,
                              DUPLICATE_SAME_ACCESS));
    return velt::UniqueKernelObject(copy);
}
} // namespace

TEST_CASE("thread_template: stop of one that was never started does nothing", "[connection]")
{
    const GraceWatch grace;
    Worker worker;
    worker.stop();
    worker.stop();
    worker.SignalStop();
    CHECK(grace.waits == 0);
    CHECK(worker.runs == 0);
}

TEST_CASE("thread_template: Start runs the worker on a thread of its own", "[connection]")
{
    TestEvent started;
    std::atomic<DWORD> thread = 0;
    std::atomic<DWORD> recorded = 0;
    Worker worker([&](Worker& self) {
        thread = ::GetCurrentThreadId();
        recorded = self.ThreadId();
        started.Set();
        self.AwaitStop();
    });
    CHECK(worker.ThreadId() == 0);
    const HANDLE handle = worker.Start(&worker);
    REQUIRE(handle != nullptr);
    started.Wait();
    CHECK(thread != ::GetCurrentThreadId());
    CHECK(thread == ::GetThreadId(handle));
    CHECK(recorded == thread);
    worker.stop();
    CHECK(worker.runs == 1);
}

TEST_CASE("thread_template: the worker's thread is a single-threaded apartment", "[connection]")
{
    TestEvent asked;
    std::atomic<HRESULT> other = E_PENDING;
    std::atomic<HRESULT> same = E_PENDING;
    Worker worker([&](Worker&) {
        other = ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        same = ::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        if (SUCCEEDED(same.load()))
        {
            ::CoUninitialize();
        }
        asked.Set();
    });
    worker.Start(&worker);
    asked.Wait();
    worker.stop();
    CHECK(other == RPC_E_CHANGED_MODE);
    CHECK(same == S_FALSE);
}

TEST_CASE("thread_template: stop waits until the worker has ended", "[connection]")
{
    TestEvent started;
    std::atomic<bool> ended = false;
    Worker worker([&](Worker& self) {
        started.Set();
        self.AwaitStop();
        ::Sleep(50); // still at work
        ended = true;
    });
    const velt::UniqueKernelObject thread = Duplicate(worker.Start(&worker));
    started.Wait();
    CHECK_FALSE(ended);
    const GraceWatch grace;
    worker.stop();
    CHECK(ended);
    CHECK(grace.inVain == 0);
    CHECK(::WaitForSingleObject(thread.Get(), kWaitLimitMs) == WAIT_OBJECT_0);
    DWORD exitCode = 77;
    CHECK(::GetExitCodeThread(thread.Get(), &exitCode));
    CHECK(exitCode == 0);
}

TEST_CASE("thread_template: the stop signal stays until the worker has ended", "[connection]")
{
    TestEvent started;
    std::atomic<int> signalled = 0;
    Worker worker([&](Worker& self) {
        started.Set();
        self.AwaitStop();
        signalled = self.IsStopSignalled() + self.IsStopSignalled() + self.IsStopSignalled();
    });
    worker.Start(&worker);
    started.Wait();
    worker.SignalStop();
    worker.SignalStop();
    worker.stop();
    CHECK(signalled == 3);
}

TEST_CASE("thread_template: without a stop event the worker counts as stopped", "[connection]")
{
    Worker worker;
    CHECK(worker.IsStopSignalled());
}

TEST_CASE("thread_template: whatever Run throws, stop returns at once", "[connection]")
{
    const auto [what, body] = GENERATE(table<std::string, std::function<void(Worker&)>>(
        {{"a failure", [](Worker&) { throw std::runtime_error("of the worker"); }},
         {"a system failure", [](Worker&) { throw SystemException::Win32(ERROR_NOT_READY); }},
         {"a COM error", [](Worker&) { throw _com_error(E_ABORT); }},
         {"a number", [](Worker&) { throw 5; }}}));
    CAPTURE(what);
    TestEvent go; // the worker closes its handle at its end
    Worker worker([&, fail = body](Worker& self) {
        go.Wait();
        fail(self);
    });
    const velt::UniqueKernelObject thread = Duplicate(worker.Start(&worker));
    go.Set();
    REQUIRE(::WaitForSingleObject(thread.Get(), kWaitLimitMs) == WAIT_OBJECT_0);
    CHECK(worker.IsStopSignalled()); // OnThreadEnd has closed the event
    const GraceWatch grace;
    worker.stop();
    CHECK(grace.inVain == 0);
    CHECK(worker.runs == 1);
}

TEST_CASE("thread_template: a second Start makes no second thread", "[connection]")
{
    TestEvent started;
    Worker worker([&](Worker& self) {
        started.Set();
        self.AwaitStop();
    });
    const HANDLE first = worker.Start(&worker);
    started.Wait();
    CHECK(worker.Start(&worker) == first);
    const GraceWatch grace;
    worker.stop();
    CHECK(grace.inVain == 0);
    CHECK(worker.runs == 1);
}

TEST_CASE("thread_template: it starts again after a stop", "[connection]")
{
    Worker worker([](Worker& self) { self.AwaitStop(); });
    for (int round = 1; round <= 3; ++round)
    {
        CHECK(worker.Start(&worker) != nullptr);
        worker.stop();
        CHECK(worker.runs == round);
    }
}

TEST_CASE("thread_template: a worker that has ended by itself is stopped at once", "[connection]")
{
    TestEvent go;
    Worker worker([&](Worker&) { go.Wait(); });
    const velt::UniqueKernelObject thread = Duplicate(worker.Start(&worker));
    go.Set();
    REQUIRE(::WaitForSingleObject(thread.Get(), kWaitLimitMs) == WAIT_OBJECT_0);
    worker.SignalStop(); // nothing to signal
    const GraceWatch grace;
    worker.stop();
    CHECK(grace.inVain == 0);
}

TEST_CASE("thread_template: a worker that ignores the signal is ended by force after 5 s",
          "[connection]")
{
    TraceRecorder trace;
    TestEvent started;
    const velt::UniqueKernelObject never(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
    GraceWatch grace;
    std::atomic<bool> isIdle = true;
    std::atomic<bool> ended = false;
    Worker worker([&](Worker& self) {
        started.Set();
        if (isIdle)
        {
            ::WaitForSingleObject(never.Get(), INFINITE);
        }
        self.AwaitStop();
        ended = true;
    });
    const velt::UniqueKernelObject thread = Duplicate(worker.Start(&worker));
    started.Wait();
    grace.isOver = true;
    worker.stop();
    CHECK(grace.waits == 1);
    CHECK(grace.forced == 1);
    CHECK(::WaitForSingleObject(thread.Get(), kWaitLimitMs) == WAIT_OBJECT_0);
    DWORD exitCode = 77;
    CHECK(::GetExitCodeThread(thread.Get(), &exitCode));
    CHECK(exitCode == 0);
    CHECK_FALSE(ended);
    CHECK(trace.Count(kTerminating) == 1);
    worker.stop(); // it is idle again
    CHECK(grace.waits == 1);
    CHECK(trace.Count(kTerminating) == 1);
    for (const auto& message : trace.Messages())
    {
        CHECK(message.level == 1);
    }

    // And starts again.
    grace.isOver = false;
    isIdle = false;
    const velt::UniqueKernelObject second = Duplicate(worker.Start(&worker));
    worker.stop();
    CHECK(grace.waits == 2);
    CHECK(grace.forced == 1);
    CHECK(::WaitForSingleObject(second.Get(), kWaitLimitMs) == WAIT_OBJECT_0);
    CHECK(ended);
    CHECK(worker.runs == 2);
    CHECK(trace.Count(kTerminating) == 1);
}

TEST_CASE("thread_template: a worker that ends as its grace does is left alone", "[connection]")
{
    // Its last act comes when stop has given it up: the event for it is still there.
    TestEvent isLast;
    TestEvent goOn;
    TestEvent isCopied; // the worker closes its handle at its end
    std::atomic<int> failures = 0;
    std::atomic<DWORD> thread = 0;
    const SetEventPatch sets("kernel32.dll", [&](HANDLE event) -> WINBOOL {
        if (::GetCurrentThreadId() == thread)
        {
            thread = 0;
            isLast.Set();
            goOn.Wait();
            const WINBOOL result = SetEventPatch::Original(event);
            failures += result ? 0 : 1;
            return result;
        }
        return SetEventPatch::Original(event);
    });
    const TerminatePatch ends("kernel32.dll", [](HANDLE, DWORD) -> WINBOOL { return TRUE; });
    GraceWatch grace;
    velt::UniqueKernelObject copy;
    {
        Worker worker([&](Worker&) {
            isCopied.Wait();
            thread = ::GetCurrentThreadId();
        });
        copy = Duplicate(worker.Start(&worker));
        isCopied.Set();
        isLast.Wait();
        grace.isOver = true;
        worker.stop();
        CHECK(grace.waits == 1);
        CHECK(ends.Calls() == 0);
    }
    goOn.Set();
    REQUIRE(::WaitForSingleObject(copy.Get(), kWaitLimitMs) == WAIT_OBJECT_0);
    CHECK(failures == 0);
}

TEST_CASE("thread_template: stop on the worker only asks", "[connection]")
{
    TestEvent asked;
    TestEvent isCopied; // the worker closes its handle at its end
    GraceWatch grace;
    const TerminatePatch ends("kernel32.dll", [](HANDLE, DWORD) -> WINBOOL { return TRUE; });
    std::atomic<bool> isSignalled = false;
    Worker worker([&](Worker& self) {
        isCopied.Wait();
        self.stop();
        isSignalled = self.IsStopSignalled();
        asked.Set();
    });
    const velt::UniqueKernelObject thread = Duplicate(worker.Start(&worker));
    isCopied.Set();
    asked.Wait();
    CHECK(isSignalled);
    CHECK(grace.waits == 0);
    REQUIRE(::WaitForSingleObject(thread.Get(), kWaitLimitMs) == WAIT_OBJECT_0);
    worker.stop(); // the owner's own is still due
    CHECK(grace.waits == 1);
    CHECK(ends.Calls() == 0);
}

TEST_CASE("thread_template: a worker may go on its own thread", "[connection]")
{
    const bool throws = GENERATE(false, true);
    GraceWatch grace;
    const TerminatePatch ends("kernel32.dll", [](HANDLE, DWORD) -> WINBOOL { return TRUE; });
    const auto live = [throws] {
        TestEvent handedOver;
        std::unique_ptr<Worker> last;
        last = std::make_unique<Worker>([&](Worker&) {
            handedOver.Wait();
            const auto own = std::move(last); // the body goes with it
            if (throws)
            {
                throw std::runtime_error("of the worker");
            }
        });
        const velt::UniqueKernelObject thread = Duplicate(last->Start(last.get()));
        handedOver.Set();
        REQUIRE(::WaitForSingleObject(thread.Get(), kWaitLimitMs) == WAIT_OBJECT_0);
        DWORD exitCode = 77;
        CHECK(::GetExitCodeThread(thread.Get(), &exitCode));
        CHECK(exitCode == 0);
        CHECK_FALSE(last);
    };
    live(); // what the first of its kind leaves for the next
    const std::size_t before = CurrentUsage().handles;
    for (int round = 0; round < 10; ++round)
    {
        live();
    }
    CHECK(CurrentUsage().handles <= before);
    CHECK(grace.waits == 0);
    CHECK(ends.Calls() == 0);
}

TEST_CASE("thread_template: a thread that has ended is nobody's worker", "[connection]")
{
    // The system may give its number to the thread that asks.
    Worker worker([](Worker& self) { self.AwaitStop(); });
    worker.Start(&worker);
    worker.stop();
    CHECK_FALSE(worker.IsWorker());
    CHECK_FALSE(OnOtherThread([&] { return worker.IsWorker(); }));
}

TEST_CASE("thread_template: COM is given back on the worker, after its last act", "[connection]")
{
    std::atomic<DWORD> thread = 0;
    std::atomic<int> given = 0;
    std::atomic<int> sets = 0;
    std::atomic<int> setsBefore = -1;
    const SetEventPatch setPatch("kernel32.dll", [&](HANDLE event) {
        sets += ::GetCurrentThreadId() == thread ? 1 : 0;
        return SetEventPatch::Original(event);
    });
    const UninitializePatch patch("ole32.dll", [&] {
        if (::GetCurrentThreadId() == thread)
        {
            ++given;
            setsBefore = sets.load();
        }
        UninitializePatch::Original();
    });
    Worker worker([&](Worker& self) {
        thread = ::GetCurrentThreadId();
        self.AwaitStop();
        sets = 0; // the question sets the stop event
    });
    const velt::UniqueKernelObject copy = Duplicate(worker.Start(&worker));
    worker.stop();
    REQUIRE(::WaitForSingleObject(copy.Get(), kWaitLimitMs) == WAIT_OBJECT_0);
    CHECK(given == 1);
    CHECK(setsBefore == 1);
}

TEST_CASE("thread_template: the thread's handle is closed once, by the worker at its end",
          "[connection]")
{
    std::atomic<HANDLE> handle = nullptr;
    std::atomic<int> closed = 0;
    std::atomic<DWORD> closer = 0;
    const ClosePatch patch("kernel32.dll", [&](HANDLE object) {
        if (object == handle)
        {
            ++closed;
            closer = ::GetCurrentThreadId();
        }
        return ClosePatch::Original(object);
    });
    std::atomic<DWORD> thread = 0;
    {
        Worker worker([&](Worker& self) {
            thread = ::GetCurrentThreadId();
            self.AwaitStop();
        });
        handle = worker.Start(&worker);
        worker.stop();
        CHECK(closed == 1);
        handle = nullptr; // its number is free
    }
    CHECK(closer == thread);
}

TEST_CASE("base_thread: it closes its thread's handle at its end", "[connection]")
{
    class Bare final : public ONLINE_THREADS::base_thread
    {
    public:
        HANDLE Begin()
        {
            m_hThread = BeginThread();
            return m_hThread;
        }

        void Run() override {}

        void OnThreadEnd() noexcept override
        {
            ended.Set();
        }

        TestEvent ended;
    };
    velt::UniqueKernelObject copy;
    int closed = 0;
    {
        auto thread = std::make_unique<Bare>();
        const HANDLE handle = thread->Begin();
        REQUIRE(handle != nullptr);
        copy = Duplicate(handle);
        REQUIRE(::WaitForSingleObject(copy.Get(), kWaitLimitMs) == WAIT_OBJECT_0);
        CHECK(thread->ended.IsSetWithin(0));
        const ClosePatch patch("kernel32.dll", [&](HANDLE object) {
            closed += object == handle ? 1 : 0;
            return ClosePatch::Original(object);
        });
        thread.reset();
    }
    CHECK(closed == 1);
}

TEST_CASE("thread_template: a worker stopped in time leaves no trace line", "[connection]")
{
    TraceRecorder trace;
    for (int round = 0; round < 50; ++round)
    {
        Worker worker([](Worker& self) { self.AwaitStop(); });
        worker.Start(&worker);
    }
    CHECK(trace.Messages().empty());
}

TEST_CASE("thread_template: on behalf of a thread that others ended, stop does its last act",
          "[connection]")
{
    TraceRecorder trace;
    TestEvent started;
    const velt::UniqueKernelObject never(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
    GraceWatch grace;
    Worker worker([&](Worker&) {
        started.Set();
        ::WaitForSingleObject(never.Get(), INFINITE);
    });
    const HANDLE handle = worker.Start(&worker);
    const velt::UniqueKernelObject thread = Duplicate(handle);
    started.Wait();
    ::TerminateThread(thread.Get(), 5);
    REQUIRE(::WaitForSingleObject(thread.Get(), kWaitLimitMs) == WAIT_OBJECT_0);
    grace.isOver = true;
    worker.stop();
    grace.isOver = false;
    CHECK(grace.waits == 1);
    CHECK(trace.Count(kTerminating) == 0);
    CHECK(::WaitForSingleObject(handle, 0) == WAIT_FAILED); // its handle was closed
    CHECK(worker.Start(&worker) != nullptr);
    ::SetEvent(never.Get());
}

TEST_CASE("thread_template: handles are back to where they were", "[connection]")
{
    const auto live = [](bool isStopped) {
        TestEvent started;
        auto worker = std::make_unique<Worker>([&](Worker& self) {
            started.Set();
            self.AwaitStop();
        });
        const velt::UniqueKernelObject thread = Duplicate(worker->Start(worker.get()));
        started.Wait();
        if (isStopped)
        {
            worker->stop();
        }
        worker.reset();
        ::WaitForSingleObject(thread.Get(), kWaitLimitMs);
    };
    live(true); // what the first of its kind leaves for the next
    const std::size_t before = CurrentUsage().handles;
    for (int round = 0; round < 30; ++round)
    {
        live(round % 2 == 0);
    }
    CHECK(CurrentUsage().handles <= before);
}

TEST_CASE("base_thread: the thread holds its library and gives it up at its very end",
          "[connection]")
{
    constexpr wchar_t kLibrary[] = L"connection_thread_library.dll";
    const velt::UniqueKernelObject running(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
    const velt::UniqueKernelObject release(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
    for (int round = 0; round < 5; ++round)
    {
        const HMODULE library = ::LoadLibraryW(kLibrary);
        REQUIRE(library != nullptr);
        const auto start =
            velt::FindFunction<decltype(&StartLibraryWorker)>(library, "StartLibraryWorker");
        REQUIRE(start != nullptr);
        ::ResetEvent(running.Get());
        ::ResetEvent(release.Get());
        HANDLE handle = nullptr;
        start(running.Get(), release.Get(), &handle);
        const velt::UniqueKernelObject thread(handle);
        REQUIRE(::WaitForSingleObject(running.Get(), kWaitLimitMs) == WAIT_OBJECT_0);

        ::FreeLibrary(library); // the host has done with it; the thread has not
        CHECK(::GetModuleHandleW(kLibrary) == library);
        ::SetEvent(release.Get());
        CHECK(::WaitForSingleObject(thread.Get(), kWaitLimitMs) == WAIT_OBJECT_0);
        CHECK(::GetModuleHandleW(kLibrary) == nullptr);
        DWORD exitCode = 77;
        CHECK(::GetExitCodeThread(thread.Get(), &exitCode));
        CHECK(exitCode == 0);
    }
}

TEST_CASE("base_thread: the operations stand in the slots that they always had", "[connection]")
{
    using ONLINE_THREADS::base_thread;
    using Template = ONLINE_THREADS::thread_template<Worker>;
    CHECK(std::has_virtual_destructor_v<base_thread>); // which takes two
    CHECK(VirtualSlot(&base_thread::Run) == 2);
    CHECK(VirtualSlot(&base_thread::OnThreadEnd) == 3);
    CHECK(VirtualSlot(&Template::Run) == 2);
    CHECK(VirtualSlot(&Template::OnThreadEnd) == 3);
    CHECK(VirtualSlot(&Template::Start) == 4);
    CHECK(VirtualSlot(&Template::SignalStop) == 5);
}

TEST_CASE("thread_template: TryStop says whether the worker has ended", "[connection]")
{
    Worker idle;
    CHECK(idle.TryStop(0)); // was never started
    TestEvent entered;
    TestEvent goOn;
    std::atomic<bool> ownAnswer = true;
    Worker worker([&](Worker& self) {
        ownAnswer = self.TryStop(INFINITE); // at once, on the worker itself
        entered.Set();
        goOn.Wait();
    });
    CHECK_FALSE(worker.IsWorker());
    worker.Start(&worker);
    entered.Wait();
    CHECK_FALSE(ownAnswer);
    CHECK_FALSE(worker.TryStop(1));
    goOn.Set();
    CHECK(worker.TryStop(kWaitLimitMs));
    CHECK(worker.TryStop(0));
    const GraceWatch grace;
    worker.stop(); // still finds the end
    CHECK(grace.inVain == 0);
}
