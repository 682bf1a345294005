#include "foundation/unique_handle.h"

#include <catch.hpp>

#include <type_traits>
#include <utility>
#include <vector>

using velt::UniqueHandle;
using velt::UniqueKernelObject;
using velt::UniqueLocalMemory;

namespace
{
/// Handles that are numbers, -1 for none, and remember what was closed.
struct NumberTraits
{
    using Type = int;

    static Type Invalid() noexcept
    {
        return -1;
    }

    static void Close(Type handle) noexcept
    {
        ::SetLastError(ERROR_INVALID_HANDLE); // as a system call may
        s_closed.push_back(handle);
    }

    inline static std::vector<int> s_closed;
};
using UniqueNumber = UniqueHandle<NumberTraits>;

/// The numbers closed since the last question.
std::vector<int> Closed()
{
    return std::exchange(NumberTraits::s_closed, {});
}

HANDLE NewEvent()
{
    return ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
}

bool IsOpen(HANDLE handle)
{
    DWORD flags = 0;
    return ::GetHandleInformation(handle, &flags) != FALSE;
}
} // namespace

TEST_CASE("UniqueHandle: it closes what it owns, once", "[foundation]")
{
    {
        const UniqueNumber number(5);
        CHECK(number.Get() == 5);
        CHECK(static_cast<bool>(number));
        CHECK(Closed().empty());
    }
    CHECK(Closed() == std::vector<int>{5});
}

TEST_CASE("UniqueHandle: an empty one closes nothing", "[foundation]")
{
    {
        UniqueNumber number;
        CHECK(number.Get() == -1);
        CHECK_FALSE(static_cast<bool>(number));
        number.Reset();
        const UniqueNumber invalid(-1);
        CHECK_FALSE(static_cast<bool>(invalid));
        const UniqueNumber zero(0); // 0 is a handle like others for these traits
        CHECK(static_cast<bool>(zero));
    }
    CHECK(Closed() == std::vector<int>{0});
}

TEST_CASE("UniqueHandle: moving hands the resource over", "[foundation]")
{
    {
        UniqueNumber first(1);
        UniqueNumber second(std::move(first));
        CHECK(first.Get() == -1);
        CHECK(second.Get() == 1);

        UniqueNumber third(3);
        third = std::move(second);
        CHECK(Closed() == std::vector<int>{3});
        CHECK(second.Get() == -1);
        CHECK(third.Get() == 1);

        first = UniqueNumber(2); // a moved-from one can be used again
        CHECK(first.Get() == 2);
        third = std::move(second); // an empty one takes away
        CHECK(Closed() == std::vector<int>{1});
        CHECK_FALSE(static_cast<bool>(third));
    }
    CHECK(Closed() == std::vector<int>{2});
    CHECK_FALSE(std::is_copy_constructible_v<UniqueNumber>);
    CHECK_FALSE(std::is_copy_assignable_v<UniqueNumber>);
    CHECK(std::is_nothrow_move_constructible_v<UniqueNumber>);
}

TEST_CASE("UniqueHandle: it survives being assigned to itself", "[foundation]")
{
    {
        UniqueNumber number(4);
        UniqueNumber& same = number;
        number = std::move(same);
        CHECK(number.Get() == 4);
        number.Reset(4);
        CHECK(number.Get() == 4);
        CHECK(Closed().empty());
    }
    CHECK(Closed() == std::vector<int>{4});
}

TEST_CASE("UniqueHandle: Reset closes the old one and takes the new one", "[foundation]")
{
    {
        UniqueNumber number(6);
        number.Reset(7);
        CHECK(Closed() == std::vector<int>{6});
        CHECK(number.Get() == 7);
        number.Reset();
        CHECK(Closed() == std::vector<int>{7});
        CHECK_FALSE(static_cast<bool>(number));
    }
    CHECK(Closed().empty());
}

TEST_CASE("UniqueHandle: Release gives the resource up", "[foundation]")
{
    {
        UniqueNumber number(8);
        CHECK(number.Release() == 8);
        CHECK(number.Release() == -1);
    }
    CHECK(Closed().empty());
}

TEST_CASE("UniqueHandle: Put closes first and takes what the call stores", "[foundation]")
{
    {
        UniqueNumber number(9);
        int* const place = number.Put();
        CHECK(Closed() == std::vector<int>{9});
        CHECK(*place == -1);
        *place = 10;
        CHECK(number.Get() == 10);
    }
    CHECK(Closed() == std::vector<int>{10});
}

TEST_CASE("UniqueHandle: closing keeps the thread's last error", "[foundation]")
{
    ::SetLastError(ERROR_BUSY);
    {
        UniqueNumber number(1);
        number.Reset(2);
        number.Reset();
        number.Reset(3);
    }
    CHECK(::GetLastError() == ERROR_BUSY);
    CHECK(Closed().size() == 3);
}

TEST_CASE("UniqueKernelObject: the handle is closed", "[foundation]")
{
    const HANDLE event = NewEvent();
    {
        const UniqueKernelObject owner(event);
        CHECK(IsOpen(event));
    }
    CHECK_FALSE(IsOpen(event));
}

TEST_CASE("UniqueLocalMemory: the block is freed", "[foundation]")
{
    HLOCAL const block = ::LocalAlloc(LMEM_MOVEABLE, 100);
    REQUIRE(::LocalSize(block) == 100);
    {
        const UniqueLocalMemory<void> owner(block);
        CHECK(owner.Get() == block);
    }
    ::SetLastError(0);
    CHECK(::LocalSize(block) == 0);
    CHECK(::GetLastError() == ERROR_INVALID_HANDLE);
}
