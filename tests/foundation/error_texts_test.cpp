#include "foundation/error_texts.h"

#include "tests/support/language_scope.h"

#include <catch.hpp>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

TEST_CASE("error_texts: the eight texts are registered under their ids", "[foundation]")
{
    const velt::test::LanguageScope scope;
    std::vector<std::pair<std::int32_t, std::string>> registered;
    for (const VeltText* text = VeltText::First(); text; text = text->Next())
    {
        if (text->GetId() < 0 && text->GetId() > -100)
        {
            registered.emplace_back(text->GetId(), text->GetText());
        }
    }
    const std::vector<std::pair<std::int32_t, std::string>> expected = {
        {-15, "operating system error: MMRESULT = %0"},
        {-14, "operating system error: HRESULT = %0 - %1"},
        {-12, "operating system error: number = %0 - %1"},
        {-11, "operating system error: number = %0 - %1"},
        {-4, "unknown error: %0"},
        {-3, "runtime error: %0"},
        {-2, "internal software error: %0, line %1"},
        {-1, "memory allocation error"}};
    CHECK(registered == expected);
}

TEST_CASE("error_texts: the exceptions use the ids that are theirs", "[foundation]")
{
    CHECK(velt::error_texts::kInternalError.GetId() == -2);
    CHECK(velt::error_texts::kWin32Error.GetId() == -12);
    CHECK(velt::error_texts::kHResultError.GetId() == -14);
}
