#include "connection/queue_manager.h"

#include "foundation/system_exception.h"
#include "tests/support/import_patch.h"
#include "tests/support/logging_notifier.h"
#include "tests/support/logging_request.h"
#include "tests/support/trace_recorder.h"

#include <comdef.h>

#include <catch.hpp>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

using namespace velt::test;
using CONNECTION_MANAGER::queue_manager;
using Calls = CallLog::Calls;

namespace
{
constexpr DWORD kPeriodMs = 20;
constexpr DWORD kNeverMs = 600'000;

/// Ends a manager, whose worker has ended already.
void EndAtOnce(std::unique_ptr<queue_manager>& manager)
{
    const ImportPatch<"TerminateThread", decltype(::TerminateThread)> force(
        "kernel32.dll", [](HANDLE, DWORD) -> WINBOOL { return TRUE; });
    manager.reset();
    CHECK(force.Calls() == 0); // what a wait in vain ends with
}
} // namespace

TEST_CASE("queue_manager: what leaves a step or a completion ends the worker only", "[connection]")
{
    const auto [what, fails] = GENERATE(table<std::string, std::function<void()>>(
        {{"a failure", [] { throw std::runtime_error("of the request"); }},
         {"a system failure", [] { throw SystemException::HRESULT(E_ACCESSDENIED); }},
         {"a COM error", [] { throw _com_error(E_ABORT); }},
         {"no memory", [] { throw std::bad_alloc(); }},
         {"a number", [] { throw 5; }}}));
    const bool inStep = GENERATE(true, false);
    CAPTURE(what, inStep);
    TraceRecorder trace;
    CallLog log;
    LoggingNotifier notifier(log, "queue");
    auto manager = std::make_unique<queue_manager>();
    manager->AddNotifier(&notifier);
    auto request = std::make_shared<LoggingRequest>(log, "a");
    if (inStep)
    {
        request->onStep = fails;
    }
    else
    {
        request->onComplete = [fail = fails](DWORD*) { fail(); };
    }
    manager->add(request);
    request.reset();
    manager->add(std::make_shared<LoggingRequest>(log, "b"));
    REQUIRE(manager->begin(kPeriodMs) == S_OK);
    log.WaitFor(inStep ? "step a" : "complete a");
    ::Sleep(5 * kPeriodMs); // ticks that must not come
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
