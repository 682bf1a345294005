#include "connection/queue_manager.h"

#include "foundation/system_exception.h"
#include "foundation/unique_handle.h"
#include "tests/connection/grace_watch.h"
#include "tests/connection/periods.h"
#include "tests/support/logging_notifier.h"
#include "tests/support/logging_request.h"
#include "tests/support/test_thread.h"
#include "tests/support/trace_recorder.h"

#include <comdef.h>

#include <catch.hpp>

#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using namespace velt::test;
using CONNECTION_MANAGER::queue_manager;
using Calls = CallLog::Calls;

namespace
{

/// What foreign code throws.
struct Failure
{
    std::string what;
    std::string trace;
    std::function<void()> fail;
};

std::vector<Failure> Failures()
{
    return {{"a failure", "failed: 0x8000FFFF of the request",
             [] { throw std::runtime_error("of the request"); }},
            {"a system failure", "failed: 0x80070005",
             [] { throw SystemException::HRESULT(E_ACCESSDENIED); }},
            {"a COM error", "failed: 0x80004004 COM error", [] { throw _com_error(E_ABORT); }},
            {"no memory", "failed: 0x8007000E out of memory", [] { throw std::bad_alloc(); }},
            {"a number", "failed: 0x8000FFFF unknown exception", [] { throw 5; }}};
}

/// How many messages of level 1 begin with a text.
int CountOf(TraceRecorder& trace, const std::string& start)
{
    int count = 0;
    for (const TraceRecorder::Message& message : trace.Messages())
    {
        count += message.level == 1 && message.text.starts_with(start) ? 1 : 0;
    }
    return count;
}

/// Ends a manager whose worker has ended already, or does so when it is asked.
void EndAtOnce(std::unique_ptr<queue_manager>& manager)
{
    const GraceWatch grace;
    manager.reset();
    CHECK(grace.inVain == 0);
}
} // namespace

TEST_CASE("queue_manager: what leaves a step ends the worker only", "[connection]")
{
    const Failure failure = GENERATE(from_range(Failures()));
    CAPTURE(failure.what);
    CallLog log;
    LoggingNotifier notifier(log, "queue");
    auto manager = std::make_unique<queue_manager>();
    manager->AddNotifier(&notifier);
    auto request = std::make_shared<LoggingRequest>(log, "a");
    velt::UniqueKernelObject worker;
    TestEvent inStep;
    request->onStep = [&] {
        worker.Reset(::OpenThread(SYNCHRONIZE, FALSE, ::GetCurrentThreadId()));
        inStep.Set();
        failure.fail();
    };
    manager->add(request);
    request.reset();
    manager->add(std::make_shared<LoggingRequest>(log, "b"));
    REQUIRE(manager->begin(kPeriodMs) == S_OK);
    inStep.Wait();
    REQUIRE(::WaitForSingleObject(worker.Get(), kWaitLimitMs) == WAIT_OBJECT_0);
    CHECK(log.Count("step a") == 1);
    CHECK(log.Count("step b") == 0);
    CHECK(log.Count("queue filled") == 3); // added twice, and armed
    CHECK(log.Count("gone a") == 0);       // it is queued still
    CHECK(manager->begin(kPeriodMs) == E_FAIL);
    manager->add(std::make_shared<LoggingRequest>(log, "c"));
    EndAtOnce(manager);
    CHECK(log.Count("gone a") == 1);
    CHECK(log.Count("gone b") == 1);
    CHECK(log.Count("gone c") == 1);
}

TEST_CASE("queue_manager: what leaves a completion is traced, and the queue goes on",
          "[connection]")
{
    const Failure failure = GENERATE(from_range(Failures()));
    const bool isHeld = GENERATE(false, true);
    CAPTURE(failure.what, isHeld);
    TraceRecorder trace;
    CallLog log;
    LoggingNotifier notifier(log, "queue");
    auto manager = std::make_unique<queue_manager>();
    manager->SetHoldMode(isHeld);
    manager->AddNotifier(&notifier);
    auto request = std::make_shared<LoggingRequest>(log, "a");
    request->onComplete = [&](DWORD*) { failure.fail(); };
    manager->add(request);
    request.reset();
    manager->add(std::make_shared<LoggingRequest>(log, "b"));
    REQUIRE(manager->begin(kPeriodMs) == S_OK);
    log.WaitFor("gone b");
    Calls calls = log.Until("gone b");
    calls.erase(calls.begin(), calls.begin() + 3); // added twice, and the tick that arms
    CHECK(calls == Calls{"step a", "complete a", "queue filled", "gone a", //
                         "step b", "complete b", "queue empty", "gone b"});
    CHECK(CountOf(trace, failure.trace) == 1);
    EndAtOnce(manager);
}

