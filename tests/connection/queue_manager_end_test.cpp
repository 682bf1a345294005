// How a queue ends: on its own worker, while it is held back, and what its destructor does first.

#include "connection/queue_manager.h"

#include "tests/connection/grace_watch.h"
#include "tests/connection/periods.h"
#include "tests/support/eventually.h"
#include "tests/support/import_patch.h"
#include "tests/support/logging_notifier.h"
#include "tests/support/logging_request.h"
#include "tests/support/process_usage.h"
#include "tests/support/test_thread.h"
#include "tests/support/trace_recorder.h"

#include <windows.h>

#include <catch.hpp>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

using namespace velt::test;
using CONNECTION_MANAGER::queue_manager;
using Calls = CallLog::Calls;

namespace
{
using WaitPatch = ImportPatch<"WaitForSingleObject", decltype(::WaitForSingleObject)>;
using TerminatePatch = ImportPatch<"TerminateThread", decltype(::TerminateThread)>;
using TimerPatch = ImportPatch<"CreateWaitableTimerW", decltype(::CreateWaitableTimerW)>;
using CancelPatch = ImportPatch<"CancelWaitableTimer", decltype(::CancelWaitableTimer)>;
using EventPatch = ImportPatch<"CreateEventW", decltype(::CreateEventW)>;
using SetEventPatch = ImportPatch<"SetEvent", decltype(::SetEvent)>;

constexpr DWORD kGraceMs = GraceWatch::kGraceMs;

/// A queue whose memory faults at each use after its end.
class GuardedQueue final : public queue_manager
{
public:
    static void* operator new(std::size_t size)
    {
        void* const memory =
            ::VirtualAlloc(nullptr, size, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
        if (!memory)
        {
            throw std::bad_alloc();
        }
        return memory;
    }

    static void operator delete(void* memory) noexcept
    {
        ::VirtualFree(memory, 0, MEM_DECOMMIT); // the addresses stay taken
    }
};

/// A handle on the calling thread for others.
velt::UniqueKernelObject OpenThisThread()
{
    return velt::UniqueKernelObject(
        ::OpenThread(SYNCHRONIZE | THREAD_QUERY_INFORMATION, FALSE, ::GetCurrentThreadId()));
}

/// Who waits for a worker's end, and whose patience ends.
struct EndWatch
{
    GraceWatch grace;
    TerminatePatch ends{"kernel32.dll", [](HANDLE thread, DWORD exitCode) {
                            return TerminatePatch::Original(thread, exitCode);
                        }};
};

/// Where the last reference of a queue is given up.
enum class Place
{
    step,
    completion,
    removal, // a notifier hears that the queue is empty
    tick,    // a notifier hears it again at the end of the pass
    addition,
    requestsEnd, // which owns the queue
};

/// A queue whose last reference is given up by what it calls.
struct EndFromInside
{
    EndFromInside(Place place, bool isHeld) : m_place(place)
    {
        m_queue->SetHoldMode(isHeld);
        m_queue->AddNotifier(&m_notifier);
        m_notifier.onState = [this](bool empty) { OnState(empty); };
        auto request = std::make_shared<LoggingRequest>(log, "a");
        m_request = request.get();
        request->onStep = [this, own = place == Place::requestsEnd ? m_last : nullptr] {
            if (m_place == Place::step)
            {
                GiveUp();
            }
            else if (m_place == Place::addition)
            {
                m_queue->add(std::make_shared<LoggingRequest>(log, "b"));
            }
            else if (m_place == Place::requestsEnd)
            {
                m_handedOver.Wait();
                thread = OpenThisThread();
            }
        };
        request->onComplete = [this](DWORD* value) {
            if (m_place == Place::completion)
            {
                GiveUp();
                *value += 1; // lent, and still there
            }
        };
        m_queue->add(request);
        if (place == Place::step || place == Place::completion)
        {
            m_queue->add(std::make_shared<LoggingRequest>(log, "b"));
        }
    }

    EndFromInside(const EndFromInside&) = delete;
    EndFromInside& operator=(const EndFromInside&) = delete;

    ~EndFromInside() = default;

    queue_manager& Queue()
    {
        return *m_queue;
    }

    /// From now on somebody else holds the last reference.
    void HandOver()
    {
        if (m_place == Place::requestsEnd)
        {
            m_last.reset();
        }
        m_handedOver.Set();
    }

