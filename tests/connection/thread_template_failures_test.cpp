#include "connection/queue_manager.h"
#include "connection/thread_template.h"

#include "foundation/system_exception.h"
#include "tests/connection/grace_watch.h"
#include "tests/connection/periods.h"
#include "tests/support/import_patch.h"
#include "tests/support/logging_request.h"
#include "tests/support/process_usage.h"
#include "tests/support/test_thread.h"

#include <windows.h>

#include <comdef.h>

#include <catch.hpp>

#include <atomic>
#include <memory>
#include <optional>

using namespace velt::test;
using CONNECTION_MANAGER::queue_manager;

namespace
{
using MutexPatch = ImportPatch<"CreateMutexW", decltype(::CreateMutexW)>;
using EventPatch = ImportPatch<"CreateEventW", decltype(::CreateEventW)>;
using TimerPatch = ImportPatch<"CreateWaitableTimerW", decltype(::CreateWaitableTimerW)>;
using SetTimerPatch = ImportPatch<"SetWaitableTimer", decltype(::SetWaitableTimer)>;
using ModulePatch = ImportPatch<"GetModuleHandleExW", decltype(::GetModuleHandleExW)>;
using TerminatePatch = ImportPatch<"TerminateThread", decltype(::TerminateThread)>;

/// Has the program's threads fail to start, until the end of the scope.
class NoThreads
{
public:
    NoThreads()
        : m_slot(ImportSlot("msvcrt.dll", "_beginthreadex")),
          m_original(ExchangeSlot(m_slot, reinterpret_cast<void*>(&NoThreads::Refuse)))
    {
    }

    NoThreads(const NoThreads&) = delete;
    NoThreads& operator=(const NoThreads&) = delete;

    ~NoThreads()
    {
        ExchangeSlot(m_slot, m_original);
    }

private:
    static std::uintptr_t __cdecl Refuse(void*, unsigned, unsigned(__stdcall*)(void*), void*,
                                         unsigned, unsigned*)
    {
        return 0;
    }

    void** m_slot;
    void* m_original;
};

class Worker final : public ONLINE_THREADS::thread_template<Worker>
{
public:
    ~Worker() override
    {
        stop();
    }

    void Run() override
    {
        ++runs;
        while (!isDone && !IsStopSignalled())
        {
            ::Sleep(1);
        }
        ended.Set();
    }

    std::atomic<int> runs = 0;
    std::atomic<bool> isDone = false;
    TestEvent ended;
};

/// The code of the _com_error that Start throws.
std::optional<HRESULT> CodeOfStart(Worker& worker)
{
    try
    {
        worker.Start(&worker);
    }
    catch (const _com_error& e)
    {
        return e.Error();
    }
    return std::nullopt;
}
} // namespace

TEST_CASE("thread_template: without a mutex the constructor throws the system's error",
          "[connection]")
{
    const MutexPatch patch("kernel32.dll", [](auto...) -> HANDLE {
        ::SetLastError(ERROR_NO_SYSTEM_RESOURCES);
        return nullptr;
    });
    try
    {
        const Worker worker;
        FAIL("nothing was thrown");
    }
    catch (const SystemException::HRESULT& e)
    {
        CHECK(e.GetCode() == HRESULT_FROM_WIN32(ERROR_NO_SYSTEM_RESOURCES));
    }
    CHECK(patch.Calls() == 1);
}

TEST_CASE("thread_template: a Start that fails throws E_FAIL and can be tried again",
          "[connection]")
{
    Worker worker;
    SECTION("no stop event")
    {
        const EventPatch patch("kernel32.dll", [](auto...) -> HANDLE { return nullptr; });
        CHECK(CodeOfStart(worker) == E_FAIL);
        CHECK(patch.Calls() == 2);
    }
    SECTION("no thread")
    {
        const NoThreads patch;
        CHECK(CodeOfStart(worker) == E_FAIL);
    }
    SECTION("no reference on the module")
    {
        const ModulePatch patch("kernel32.dll", [](auto...) -> WINBOOL { return FALSE; });
        CHECK(CodeOfStart(worker) == E_FAIL);
        CHECK(patch.Calls() == 1);
    }
    CHECK(worker.runs == 0);
    {
        const GraceWatch grace;
        worker.stop();
        CHECK(grace.waits == 0); // there is nothing to wait for
    }
    CHECK(CodeOfStart(worker) == std::nullopt);
    worker.isDone = true;
    worker.ended.Wait();
    CHECK(worker.runs == 1);
}

