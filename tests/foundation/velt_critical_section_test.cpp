#include "foundation/velt_critical_section.h"

#include "foundation/velt_auto_critical_section.h"
#include "tests/support/test_thread.h"
#include "tests/support/virtual_slot.h"

#include <catch.hpp>

#include <memory>
#include <type_traits>
#include <vector>

using velt::test::OnOtherThread;
using velt::test::TestEvent;
using velt::test::TestThread;
using velt::test::VirtualSlot;

namespace
{
/// Keeps an order of its calls; a guard sees only the base.
class CountingSection final : public BaseCriticalSection
{
public:
    void Enter() override
    {
        ++entered;
    }

    void Leave() override
    {
        ++left;
    }

    int entered = 0;
    int left = 0;
};

/// How often two threads meet inside a section that each of them enters 20,000 times.
int CountMeetings(BaseCriticalSection& section)
{
    constexpr int kRounds = 20'000;
    volatile int inside = 0;
    int meetings = 0;
    int rounds = 0;
    const auto body = [&] {
        for (int i = 0; i < kRounds; ++i)
        {
            const VeltAutoCriticalSection lock(&section);
            inside = inside + 1;
            meetings += inside != 1;
            ++rounds;
            inside = inside - 1;
        }
    };
    TestThread first(body);
    TestThread second(body);
    first.Join();
    second.Join();
    return rounds == 2 * kRounds ? meetings : -1;
}
} // namespace

TEMPLATE_TEST_CASE("VeltCriticalSection: one thread at a time is inside", "[foundation]",
                   WinCriticalSection, VeltCriticalSection)
{
    TestType section;
    CHECK(CountMeetings(section) == 0);
}

TEMPLATE_TEST_CASE("VeltCriticalSection: another thread waits until the last Leave", "[foundation]",
                   WinCriticalSection, VeltCriticalSection)
{
    TestType made;
    BaseCriticalSection& section = made;
    section.Enter();
    section.Enter(); // the same thread again
    section.Leave();

    volatile LONG isInside = 0;
    TestEvent started;
    TestThread other([&] {
        started.Set();
        section.Enter();
        isInside = 1;
        section.Leave();
    });
    started.Wait();
    ::SwitchToThread();
    CHECK(isInside == 0);
    section.Leave();
    other.Join();
    CHECK(isInside == 1);
}

TEST_CASE("VeltCriticalSection: it is destroyed through its base", "[foundation]")
{
    std::unique_ptr<BaseCriticalSection> section = std::make_unique<VeltCriticalSection>();
    section->Enter();
    section->Leave();
    section.reset();
    CHECK(std::has_virtual_destructor_v<BaseCriticalSection>);
    CHECK(std::is_abstract_v<BaseCriticalSection>);
    CHECK(std::is_base_of_v<WinCriticalSection, VeltCriticalSection>);
    CHECK(sizeof(VeltCriticalSection) == sizeof(void*) + sizeof(CRITICAL_SECTION));
}

TEST_CASE("VeltCriticalSection: its operations stand in the slots that they always had",
          "[foundation]")
{
    CHECK(VirtualSlot(&BaseCriticalSection::Enter) == 2); // behind the destructor's two
    CHECK(VirtualSlot(&BaseCriticalSection::Leave) == 3);
    CHECK(VirtualSlot(&VeltCriticalSection::Enter) == 2);
    CHECK(VirtualSlot(&VeltCriticalSection::Leave) == 3);
}

TEST_CASE("VeltAutoCriticalSection: it enters once and leaves once", "[foundation]")
{
    CountingSection section;
    {
        const VeltAutoCriticalSection lock(&section);
        CHECK(section.entered == 1);
        CHECK(section.left == 0);
    }
    CHECK(section.entered == 1);
    CHECK(section.left == 1);
}

TEST_CASE("VeltAutoCriticalSection: it leaves when an exception passes", "[foundation]")
{
    CountingSection section;
    try
    {
        const VeltAutoCriticalSection lock(&section);
        throw 1;
    }
    catch (int)
    {
        CHECK(section.left == 1);
    }
}

TEST_CASE("VeltAutoCriticalSection: null is allowed and holds nothing", "[foundation]")
{
    CHECK_NOTHROW([] { const VeltAutoCriticalSection lock(nullptr); }());
    CHECK(std::has_virtual_destructor_v<VeltAutoCriticalSection>);
}