    CallLog log;
    velt::UniqueKernelObject thread; // on which it ended
    std::string verb;
    std::vector<std::string> hosts;

private:
    void OnState(bool empty)
    {
        m_empties += empty ? 1 : 0;
        if ((m_place == Place::removal && m_empties == 1) ||
            (m_place == Place::tick && m_empties == 2) ||
            (m_place == Place::addition && log.Count("step a") > 0))
        {
            GiveUp();
        }
    }

    void GiveUp()
    {
        if (!m_last)
        {
            return;
        }
        m_handedOver.Wait();
        thread = OpenThisThread();
        m_last.reset();
        log.Add("given up");
        if (m_place == Place::step || m_place == Place::completion)
        {
            verb = m_request->connection->Data().verb; // lent, and still there
        }
    }

    const Place m_place;
    LoggingNotifier m_notifier{log, "queue"};
    GuardedQueue* const m_queue = new GuardedQueue; // owned by the next one
    std::shared_ptr<queue_manager> m_last{m_queue};
    LoggingRequest* m_request = nullptr;
    TestEvent m_handedOver;
    int m_empties = 0;
};

/// What is over when the queue has ended from inside.
void CheckEnded(EndFromInside& life, Place place)
{
    CHECK(life.log.Count("step a") == 1);
    CHECK(life.log.Count("step b") == 0);
    CHECK(life.log.Count("complete a") == 1);
    CHECK(life.log.Count("gone a") == 1);
    if (place == Place::step || place == Place::completion)
    {
        CHECK(life.log.Count("gone b") == 1);
        CHECK(life.verb == "GET");
    }
}

void EndOnWorker(Place place, bool isHeld)
{
    EndFromInside life(place, isHeld);
    REQUIRE(life.Queue().begin(1) == S_OK);
    life.HandOver();
    life.log.WaitFor("gone a");
    if (place != Place::requestsEnd)
    {
        life.log.WaitFor("given up");
    }
    REQUIRE(::WaitForSingleObject(life.thread.Get(), kWaitLimitMs) == WAIT_OBJECT_0);
    DWORD exitCode = 77;
    CHECK(::GetExitCodeThread(life.thread.Get(), &exitCode));
    CHECK(exitCode == 0);
    CheckEnded(life, place);
}

constexpr Place kPlaces[] = {Place::step, Place::completion, Place::removal,
                             Place::tick, Place::addition,   Place::requestsEnd};
} // namespace

TEST_CASE("queue_manager: its last reference may be given up on its own worker", "[connection]")
{
    const Place place = GENERATE(from_range(std::begin(kPlaces), std::end(kPlaces)));
    const bool isHeld = GENERATE(false, true);
    CAPTURE(static_cast<int>(place), isHeld);
    constexpr int kLives = 5;
    constexpr std::size_t kBytesOfState = 256; // it has more
    EndWatch watch;
    EndOnWorker(place, isHeld); // what the first of its kind leaves for the next
    const ProcessUsage before = CurrentUsage();
    for (int life = 0; life < kLives; ++life)
    {
        EndOnWorker(place, isHeld);
    }
    const ProcessUsage after = CurrentUsage();
    CHECK(after.handles <= before.handles);
    CHECK(after.heapBytes < before.heapBytes + kLives * kBytesOfState + UncertainHeapBytes());
    CHECK(watch.grace.waits == 0);
    CHECK(watch.ends.Calls() == 0);
}

TEST_CASE("queue_manager: its last reference may be given up inside a tick of the caller's own",
          "[connection]")
{
    const Place place = GENERATE(from_range(std::begin(kPlaces), std::end(kPlaces)));
    const bool isHeld = GENERATE(false, true);
    CAPTURE(static_cast<int>(place), isHeld);
    EndWatch watch;
    EndFromInside life(place, isHeld);
    queue_manager& queue = life.Queue();
    REQUIRE(queue.begin(kNeverMs) == S_OK);
    life.HandOver();
    queue.OnTimer(); // arms
    queue.OnTimer();
    CHECK(::GetThreadId(life.thread.Get()) == ::GetCurrentThreadId());
    CheckEnded(life, place);
    CHECK(watch.ends.Calls() == 0);
}

TEST_CASE("queue_manager: its last reference may be given up by who hears of an addition",
          "[connection]")
{
    CallLog log;
    LoggingNotifier notifiers[] = {{log, "first"}, {log, "second"}};
    auto* const manager = new GuardedQueue;
    std::shared_ptr<queue_manager> last(manager);
    notifiers[0].onState = [&](bool) { last.reset(); };
    manager->AddNotifier(&notifiers[0]);
    manager->AddNotifier(&notifiers[1]);
    SECTION("by add")
    {
        manager->add(std::make_shared<LoggingRequest>(log, "a"));
        CHECK(log.All() == Calls{"first filled", "gone a"});
    }
    SECTION("by NotifyState")
    {
        manager->NotifyState(true);
        CHECK(log.All() == Calls{"first empty"});
    }
}

TEST_CASE("queue_manager: a worker that waits for a hold ends at once", "[connection]")
{
    const DWORD timeoutMs = GENERATE(DWORD{600'000}, INFINITE);
    CAPTURE(timeoutMs);
    TraceRecorder trace;
    EndWatch watch;
    CallLog log;
    auto manager = std::make_unique<queue_manager>();
    manager->SetHoldMode(true);
    manager->Hold(true, timeoutMs);
    manager->add(std::make_shared<LoggingRequest>(log, "a"));
    REQUIRE(manager->begin(1) == S_OK);
    // The worker's first tick arms, the second one waits. One of this thread's own could do so,
    // too.
    REQUIRE(Eventually([&] { return trace.Count("queue_manager::Execute - enter") >= 2; }));
    manager.reset();
    CHECK(watch.grace.waits == 1);
    CHECK(watch.ends.Calls() == 0);
    CHECK(log.All() == Calls{"gone a"});
}

TEST_CASE("queue_manager: a worker that waits for the mutex ends with the queue", "[connection]")
{
    // Whoever gives the last reference up has the mutex himself, and keeps it meanwhile.
    const bool inStep = GENERATE(true, false);
    CAPTURE(inStep);
    TraceRecorder trace;
    EndWatch watch;
    CallLog log;
    LoggingNotifier notifier(log, "queue");
    HANDLE timer = nullptr; // of the worker
    queue_manager* manager = nullptr;
    {
        const TimerPatch timers("kernel32.dll", [&](auto... arguments) {
            timer = TimerPatch::Original(arguments...);
            return timer;
        });
        manager = new GuardedQueue;
    }
    std::shared_ptr<queue_manager> last(manager);
    const DWORD own = ::GetCurrentThreadId();
    const auto hasWorkerPassed = [&] {
        const auto messages = trace.Messages();
        return std::any_of(messages.begin(), messages.end(), [&](const auto& message) {
            return message.thread != own && message.text == "queue_manager::Execute - enter";
        });
    };
    const auto giveUp = [&] {
        if (last)
        {
            const bool waits = Eventually([&] {
                const LARGE_INTEGER now{}; // until it stays: the worker sets its own time first
                return ::SetWaitableTimer(timer, &now, 0, nullptr, nullptr, FALSE) &&
                       hasWorkerPassed();
            });
            log.Add(waits ? "waits" : "no pass");
            last.reset();
        }
    };
    manager->SetHoldMode(inStep);
    for (const char* const name : {"a", "b", "c"})
    {
        auto request = std::make_shared<LoggingRequest>(log, name, std::vector<DWORD>{2});
        if (inStep)
        {
            request->onStep = giveUp;
        }
        manager->add(request);
    }
    REQUIRE(manager->begin(kNeverMs) == S_OK);
    manager->OnTimer(); // arms
    if (inStep)
    {
        manager->OnTimer();
    }
    else
    {
        notifier.onState = [&](bool) { giveUp(); };
        manager->AddNotifier(&notifier);
        manager->add(std::make_shared<LoggingRequest>(log, "d"));
    }
    CHECK_FALSE(last);
    CHECK(log.Count("waits") == 1);
    CHECK(watch.grace.waits == 1);
    CHECK(watch.ends.Calls() == 0);
    CHECK(log.Count("gone c") == 1);
}

TEST_CASE("queue_manager: its destructor does not wait for the mutex without limit", "[connection]")
{
    // Two who keep the mutex while foreign code runs.
    const bool inStep = GENERATE(true, false);
    CAPTURE(inStep);
    std::atomic<bool> isPatient = true;
    int terminated = 0;
    const WaitPatch waits("kernel32.dll", [&](HANDLE object, DWORD limitMs) -> DWORD {
        return limitMs == kGraceMs && !isPatient ? WAIT_TIMEOUT // as if it were over
                                                 : WaitPatch::Original(object, limitMs);
    });
    const TerminatePatch ends("kernel32.dll", [&](HANDLE thread, DWORD exitCode) {
        ++terminated;
        return TerminatePatch::Original(thread, exitCode);
    });
    CallLog log;
    TestEvent inside;
    TestEvent goOn;
    velt::UniqueKernelObject worker;
    const auto stay = [&] {
        worker = OpenThisThread();
        inside.Set();
        goOn.Wait();
    };
    auto manager = std::make_unique<queue_manager>();
    LoggingNotifier notifier(log, "queue");
    const auto request = std::make_shared<LoggingRequest>(log, "a");
    manager->SetHoldMode(inStep);
    manager->add(request);
    manager->add(std::make_shared<LoggingRequest>(log, "b"));
    if (inStep)
    {
        request->onStep = stay;
    }
    else
    {
        notifier.onState = [&](bool) { stay(); };
        request->onStep = [&, queue = manager.get()] {
            queue->AddNotifier(&notifier);
            queue->add(std::make_shared<LoggingRequest>(log, "c"));
        };
    }
    REQUIRE(manager->begin(1) == S_OK);
    inside.Wait();
    isPatient = false;
    TestThread destroyer([&] { manager.reset(); });
    bool hasEnded = true;
    try
    {
        destroyer.Join();
    }
    catch (const std::runtime_error&)
    {
        hasEnded = false;
    }
    goOn.Set(); // for who waits after all
    CHECK(hasEnded);
    CHECK(terminated == 1);
    CHECK(log.Count("gone b") == 1);
    REQUIRE(::WaitForSingleObject(worker.Get(), kWaitLimitMs) == WAIT_OBJECT_0);
}

TEST_CASE(
    "queue_manager: its destructor stops, is not running any more and cancels its timer first",
    "[connection]")
{
    CallLog log;
    HANDLE timer = nullptr;
    HANDLE stopEvent = nullptr;
    queue_manager* ending = nullptr;
    const SetEventPatch sets("kernel32.dll", [&](HANDLE event) {
        if (ending && event == stopEvent)
        {
            log.Add("stop");
        }
        return SetEventPatch::Original(event);
    });
    const CancelPatch cancels("kernel32.dll", [&](HANDLE object) {
        log.Add(object == timer ? "timer cancelled" : "another timer");
        log.Add(ending->IsRunning() ? "running" : "not running");
        return CancelPatch::Original(object);
    });
    const WaitPatch waits("kernel32.dll", [&](HANDLE object, DWORD limitMs) {
        if (limitMs == kGraceMs)
        {
            log.Add("wait");
        }
        return WaitPatch::Original(object, limitMs);
    });
    std::unique_ptr<queue_manager> manager;
    {
        const TimerPatch timers("kernel32.dll", [&](auto... arguments) {
            timer = TimerPatch::Original(arguments...);
            return timer;
        });
        manager = std::make_unique<queue_manager>();
    }
    manager->add(std::make_shared<LoggingRequest>(log, "a"));
    {
        LONG calls = 0;
        const EventPatch events("kernel32.dll", [&](auto... arguments) {
            const HANDLE event = EventPatch::Original(arguments...);
            stopEvent = ++calls == 1 ? event : stopEvent;
            return event;
        });
        REQUIRE(manager->begin(kNeverMs) == S_OK);
    }
    ending = manager.get();
    manager.reset();
    Calls calls = log.All();
    // The worker's question sets the event again, and stop asks once more.
    calls.erase(std::unique(calls.begin(), calls.end()), calls.end());
    const auto cancelled = std::find(calls.begin(), calls.end(), "timer cancelled");
    REQUIRE(cancelled != calls.end());
    CHECK(Calls(calls.begin(), cancelled) == Calls{"stop"});
    std::erase(calls, "stop");
    CHECK(calls == Calls{"timer cancelled", "not running", "gone a", "wait"});
}