TEST_CASE("thread_template: without a stop event no thread is begun", "[connection]")
{
    Worker worker;
    LONG calls = 0;
    const EventPatch events("kernel32.dll", [&](auto... arguments) -> HANDLE {
        return ++calls == 1 ? nullptr : EventPatch::Original(arguments...); // the first of two
    });
    {
        const ModulePatch begins("kernel32.dll", [](auto... arguments) -> WINBOOL {
            return ModulePatch::Original(arguments...);
        });
        CHECK(CodeOfStart(worker) == E_FAIL);
        CHECK(calls == 2);
        CHECK(begins.Calls() == 0);
    }
    CHECK(CodeOfStart(worker) == std::nullopt);
    worker.stop();
    CHECK(worker.runs == 1);
}

TEST_CASE("thread_template: a second Start without a stop event fails and ends the worker",
          "[connection]")
{
    Worker worker;
    REQUIRE(CodeOfStart(worker) == std::nullopt);
    {
        LONG calls = 0;
        const EventPatch events("kernel32.dll", [&](auto... arguments) -> HANDLE {
            return ++calls == 1 ? nullptr : EventPatch::Original(arguments...);
        });
        CHECK(CodeOfStart(worker) == E_FAIL);
    }
    worker.ended.Wait(); // nobody could ask it any more
    worker.stop();
    CHECK(worker.runs == 1);
}

TEST_CASE("thread_template: the events are unnamed, auto-reset and not signalled", "[connection]")
{
    Worker worker;
    const EventPatch patch("kernel32.dll",
                           [](SECURITY_ATTRIBUTES* security, BOOL manual, BOOL signalled,
                              const wchar_t* name) -> HANDLE {
                               return security || manual || signalled || name
                                          ? nullptr
                                          : EventPatch::Original(security, manual, signalled, name);
                           });
    CHECK(CodeOfStart(worker) == std::nullopt);
    CHECK(patch.Calls() == 2);
    worker.stop();
    CHECK(patch.Calls() == 2);
}

TEST_CASE("thread_template: without a wait event stop does not wait", "[connection]")
{
    Worker worker;
    {
        LONG calls = 0;
        const EventPatch patch("kernel32.dll", [&](auto... arguments) -> HANDLE {
            return ++calls == 2 ? nullptr : EventPatch::Original(arguments...);
        });
        CHECK(CodeOfStart(worker) == std::nullopt);
    }
    const GraceWatch grace;
    worker.isDone = true;
    worker.stop();
    CHECK(grace.waits == 0);
    worker.ended.Wait(); // before the object goes
    ::Sleep(50);         // and past its last act
}

TEST_CASE("thread_template: without a wait event the object does not go before its worker",
          "[connection]")
{
    std::atomic<bool> isEntered = false;
    std::atomic<bool> isLeft = false;
    {
        using ClosePatch = ImportPatch<"CloseHandle", decltype(::CloseHandle)>;
        Worker worker;
        LONG calls = 0;
        const EventPatch events("kernel32.dll", [&](auto... arguments) -> HANDLE {
            return ++calls == 2 ? nullptr : EventPatch::Original(arguments...);
        });
        CHECK(CodeOfStart(worker) == std::nullopt);
        // The worker closes its handle in its last act on the object.
        const DWORD owner = ::GetCurrentThreadId();
        const ClosePatch close("kernel32.dll", [&](HANDLE handle) {
            if (::GetCurrentThreadId() != owner && !isEntered.exchange(true))
            {
                ::Sleep(100); // time for an owner that does not wait
                isLeft = true;
            }
            return ClosePatch::Original(handle);
        });
        worker.isDone = true;
        worker.stop();
        CHECK(isEntered);
        CHECK(isLeft);
        worker.ended.Wait();
    }
}

TEST_CASE("thread_template: a worker stopped in time never sees TerminateThread", "[connection]")
{
    const TerminatePatch patch("kernel32.dll", [](HANDLE, DWORD) -> WINBOOL { return TRUE; });
    for (int round = 0; round < 100; ++round)
    {
        Worker worker;
        worker.Start(&worker);
        if (round % 2 == 0)
        {
            worker.isDone = true; // it ends while it is stopped
        }
        worker.stop();
    }
    {
        queue_manager manager;
        REQUIRE(manager.begin(1) == S_OK);
    }
    CHECK(patch.Calls() == 0);
}

