#include "tests/support/failing_allocation.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace
{
using velt::test::FailingAllocation;

// Of this thread.
thread_local int t_failing = FailingAllocation::kNone; // counts down to the allocation that fails
thread_local bool t_failsFurther = false;
thread_local bool t_hasFailed = false;
} // namespace

void* operator new(std::size_t size)
{
    if (t_failing == 0)
    {
        t_failing = t_failsFurther ? 0 : FailingAllocation::kNone;
        t_hasFailed = true;
        throw std::bad_alloc();
    }
    if (t_failing > 0)
    {
        --t_failing;
    }
    if (void* const memory = std::malloc(size > 0 ? size : 1))
    {
        return memory;
    }
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

namespace velt::test
{
FailingAllocation::FailingAllocation(int number, Extent extent) noexcept
{
    t_hasFailed = false;
    t_failsFurther = extent == Extent::allFurther;
    t_failing = number;
}

FailingAllocation::~FailingAllocation()
{
    t_failing = kNone;
}

bool FailingAllocation::HasFailed() noexcept
{
    return t_hasFailed;
}
} // namespace velt::test
