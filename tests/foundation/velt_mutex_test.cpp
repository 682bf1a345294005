#include "foundation/velt_mutex.h"

#include "foundation/system_exception.h"
#include "foundation/velt_mutex_lock.h"
#include "tests/support/import_patch.h"
#include "tests/support/test_thread.h"
#include "tests/support/virtual_slot.h"

#include <catch.hpp>

#include <memory>
#include <type_traits>

using velt::test::ImportPatch;
using velt::test::OnOtherThread;
using velt::test::TestEvent;
using velt::test::TestThread;
using velt::test::VirtualSlot;

namespace
{
/// The code that Unlock throws on a thread of its own, 0 when it throws nothing.
DWORD UnlockElsewhere(BaseMutex& mutex)
{
    return OnOtherThread([&]() -> DWORD {
        try
        {
            mutex.Unlock();
            return 0;
        }
        catch (const SystemException::Win32& e)
        {
            return e.GetCode();
        }
    });
}

bool TryLockElsewhere(BaseMutex& mutex)
{
    return OnOtherThread([&] {
        const bool locked = mutex.TryLock();
        if (locked)
        {
            mutex.Unlock();
        }
        return locked;
    });
}

class CountingMutex final : public BaseMutex
{
public:
    DWORD Lock() override
    {
        ++locked;
        return WAIT_OBJECT_0;
    }

    bool TryLock() override
    {
        return false;
    }

    void Unlock() override
    {
        ++unlocked;
    }

    int locked = 0;
    int unlocked = 0;
};
} // namespace

TEMPLATE_TEST_CASE("VeltMutex: TryLock answers at once whether the mutex was to be had",
                   "[foundation]", WinMutex, VeltMutex)
{
    TestType made;
    BaseMutex& mutex = made;
    CHECK(mutex.TryLock());
    CHECK_FALSE(TryLockElsewhere(mutex));
    mutex.Unlock();
    CHECK(TryLockElsewhere(mutex));
}

TEMPLATE_TEST_CASE("VeltMutex: it is free when it is made", "[foundation]", WinMutex, VeltMutex)
{
    TestType mutex;
    CHECK(TryLockElsewhere(mutex));
}

TEMPLATE_TEST_CASE("VeltMutex: its owner may lock it again, and unlocks it as often",
                   "[foundation]", WinMutex, VeltMutex)
{
    TestType made;
    BaseMutex& mutex = made;
    CHECK(mutex.Lock() == WAIT_OBJECT_0);
    CHECK(mutex.Lock() == WAIT_OBJECT_0);
    CHECK(mutex.TryLock());
    mutex.Unlock();
    mutex.Unlock();
    CHECK_FALSE(TryLockElsewhere(mutex));
    mutex.Unlock();
    CHECK(TryLockElsewhere(mutex));
}

TEMPLATE_TEST_CASE("VeltMutex: Unlock by another thread throws ERROR_NOT_OWNER", "[foundation]",
                   WinMutex, VeltMutex)
{
    TestType mutex;
    CHECK(UnlockElsewhere(mutex) == ERROR_NOT_OWNER); // nobody's
    mutex.Lock();
    CHECK(UnlockElsewhere(mutex) == ERROR_NOT_OWNER);
    CHECK_FALSE(TryLockElsewhere(mutex)); // and it is still held
    mutex.Unlock();
    try
    {
        mutex.Unlock(); // once too often
        FAIL("nothing was thrown");
    }
    catch (const SystemException::Win32& e)
    {
        CHECK(e.GetCode() == ERROR_NOT_OWNER);
    }
}

TEMPLATE_TEST_CASE("VeltMutex: Lock waits until another thread unlocks", "[foundation]", WinMutex,
                   VeltMutex)
{
    TestType mutex;
    mutex.Lock();
    volatile LONG isOwned = 0;
    DWORD result = 77;
    TestEvent started;
    TestThread other([&] {
        started.Set();
        result = mutex.Lock();
        isOwned = 1;
        mutex.Unlock();
    });
    started.Wait();
    ::SwitchToThread();
    CHECK(isOwned == 0);
    mutex.Unlock();
    other.Join();
    CHECK(isOwned == 1);
    CHECK(result == WAIT_OBJECT_0);
}

