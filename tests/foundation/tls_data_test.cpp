#include "foundation/tls_data.h"

#include "tests/support/component_library.h"
#include "tests/support/failing_tls.h"
#include "tests/support/test_thread.h"

#include <catch.hpp>

#include <cstdint>
#include <string>
#include <vector>

using velt::test::FailingTls;
using velt::test::OnOtherThread;
using velt::test::TestEvent;
using velt::test::TestThread;

namespace
{
/// Takes all thread-local indexes that the process has left but `spared` ones.
class TlsHog
{
public:
    explicit TlsHog(std::size_t spared = 0)
    {
        DWORD index = ::TlsAlloc();
        for (; index != TLS_OUT_OF_INDEXES; index = ::TlsAlloc())
        {
            m_indexes.push_back(index);
        }
        m_error = ::GetLastError();
        for (; spared > 0 && !m_indexes.empty(); --spared)
        {
            ::TlsFree(m_indexes.back());
            m_indexes.pop_back();
        }
    }

    TlsHog(const TlsHog&) = delete;
    TlsHog& operator=(const TlsHog&) = delete;

    ~TlsHog()
    {
        for (const DWORD index : m_indexes)
        {
            ::TlsFree(index);
        }
    }

    /// What the system says when there are no more.
    DWORD Error() const noexcept
    {
        return m_error;
    }

private:
    std::vector<DWORD> m_indexes;
    DWORD m_error = 0;
};
} // namespace

TEST_CASE("tls_data: every slot starts at the initial value, on every thread", "[foundation]")
{
    tls_data<std::uint32_t> data(3, 7);
    const auto sum = [&] { return data[0] + data[1] + data[2]; };
    CHECK(sum() == 21);
    data[1] = 100;
    CHECK(OnOtherThread(sum) == 21);
}

TEST_CASE("tls_data: each thread has values of its own", "[foundation]")
{
    tls_data<std::uint32_t> data(2, 0);
    data[0] = 1;
    data[1] = 2;
    TestEvent written;
    TestEvent checked;
    std::uint32_t seen = 0;
    TestThread other([&] {
        data[0] = 11;
        data[1] = 12;
        written.Set();
        checked.Wait();
        seen = data[0] * 100 + data[1];
    });
    written.Wait();
    CHECK(data[0] == 1);
    CHECK(data[1] == 2);
    data[0] = 3;
    checked.Set();
    other.Join();
    CHECK(seen == 1112);
    CHECK(data[0] == 3);
}

TEST_CASE("tls_data: a slot stays at its place", "[foundation]")
{
    tls_data<std::uint32_t> data(2, 0);
    std::uint32_t& first = data[0];
    std::uint32_t& second = data[1];
    CHECK(&second == &first + 1);
    for (int i = 0; i < 20; ++i)
    {
        CHECK(OnOtherThread([&] { return &data[0]; }) != &first);
    }
    CHECK(&data[0] == &first);
    CHECK(&data[1] == &second);
}

TEST_CASE("tls_data: an index past the last slot throws", "[foundation]")
{
    tls_data<std::uint32_t> data(2, 0);
    const std::size_t slot = GENERATE(std::size_t{2}, std::size_t{3}, ~std::size_t{0});
    try
    {
        data[slot] = 1;
        FAIL("nothing was thrown");
    }
    catch (const std::out_of_range& e)
    {
        CHECK(e.what() == std::string("tls_data::operator[index] - invalid index"));
    }
    CHECK(data[0] == 0);
    CHECK(data[1] == 0);
}

TEST_CASE("tls_data: without slots every index throws", "[foundation]")
{
    tls_data<std::uint32_t> data(0, 0);
    CHECK_THROWS_AS(data[0], std::out_of_range);
}

TEST_CASE("tls_data: a thread's block outlives the thread", "[foundation]")
{
    tls_data<std::uint32_t> data(1, 5);
    std::vector<std::uint32_t*> blocks;
    for (std::uint32_t i = 0; i < 50; ++i)
    {
        blocks.push_back(OnOtherThread([&] {
            data[0] = i;
            return &data[0];
        }));
    }
    for (std::uint32_t i = 0; i < blocks.size(); ++i)
    {
        CHECK(*blocks[i] == i);
    }
}

