// What test_main_test.sh runs one by one.

#ifdef _WIN32
#include <windows.h>
#endif

#include <catch.hpp>

#include <cstdlib>

TEST_CASE("passes", "[structure]")
{
    // Programs that a test starts are not asked for the exit code.
#ifdef _WIN32
    CHECK(::GetEnvironmentVariableA("VELT_PASSED_CODE", nullptr, 0) == 0);
#else
    CHECK(std::getenv("VELT_PASSED_CODE") == nullptr);
#endif
}

TEST_CASE("fails", "[.child]")
{
    FAIL();
}

TEST_CASE("fails so often that the number is the code of success", "[.child]")
{
    for (int i = 0; i < 42; ++i)
    {
        CHECK(i < 0);
    }
}

TEST_CASE("ends the program", "[.child]")
{
    std::exit(0);
}

#ifdef _WIN32
TEST_CASE("ends the process", "[.child]")
{
    ::ExitProcess(0);
}

TEST_CASE("ends the process by force", "[.child]")
{
    ::TerminateProcess(::GetCurrentProcess(), 0);
}
#else
TEST_CASE("ends the process", "[.child]")
{
    std::quick_exit(0);
}

TEST_CASE("ends the process by force", "[.child]")
{
    std::_Exit(0);
}
#endif
