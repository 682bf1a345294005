// The service's worker: queued requests, their events, and the service's end at any moment. The
// service is a part of this program, so that the period and the platform's answers can be chosen.

#include "service/update_worker.h"

#include "tests/service/worker_fixture.h"
#include "tests/support/logging_request.h"
#include "tests/support/recording_sink.h"

#include <catch.hpp>

#include <algorithm>
#include <atomic>
#include <functional>
#include <string>

using Microsoft::WRL::ComPtr;
using namespace velt::test;

namespace
{
} // namespace

TEST_CASE("StartUpdateService: the worker does the work one period later", "[service]")
{
    WorkerFixture f;
    f.onAgent = [] { return REGDB_E_CLASSNOTREG; };
    RecordingSink sink;
    Advise(f.service.Get(), &sink);
    CHECK(f.Start() == S_OK);
    CHECK(sink.Count() == 0); // the tick of this thread only arms the queue
    WorkerFixture::Await([&] { return sink.Count() == 1; });
    CHECK(f.periodMs == 30'000);
    CHECK(f.due == -300'000'000);
    CHECK(sink.Events()[0].event == self_upgrade);
    CHECK((sink.Events()[0].text == kGuid));
    CHECK(f.trace.Count("IS_upgrade_request::StartUpdateService - params = "
                        "{{0F8FAD5B-D9CB-469F-A165-70867728950E}, 1.0, 1031, A product}") == 1);
    CHECK(f.trace.Count("CVeltHTTPService::StartUpdateService - enter") == 1);
    CHECK(f.trace.Count("queue_manager::begin - enter") == 1);
    CHECK(f.agent.Calls() >= 1);
    // This thread queues, starts and arms; from its first look on, the worker works.
    CallLog::Calls here;
    CallLog::Calls worker;
    for (const auto& message : f.trace.Messages())
    {
        if (message.text == "queue_manager::add queue" || message.text.ends_with(" - enter"))
        {
            (message.thread == ::GetCurrentThreadId() ? here : worker).push_back(message.text);
        }
    }
    CHECK(here == CallLog::Calls{"CVeltHTTPService::FindConnectionPoint - enter",
                                 "CVeltHTTPService::Advise - enter",
                                 "CVeltHTTPService::StartUpdateService - enter",
                                 "queue_manager::add queue", "queue_manager::begin - enter",
                                 "queue_manager::Execute - enter"});
    worker.resize(std::min<std::size_t>(worker.size(), 3));
    CHECK(worker == CallLog::Calls{"queue_manager::Execute - enter",
                                   "queue_manager::process - enter",
                                   "IS_upgrade_request::DoWork - enter"});
}

TEST_CASE("StartService: is StartUpdateService for the component itself", "[service]")
{
    RecordingSink sink;
    WorkerFixture f;
    Advise(f.service.Get(), &sink);
    CHECK(f.service->StartService() == S_OK);
    CHECK(f.trace.Count("CVeltHTTPService::StartService - enter") == 1);
    CHECK(f.trace.Count("CVeltHTTPService::StartUpdateService - enter") == 1);
    CHECK(f.trace.Count("IS_upgrade_request::StartUpdateService - params = "
                        "{{AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841B}, 3.0, 1033, }") == 1);
    WorkerFixture::Await([&] { return sink.Count() == 1; });
    CHECK((sink.Events()[0].text == L"{AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841B}"));
}

TEST_CASE("IsConnected: only after a step that found the machine online", "[service]")
{
    WorkerFixture f;
    WorkerFixture::s_isOnline = false;
    RecordingSink sink;
    Advise(f.service.Get(), &sink);
    CHECK_FALSE(f.IsConnected()); // 0: nothing is known
    CHECK(f.Start() == S_OK);
    CHECK_FALSE(f.IsConnected());
    WorkerFixture::Await(
        [&] { return WorkerFixture::s_questions >= 3; }); // 2: under way, tried again
    CHECK_FALSE(f.IsConnected());
    CHECK(sink.Count() == 0); // not at each retry
    WorkerFixture::s_isOnline = true;
    WorkerFixture::Await([&] { return sink.Count() == 1; });
    CHECK(f.IsConnected()); // 3
    const int calls = WorkerFixture::s_questions;
    // The request has left the queue; another one is needed for another answer.
    WorkerFixture::s_isOnline = false;
    CHECK(f.Start() == S_OK);
    WorkerFixture::Await([&] { return WorkerFixture::s_questions > calls; });
    WorkerFixture::Await([&] { return !f.IsConnected(); });
    CHECK(sink.Count() == 1);
}

TEST_CASE("UpdateWorker: connected means a last step above 2", "[service]")
{
    const DWORD result = GENERATE(as<DWORD>(), 0, 1, 2, 3, 4, 255);
    WorkerFixture f; // whose worker wakes soon
    CallLog log;
    auto worker = std::make_unique<velt::UpdateWorker>(std::make_shared<velt::SinkList>());
    CHECK_FALSE(worker->IsConnected()); // 0: nothing is known
    worker->Queue(std::make_shared<LoggingRequest>(log, "a", std::vector<DWORD>{result}));
    log.WaitFor("step a", result > 2 ? 1 : 2); // what is under way is stepped again
    if (result > 2)
    {
        log.WaitFor("complete a");
    }
    CHECK(worker->IsConnected() == (result > 2));
    velt::UpdateWorker::End(std::move(worker));
    log.WaitFor("gone a");
    WorkerFixture::Await([&] { return f.module.LockCount() == 1; }); // the fixture's own service
}

TEST_CASE("StartUpdateService: the worker is started once and serves every request", "[service]")
{
    RecordingSink sink;
    WorkerFixture f;
    Advise(f.service.Get(), &sink);
    for (const wchar_t* guid : {L"a", L"b", L"c"})
    {
        CHECK(f.Start(guid) == S_OK);
    }
    WorkerFixture::Await([&] { return sink.Count() == 3; });
    CHECK(f.timer.Calls() == 1);
    CHECK(f.trace.Count("queue_manager::begin - enter") == 1);
    const auto events = sink.Events();
    CHECK((events[0].text + events[1].text + events[2].text == L"abc"));
}

TEST_CASE("StartUpdateService: a worker that cannot be started is not told", "[service]")
{
    const ComApartment apartment;
    TestModule module;
    ComPtr<IVeltHTTPService> service;
    {
        ImportPatch<"CreateWaitableTimerW", decltype(::CreateWaitableTimerW)> none(
            "kernel32.dll", [](SECURITY_ATTRIBUTES*, BOOL, const wchar_t*) { return HANDLE{}; });
        REQUIRE(velt::CreateComObject<CVeltHTTPService>(service.GetAddressOf()) == S_OK);
        CHECK(none.Calls() == 1);
    }
    CHECK(service->StartService() == S_OK);
    CHECK(service->StartService() == S_OK);
    service.Reset();
    CHECK(module.LockCount() == 0);
}

TEST_CASE("The service: released while its worker is idle or armed", "[service]")
{
    const bool armed = GENERATE(true, false);
    WorkerFixture f;
    f.stepPeriodMs = armed ? 600'000 : WorkerFixture::kPeriodMs;
    RecordingSink sink;
    Advise(f.service.Get(), &sink);
    CHECK(f.Start() == S_OK);
    if (!armed)
    {
        // Heard, and the tick is over that still holds the sink for the event.
        WorkerFixture::Await([&] { return sink.Count() == 1; });
        const char* const tick = "queue_manager::Execute - return";
        const std::size_t ticks = f.trace.Count(tick);
        WorkerFixture::Await([&] { return f.trace.Count(tick) >= ticks + 2; });
    }
    f.service.Reset();
    CHECK(f.trace.Count(kTerminating) == 0);
    CHECK(sink.References() == 1);
    f.AwaitEnd();
    CHECK(sink.Count() == (armed ? 0 : 1));
}

TEST_CASE("The service: another thread waits for a busy worker only", "[service]")
{
    // Each thread that nobody waits for keeps the library by this call.
    const ImportPatch<"GetModuleHandleExW", decltype(::GetModuleHandleExW)> threads(
        "kernel32.dll", [](DWORD flags, const wchar_t* name, HMODULE* module) {
            return decltype(threads)::Original(flags, name, module);
        });
    WorkerFixture f;
    SECTION("a worker that was never started")
    {
        f.service.Reset();
        CHECK(threads.Calls() == 0);
        CHECK(f.module.LockCount() == 0);
    }
    SECTION("an idle one")
    {
        // Unless the machine is so loaded that the worker does not wake up in time: not each time.
        bool hasEndedHere = false;
        for (int i = 0; i < 20 && !hasEndedHere; ++i)
        {
            f.stepPeriodMs = 600'000;
            f.service.Reset();
            f.AwaitEnd();
            velt::ThrowIfFailed(velt::CreateComObject<CVeltHTTPService>(f.service.GetAddressOf()));
            REQUIRE(f.Start() == S_OK);
            const LONG before = threads.Calls();
            f.service.Reset();
            hasEndedHere = threads.Calls() == before;
        }
        CHECK(hasEndedHere);
    }
}

TEST_CASE("The service: released while its worker is in a step", "[service]")
{
    WorkerFixture f;
    TestEvent inStep;
    TestEvent goOn;
    f.onAgent = [&] {
        inStep.Set();
        goOn.Wait();
        return REGDB_E_CLASSNOTREG;
    };
    RecordingSink sink;
    Advise(f.service.Get(), &sink);
    CHECK(f.Start() == S_OK);
    inStep.Wait();
    f.service.Reset();
    CHECK(f.trace.Count(kTerminating) == 0); // somebody else waits
    CHECK(sink.References() == 1);
    CHECK(f.module.LockCount() > 0);
    goOn.Set();
    f.AwaitEnd();
    CHECK(sink.Count() == 0);
    CHECK(f.trace.Count(kTerminating) == 0);
}

TEST_CASE("The service: a worker that stays in its step is ended by force", "[service]")
{
    WorkerFixture f;
    TestEvent inStep;
    TestEvent never;
    f.onAgent = [&] {
        inStep.Set();
        ::Sleep(INFINITE);
        return S_OK;
    };
    CHECK(f.Start() == S_OK);
    inStep.Wait();
    const ULONGLONG before = ::GetTickCount64();
    f.service.Reset();
    f.AwaitEnd();
    CHECK(::GetTickCount64() - before >= 5000);
    CHECK(f.trace.Count(kTerminating) == 1);
    const DWORD thread = ::GetCurrentThreadId(); // which did not wait
    const auto messages = f.trace.Messages();
    CHECK(
        std::none_of(messages.begin(), messages.end(), [=](const TraceRecorder::Message& message) {
            return message.text == kTerminating && message.thread == thread;
        }));
}

TEST_CASE("The service: its last reference given up by a sink on the worker", "[service]")
{
    WorkerFixture f;
    std::atomic<bool> released = false;
    IVeltHTTPService* last = nullptr;
    DWORD thread = 0;
    // Its own apartment is the worker's, so that it is called there: it connects inside a step.
    RecordingSink sink([&](DISPPARAMS*) {
        thread = ::GetCurrentThreadId();
        last->Release();
        released = true;
        return S_OK;
    });
    RecordingSink after; // the service is no more when its turn comes
    std::atomic<bool> advised = false;
    std::atomic<DWORD> worker = 0;
    f.onAgent = [&] {
        worker = ::GetCurrentThreadId();
        Advise(last, &sink);
        Advise(last, &after);
        advised = true;
        return REGDB_E_CLASSNOTREG;
    };
    last = f.service.Get();
    CHECK(f.Start() == S_OK);
    static_cast<void>(f.service.Detach());
    WorkerFixture::Await([&] { return released.load(); });
    f.AwaitEnd();
    CHECK(advised);
    CHECK(thread == worker);
    CHECK(sink.References() == 1);
    CHECK(after.Count() == 0);
    CHECK(after.References() == 1);
    CHECK(f.trace.Count(kTerminating) == 0);
}

TEST_CASE("The service: no thread to wait for the worker costs memory only", "[service]")
{
    WorkerFixture f;
    std::atomic<bool> released = false;
    IVeltHTTPService* const last = f.service.Get();
    std::atomic<bool> fails = false;
    ImportPatch<"GetModuleHandleExW", decltype(::GetModuleHandleExW)> noThread(
        "kernel32.dll", [&](DWORD flags, const wchar_t* name, HMODULE* module) {
            return fails ? FALSE : decltype(noThread)::Original(flags, name, module);
        });
    RecordingSink sink([&](DISPPARAMS*) {
        fails = true;
        last->Release();
        fails = false;
        released = true;
        return S_OK;
    });
    velt::UniqueKernelObject worker;
    f.onAgent = [&] {
        worker.Reset(
            ::OpenThread(SYNCHRONIZE | THREAD_QUERY_INFORMATION, FALSE, ::GetCurrentThreadId()));
        Advise(last, &sink);
        return REGDB_E_CLASSNOTREG;
    };
    CHECK(f.Start() == S_OK);
    static_cast<void>(f.service.Detach());
    WorkerFixture::Await([&] { return released.load(); });
    CHECK(::WaitForSingleObject(worker.Get(), kWaitLimitMs) == WAIT_OBJECT_0); // ends by itself
    CHECK(f.trace.Count(kTerminating) == 0);
    CHECK(sink.References() == 1);
    f.AwaitEnd();
}

TEST_CASE("The service: released by an apartment that its worker is calling", "[service]")
{
    WorkerFixture f;
    TestEvent firing;
    // Not taken before this thread takes calls, which it does not while it releases.
    RecordingSink sink;
    RecordingSink first([&](DISPPARAMS*) {
        firing.Set();
        return S_OK;
    });
    ApartmentThread other;
    other.Do([&] { Advise(f.service.Get(), &first); });
    Advise(f.service.Get(), &sink);
    CHECK(f.Start() == S_OK);
    firing.Wait(); // the other apartment's sink was called, this one's is next
    f.service.Reset();
    f.AwaitEnd();
    CHECK(f.trace.Count(kTerminating) == 0);
    CHECK(sink.References() == 1);
    CHECK(sink.Count() <= 1); // told, or disconnected in time
}

TEST_CASE("The service: a sink that blocks holds up the worker only", "[service]")
{
    WorkerFixture f;
    TestEvent blocked;
    TestEvent goOn;
    RecordingSink sink([&](DISPPARAMS*) {
        blocked.Set();
        goOn.Wait();
        return S_OK;
    });
    ApartmentThread other;
    other.Do([&] { Advise(f.service.Get(), &sink); });
    CHECK(f.Start() == S_OK);
    blocked.Wait();
    CHECK(f.IsConnected()); // the step is over
    CHECK(f.Start() == S_OK);
    goOn.Set();
    WorkerFixture::Await([&] { return sink.Count() == 2; });
}

TEST_CASE("The service: two of them have workers of their own", "[service]")
{
    WorkerFixture f;
    ComPtr<IVeltHTTPService> second;
    REQUIRE(velt::CreateComObject<CVeltHTTPService>(second.GetAddressOf()) == S_OK);
    RecordingSink sink;
    RecordingSink other;
    Advise(f.service.Get(), &sink);
    Advise(second.Get(), &other);
    CHECK(f.Start(L"first") == S_OK);
    CHECK(second->StartService() == S_OK);
    WorkerFixture::Await([&] { return sink.Count() == 1 && other.Count() == 1; });
    CHECK(f.timer.Calls() == 2);
    second.Reset();
    CHECK(f.Start(L"again") == S_OK);
    WorkerFixture::Await([&] { return sink.Count() == 2; });
    CHECK(other.Count() == 1);
}