TEST_CASE("tls_data: a block that was let go is the next thread's, from the start", "[foundation]")
{
    tls_data<std::uint32_t> data(2, 5);
    data[0] = 1;
    const auto use = [&] {
        CHECK(data[0] + data[1] == 10);
        std::uint32_t* const block = &data[0];
        data[0] = 6;
        data[1] = 7;
        data.LetGo();
        data.LetGo(); // of none
        return block;
    };
    std::uint32_t* const block = OnOtherThread(use);
    CHECK(OnOtherThread(use) == block);
    CHECK(data[0] == 1);
    std::uint32_t* const second = OnOtherThread([&] { return &data[0]; });
    CHECK(second == block);
    CHECK(OnOtherThread(use) != block); // nobody has let it go this time
}

TEST_CASE("tls_data: two objects share nothing, and an index is given back", "[foundation]")
{
    tls_data<std::uint32_t> first(1, 1);
    for (int i = 0; i < 5000; ++i) // more than a process has indexes
    {
        tls_data<std::uint32_t> second(1, 2);
        first[0] = 3;
        REQUIRE(second[0] == 2); // an index that was used before starts anew
        second[0] = 4;
        REQUIRE(first[0] == 3);
    }
}

TEST_CASE("tls_data: eight threads that ask first at once get a block each", "[foundation]")
{
    tls_data<std::uint32_t> data(1, 0);
    TestEvent start;
    std::vector<std::unique_ptr<TestThread>> threads;
    std::vector<std::uint32_t> sums(8);
    for (std::uint32_t& sum : sums)
    {
        threads.push_back(std::make_unique<TestThread>([&] {
            start.Wait();
            for (int i = 0; i < 10'000; ++i)
            {
                ++data[0];
            }
            sum = data[0];
        }));
    }
    start.Set();
    for (const auto& thread : threads)
    {
        thread->Join();
    }
    CHECK(sums == std::vector<std::uint32_t>(8, 10'000));
}

TEST_CASE("tls_data: it is a critical section", "[foundation]")
{
    tls_data<std::uint32_t> data(1, 0);
    const VeltAutoCriticalSection lock(&data);
    data[0] = 1; // on the thread that holds it
    CHECK(data[0] == 1);
    CHECK(std::is_base_of_v<VeltCriticalSection, tls_data<std::uint32_t>>);
}

TEST_CASE("tls_data: with no index left it throws the system's code, and recovers", "[foundation]")
{
    // The first exception of a program takes an index of its own.
    REQUIRE_THROWS_AS(throw std::exception(), std::exception);
    DWORD expected = 0;
    DWORD thrown = 0;
    {
        const TlsHog hog;
        expected = hog.Error();
        try
        {
            const tls_data<std::uint32_t> data(1, 0);
        }
        catch (const SystemException::Win32& e)
        {
            thrown = e.GetCode();
        }
    }
    CHECK(expected != 0);
    CHECK(thrown == expected);
    tls_data<std::uint32_t> data(1, 9);
    CHECK(data[0] == 9);
}

TEST_CASE("tls_data: with too few indexes left the component refuses to load, and recovers",
          "[foundation]")
{
    const std::size_t spared = GENERATE(std::size_t{0}, std::size_t{1});
    const std::wstring path = velt::test::ShippedFile(L"VeltHTTPClient12OEM.dll");
    HMODULE module = nullptr;
    {
        const TlsHog hog(spared);
        module = ::LoadLibraryW(path.c_str());
    }
    CHECK(module == nullptr);
    if (module)
    {
        ::FreeLibrary(module);
    }
    const velt::test::ComponentLibrary library;
    CHECK(library.CanUnloadNow() == S_OK);
}

TEST_CASE(
    "tls_data: a block that the system cannot store throws its code, and the next try is a new "
    "one",
    "[foundation]")
{
    FailingTls failing;
    tls_data<std::uint32_t> data(1, 9);
    failing.Begin();
    for (int i = 0; i < 2; ++i)
    {
        DWORD thrown = 0;
        try
        {
            data[0] = 5;
        }
        catch (const SystemException::Win32& e)
        {
            thrown = e.GetCode();
        }
        CHECK(thrown == FailingTls::kError);
    }
    failing.End();
    CHECK(data[0] == 9);
    data[0] = 6;
    CHECK(data[0] == 6);
}
