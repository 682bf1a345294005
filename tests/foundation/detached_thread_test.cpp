#include "foundation/detached_thread.h"

#include "tests/support/import_patch.h"
#include "tests/support/test_module.h"
#include "tests/support/test_thread.h"

#include <catch.hpp>

#include <atomic>

using namespace velt::test;

namespace
{
struct Run
{
    TestEvent began;
    TestEvent goOn;
    std::atomic<DWORD> thread = 0;
};

void Body(void* argument) noexcept
{
    auto& run = *static_cast<Run*>(argument);
    run.thread = ::GetCurrentThreadId();
    run.began.Set();
    run.goOn.Wait();
}
} // namespace

TEST_CASE("RunDetached: the thread holds a module lock until its end", "[foundation]")
{
    TestModule module;
    Run run;
    REQUIRE(velt::RunDetached(&Body, &run));
    run.began.Wait();
    CHECK(run.thread != ::GetCurrentThreadId());
    CHECK(module.LockCount() == 1);
    run.goOn.Set();
    const ULONGLONG limit = ::GetTickCount64() + kWaitLimitMs;
    while (module.LockCount() != 0)
    {
        REQUIRE(::GetTickCount64() < limit);
        ::Sleep(1);
    }
}

TEST_CASE("RunDetached: without a library reference nothing runs", "[foundation]")
{
    TestModule module;
    Run run;
    {
        const ImportPatch<"GetModuleHandleExW", decltype(::GetModuleHandleExW)> none(
            "kernel32.dll", [](auto...) { return FALSE; });
        CHECK_FALSE(velt::RunDetached(&Body, &run));
    }
    CHECK(module.LockCount() == 0);
    CHECK(run.thread == 0);
}
