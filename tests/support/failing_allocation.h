#pragma once

namespace velt::test
{
/// Has an allocation by `new` of the constructing thread fail until the end of the scope. For
/// programs that have failing_allocation.cpp among their sources: it replaces their allocator.
class FailingAllocation
{
public:
    enum class Extent
    {
        one,
        allFurther,
    };

    static constexpr int kNone = -1;

    /// `number` counts from the next allocation, which is 0; kNone lets all succeed.
    explicit FailingAllocation(int number, Extent extent = Extent::one) noexcept;

    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    /// From here on allocations succeed again.
    ~FailingAllocation();

    /// Whether an allocation has failed since the constructing thread's last object was made.
    static bool HasFailed() noexcept;
};
} // namespace velt::test
