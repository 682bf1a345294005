#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

namespace velt::test
{
/// The slot of a virtual member function in its class's table of functions, the way our compilers
/// keep it on x86: a pointer to a virtual member holds the slot's offset plus 1. A virtual
/// destructor takes two slots. For a member that is not virtual the answer is kNotVirtual.
inline constexpr std::size_t kNotVirtual = ~std::size_t{0};

template <class Member>
constexpr std::size_t VirtualSlot(Member member) noexcept
{
    struct Layout
    {
        std::uintptr_t value;
        std::ptrdiff_t adjustment;
    };
    static_assert(sizeof(Layout) == sizeof(member));
    const std::uintptr_t value = std::bit_cast<Layout>(member).value;
    return (value & 1) != 0 ? (value - 1) / sizeof(void*) : kNotVirtual;
}
} // namespace velt::test