TEST_CASE("queue_manager: a request that cannot say whether it is wanted leaves hold and retry",
          "[connection]")
{
    class Undecided final : public CONNECTION_MANAGER::queue_request
    {
    public:
        Undecided(CallLog& log, std::function<void()> fail) : m_log(log), m_fail(std::move(fail)) {}

        DWORD Step(CONNECTION_MANAGER::connection_object&, const std::vector<std::string>&,
                   bool) override
        {
            m_log.Add("step a");
            return kFinished;
        }

        void Complete(CONNECTION_MANAGER::connection_object&, DWORD*) override
        {
            m_log.Add("complete a");
        }

        bool IsCancelled() const override
        {
            m_fail();
            return false;
        }

    private:
        CallLog& m_log;
        const std::function<void()> m_fail;
    };

    const Failure failure = GENERATE(from_range(Failures()));
    CAPTURE(failure.what);
    TraceRecorder trace;
    CallLog log;
    auto manager = std::make_unique<queue_manager>();
    manager->SetHoldMode(true);
    manager->add(std::make_shared<Undecided>(log, failure.fail));
    manager->add(std::make_shared<LoggingRequest>(log, "b"));
    REQUIRE(manager->begin(kPeriodMs) == S_OK);
    log.WaitFor("gone b");
    CHECK(log.All() == Calls{"complete a", "step b", "complete b", "gone b"});
    CHECK(CountOf(trace, failure.trace) == 1);
    EndAtOnce(manager);
}

TEST_CASE("queue_manager: null is refused, and the queue goes on", "[connection]")
{
    CallLog log;
    LoggingNotifier notifier(log, "queue");
    auto manager = std::make_unique<queue_manager>();
    manager->AddNotifier(&notifier);
    const auto codeOf = [](const std::function<void()>& call) {
        try
        {
            call();
        }
        catch (const SystemException::HRESULT& e)
        {
            return e.GetCode();
        }
        return S_OK;
    };
    CHECK(codeOf([&] { manager->add(nullptr); }) == E_INVALIDARG);
    CHECK(log.All().empty()); // nothing was queued
    CHECK(codeOf([&] { manager->AddNotifier(nullptr); }) == E_INVALIDARG);
    CHECK_NOTHROW(manager->RemoveNotifier(nullptr));
    manager->add(std::make_shared<LoggingRequest>(log, "a"));
    REQUIRE(manager->begin(kPeriodMs) == S_OK);
    log.WaitFor("gone a");
    EndAtOnce(manager);
}

TEST_CASE("queue_manager: what a notifier throws out of add goes to the caller", "[connection]")
{
    CallLog log;
    LoggingNotifier notifiers[] = {{log, "first"}, {log, "second"}, {log, "third"}};
    notifiers[1].onState = [](bool) { throw std::runtime_error("of the notifier"); };
    auto manager = std::make_unique<queue_manager>();
    for (LoggingNotifier& notifier : notifiers)
    {
        manager->AddNotifier(&notifier);
    }
    CHECK_THROWS_WITH(manager->add(std::make_shared<LoggingRequest>(log, "a")), "of the notifier");
    CHECK(log.All() == Calls{"first filled", "second filled"}); // the pass ends there

    // The request is queued all the same, and the mutex is free.
    notifiers[1].onState = nullptr;
    REQUIRE(manager->begin(kPeriodMs) == S_OK);
    log.WaitFor("gone a");
    EndAtOnce(manager);
}

TEST_CASE("queue_manager: what a notifier throws on the worker ends the worker quietly",
          "[connection]")
{
    const bool atRemoval = GENERATE(true, false);
    CAPTURE(atRemoval);
    CallLog log;
    LoggingNotifier notifiers[] = {{log, "first"}, {log, "second"}};
    const DWORD caller = ::GetCurrentThreadId();
    notifiers[0].onState = [=](bool empty) {
        if (::GetCurrentThreadId() != caller && empty == atRemoval)
        {
            throw std::runtime_error("of the notifier");
        }
    };
    auto manager = std::make_unique<queue_manager>();
    manager->AddNotifier(&notifiers[0]);
    manager->AddNotifier(&notifiers[1]);
    manager->add(std::make_shared<LoggingRequest>(log, "a"));
    manager->add(std::make_shared<LoggingRequest>(log, "b"));
    REQUIRE(manager->begin(kPeriodMs) == S_OK);
    if (atRemoval)
    {
        log.WaitFor("gone b");
        log.WaitFor("first empty");
        ::Sleep(5 * kPeriodMs); // ticks that must not come
        CHECK(log.Count("first empty") == 1);
        CHECK(log.Count("second empty") == 0);
    }
    else
    {
        log.WaitFor("first filled", 3);
        ::Sleep(5 * kPeriodMs);
        CHECK(log.Count("first filled") == 3);
        CHECK(log.Count("second filled") == 2);
        CHECK(log.Count("step a") == 0);
    }
    CHECK(manager->IsRunning()); // as far as begin is concerned
    EndAtOnce(manager);
}

TEST_CASE("queue_manager: what a notifier throws out of a tick of the caller's own goes to it",
          "[connection]")
{
    CallLog log;
    LoggingNotifier notifier(log, "queue");
    notifier.onState = [](bool) { throw std::runtime_error("of the notifier"); };
    auto manager = std::make_unique<queue_manager>();
    REQUIRE(manager->begin(kNeverMs) == S_OK);
    manager->AddNotifier(&notifier);
    CHECK_THROWS_WITH(manager->OnTimer(), "of the notifier");
    CHECK_THROWS_WITH(manager->NotifyState(false), "of the notifier");
    EndAtOnce(manager);
}
