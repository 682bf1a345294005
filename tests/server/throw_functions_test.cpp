// What the component's containers throw with, in a library of its own.

#include "foundation/library_utils.h"
#include "tests/support/built_file.h"

#include <windows.h>

#include <catch.hpp>

#include <array>
#include <cstddef>
#include <string>

using CLibraryUtils::CLibraryUtilsImpl;

TEST_CASE("The component's containers: what they throw is caught by its base", "[server]")
{
    const auto [what, caught, begin] = GENERATE(table<int, int, std::string>({
        {0, 1, "basic_string::at: "},
        {1, 1, "%s: __pos"},
        {2, 1, "vector::reserve"},
        {3, 1, "basic_string: construction from null"},
        {4, 2, ""},
        {5, 2, ""},
    }));
    CAPTURE(what);
    const CLibraryUtilsImpl library(
        ::LoadLibraryW(velt::test::BuiltFile(L"tests\\server\\throwing_library.dll").c_str()));
    REQUIRE(library.GetModule());
    const auto caughtFrom = reinterpret_cast<int (*)(int, char*, std::size_t)>(
        reinterpret_cast<void*>(::GetProcAddress(library.GetModule(), "CaughtFrom")));
    REQUIRE(caughtFrom);
    std::array<char, 200> text{};
    CHECK(caughtFrom(what, text.data(), text.size()) == caught);
    CHECK(std::string(text.data()).starts_with(begin));
}
