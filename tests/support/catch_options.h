#pragma once

#include <catch.hpp>

// The option by which a program fails when no test case has the name that it is given. From version
// 3 of Catch2 on it does so by itself.
#if CATCH_VERSION_MAJOR < 3
#define VELT_FAIL_WITHOUT_TESTS " --warn NoTests"
#else
#define VELT_FAIL_WITHOUT_TESTS ""
#endif
