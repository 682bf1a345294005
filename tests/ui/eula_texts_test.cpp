#include "ui/eula_texts.h"

#include <catch.hpp>

#include <string>

using velt::EulaTexts;

namespace
{
/// The texts in one line, "-" for those that were not given.
std::wstring Line(const EulaTexts& texts)
{
    std::wstring line;
    for (const auto* text : {&texts.title, &texts.decline, &texts.accept, &texts.ok})
    {
        line += text->value_or(L"-") + L"|";
    }
    return line;
}
} // namespace

TEST_CASE("EulaTexts: each key has its own text", "[ui]")
{
    const auto [key, line] = GENERATE(table<std::wstring, std::wstring>({
        {L"enu_user_license_agreement", L"new|-|-|-|"},
        {L"i_do_not_accept", L"-|new|-|-|"},
        {L"i_accept", L"-|-|new|-|"},
        {L"btn_ok", L"-|-|-|new|"},
    }));
    EulaTexts texts;
    CHECK(Line(texts) == L"-|-|-|-|");
    texts.Put(key, L"new");
    CHECK(Line(texts) == line);
}

TEST_CASE("EulaTexts: a key is matched exactly and with its case", "[ui]")
{
    const std::wstring key =
        GENERATE(as<std::wstring>{}, L"", L"I_ACCEPT", L"I_accept", L" i_accept", L"i_accept ",
                 L"i_accep", L"i_accepts", std::wstring(L"i_accept\0", 9), L"btn_cancel");
    EulaTexts texts;
    texts.Put(key, L"new");
    CHECK(Line(texts) == L"-|-|-|-|");
}

TEST_CASE("EulaTexts: a later text replaces an earlier one, also by an empty one", "[ui]")
{
    EulaTexts texts;
    texts.Put(L"btn_ok", L"first");
    texts.Put(L"btn_ok", L"second");
    CHECK(texts.ok == L"second");
    texts.Put(L"btn_ok", L"");
    CHECK(texts.ok == L"");
}
