#include "foundation/language_table.h"

#include <catch.hpp>

#include <string>
#include <tuple>

using velt::kLanguages;

TEST_CASE("kLanguages: each language stands at its own index", "[foundation]")
{
    const auto [index, code, name] = GENERATE(table<std::size_t, std::string, std::string>(
        {{0, "CHS", "Chinese (Simplified)"},
         {1, "CHT", "Chinese (Traditional)"},
         {2, "DAN", "Danish"},
         {3, "NLD", "Dutch"},
         {4, "ENU", "English"},
         {5, "FIN", "Finnish"},
         {6, "FRA", "French"},
         {7, "DEU", "German"},
         {8, "ITA", "Italian"},
         {9, "JPN", "Japanese"},
         {10, "KOR", "Korean"},
         {11, "NOR", "Norweigian"}, // the table's own spelling
         {12, "PTG", "Portuguese"},
         {13, "PTB", "Portuguese (Brazil)"},
         {14, "ESN", "Spanish"},
         {15, "SVE", "Swedish"},
         {16, "ENU", "Default (Embedded English)"}}));
    REQUIRE(index < kLanguages.size());
    CHECK(kLanguages[index].code == code);
    CHECK(kLanguages[index].name == name);
}

TEST_CASE("kLanguages: the compiled-in texts are its last row", "[foundation]")
{
    CHECK(kLanguages.size() == 17);
    CHECK(velt::kDefaultLanguage == kLanguages.size() - 1);
}