TEST_CASE("thread_template: failures leave no handle behind", "[connection]")
{
    const auto fail = [] {
        Worker worker;
        const NoThreads patch;
        CHECK(CodeOfStart(worker) == E_FAIL);
        CHECK(CodeOfStart(worker) == E_FAIL);
    };
    fail();
    const std::size_t before = CurrentUsage().handles;
    for (int round = 0; round < 10; ++round)
    {
        fail();
    }
    CHECK(CurrentUsage().handles <= before);
}

TEST_CASE("queue_manager: without a timer begin fails", "[connection]")
{
    CallLog log;
    {
        std::unique_ptr<queue_manager> manager;
        {
            const TimerPatch patch("kernel32.dll", [](auto...) -> HANDLE { return nullptr; });
            manager = std::make_unique<queue_manager>();
            CHECK(patch.Calls() == 1);
        }
        CHECK(manager->begin(1) == E_FAIL);
        CHECK(manager->begin(1) == E_FAIL);
        CHECK_FALSE(manager->IsRunning());
        manager->add(std::make_shared<LoggingRequest>(log, "a"));
    }
    CHECK(log.All() == CallLog::Calls{"gone a"});
}

TEST_CASE("queue_manager: its timer is unnamed and auto-reset, its period the caller's",
          "[connection]")
{
    const TimerPatch timer(
        "kernel32.dll",
        [](SECURITY_ATTRIBUTES* security, BOOL manual, const wchar_t* name) -> HANDLE {
            return security || manual || name ? nullptr
                                              : TimerPatch::Original(security, manual, name);
        });
    std::atomic<LONGLONG> due = 0;
    std::atomic<LONG> period = 0;
    TestEvent set;
    const SetTimerPatch patch(
        "kernel32.dll",
        [&](HANDLE handle, const LARGE_INTEGER* dueTime, LONG periodMs, PTIMERAPCROUTINE routine,
            void* argument, BOOL resume) -> WINBOOL {
            due = dueTime->QuadPart;
            period = periodMs;
            const WINBOOL result =
                SetTimerPatch::Original(handle, dueTime, periodMs, routine, argument, resume);
            set.Set();
            return result;
        });
    const DWORD periodMs = GENERATE(1u, 30'000u, 1'000'000u); // the last one overflows 32 bits
    queue_manager manager;
    REQUIRE(manager.begin(periodMs) == S_OK);
    set.Wait();
    manager.stop();
    CHECK(due == -10'000LL * periodMs);
    CHECK(period == static_cast<LONG>(periodMs));
}

TEST_CASE("queue_manager: begin fails without a thread and can be tried again", "[connection]")
{
    queue_manager manager;
    {
        const NoThreads patch;
        CHECK(manager.begin(kNeverMs) == E_FAIL);
        CHECK_FALSE(manager.IsRunning());
    }
    {
        const EventPatch patch("kernel32.dll", [](auto...) -> HANDLE { return nullptr; });
        CHECK(manager.begin(kNeverMs) == E_FAIL);
        CHECK_FALSE(manager.IsRunning());
    }
    CHECK(manager.begin(kNeverMs) == S_OK);
    CHECK(manager.IsRunning());
}

TEST_CASE("queue_manager: a timer that cannot be set ends the worker", "[connection]")
{
    TestEvent tried;
    const SetTimerPatch patch("kernel32.dll", [&](auto...) -> WINBOOL {
        tried.Set();
        return FALSE;
    });
    CallLog log;
    auto manager = std::make_unique<queue_manager>();
    manager->add(std::make_shared<LoggingRequest>(log, "a"));
    REQUIRE(manager->begin(1) == S_OK);
    tried.Wait();
    ::Sleep(50); // ticks that must not come
    const GraceWatch grace;
    manager.reset();
    CHECK(grace.inVain == 0);
    CHECK(log.All() == CallLog::Calls{"gone a"});
}

TEST_CASE("queue_manager: without a mutex the constructor throws the system's error",
          "[connection]")
{
    const MutexPatch patch("kernel32.dll", [](auto...) -> HANDLE {
        ::SetLastError(ERROR_ACCESS_DENIED);
        return nullptr;
    });
    try
    {
        const queue_manager manager;
        FAIL("nothing was thrown");
    }
    catch (const SystemException::HRESULT& e)
    {
        CHECK(e.GetCode() == HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED));
    }
}