TEMPLATE_TEST_CASE("VeltMutex: an abandoned mutex counts as acquired", "[foundation]", WinMutex,
                   VeltMutex)
{
    TestType mutex;
    const auto abandon = [&] {
        TestThread owner([&] { mutex.Lock(); });
        owner.Join();
    };
    SECTION("by Lock, which reports it")
    {
        abandon();
        CHECK(mutex.Lock() == WAIT_ABANDONED);
    }
    SECTION("by TryLock")
    {
        abandon();
        CHECK(mutex.TryLock());
    }
    CHECK_FALSE(TryLockElsewhere(mutex));
    CHECK_NOTHROW(mutex.Unlock());
    CHECK(mutex.Lock() == WAIT_OBJECT_0); // the report comes once
    mutex.Unlock();
}

TEMPLATE_TEST_CASE("VeltMutex: what the system refuses is thrown with its code", "[foundation]",
                   WinMutex, VeltMutex)
{
    const auto thrownBy = [](auto&& call) -> DWORD {
        try
        {
            call();
            return 0;
        }
        catch (const SystemException::Win32& e)
        {
            return e.GetCode();
        }
    };
    TestType mutex;
    {
        const ImportPatch<"WaitForSingleObject", decltype(::WaitForSingleObject)> failing(
            "kernel32.dll", [](HANDLE, DWORD) -> DWORD {
                ::SetLastError(ERROR_ACCESS_DENIED);
                return WAIT_FAILED;
            });
        CHECK(thrownBy([&] { mutex.Lock(); }) == ERROR_ACCESS_DENIED);
        CHECK(thrownBy([&] { mutex.TryLock(); }) == ERROR_ACCESS_DENIED);
    }
    CHECK(thrownBy([&] { mutex.Unlock(); }) == ERROR_NOT_OWNER);
    const ImportPatch<"CreateMutexW", decltype(::CreateMutexW)> none(
        "kernel32.dll", [](SECURITY_ATTRIBUTES*, BOOL, const wchar_t*) -> HANDLE {
            ::SetLastError(ERROR_NO_SYSTEM_RESOURCES);
            return nullptr;
        });
    CHECK(thrownBy([] { const TestType another; }) == ERROR_NO_SYSTEM_RESOURCES);
}

TEST_CASE("VeltMutex: two mutexes are two locks", "[foundation]")
{
    VeltMutex first;
    VeltMutex second;
    first.Lock();
    CHECK(TryLockElsewhere(second));
    first.Unlock();
}

TEST_CASE("VeltMutex: it gives its handle back", "[foundation]")
{
    // Handles are numbered; a leak of one a round would take thousands of new numbers.
    const auto newHandle = [] {
        const velt::UniqueKernelObject event(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
        return reinterpret_cast<std::uintptr_t>(event.Get());
    };
    const std::uintptr_t before = newHandle();
    for (int i = 0; i < 2000; ++i)
    {
        const std::unique_ptr<BaseMutex> mutex = std::make_unique<VeltMutex>();
    }
    CHECK(newHandle() < before + 400);
}

TEST_CASE("VeltMutex: its operations stand in the slots that they always had", "[foundation]")
{
    CHECK(VirtualSlot(&BaseMutex::Lock) == 2); // behind the destructor's two
    CHECK(VirtualSlot(&BaseMutex::TryLock) == 3);
    CHECK(VirtualSlot(&BaseMutex::Unlock) == 4);
    CHECK(VirtualSlot(&VeltMutex::Lock) == 2);
    CHECK(VirtualSlot(&VeltMutex::TryLock) == 3);
    CHECK(VirtualSlot(&VeltMutex::Unlock) == 4);
    CHECK(std::has_virtual_destructor_v<BaseMutex>);
    CHECK(std::is_base_of_v<WinMutex, VeltMutex>);
    CHECK(sizeof(VeltMutex) == 2 * sizeof(void*));
}

TEST_CASE("VeltMutexLock: it locks once and unlocks once", "[foundation]")
{
    CountingMutex mutex;
    {
        const VeltMutexLock lock(&mutex);
        CHECK(mutex.locked == 1);
        CHECK(mutex.unlocked == 0);
    }
    CHECK(mutex.locked == 1);
    CHECK(mutex.unlocked == 1);
}

TEST_CASE("VeltMutexLock: it unlocks when an exception passes", "[foundation]")
{
    VeltMutex mutex;
    try
    {
        const VeltMutexLock lock(&mutex);
        throw 1;
    }
    catch (int)
    {
        CHECK(TryLockElsewhere(mutex));
    }
}

TEST_CASE("VeltMutexLock: an abandoned mutex is taken as any other", "[foundation]")
{
    VeltMutex mutex;
    TestThread owner([&] { mutex.Lock(); });
    owner.Join();
    {
        const VeltMutexLock lock(&mutex);
        CHECK_FALSE(TryLockElsewhere(mutex));
    }
    CHECK(TryLockElsewhere(mutex));
}
