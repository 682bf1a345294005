#include "tools/velt/nearest_word.h"

#include <catch.hpp>

#include <string>

using velt::tool::NearestWord;

TEST_CASE("NearestWord: one letter in three may be wrong, whatever it is that is wrong", "[tools]")
{
    constexpr std::string_view kWords[] = {"status", "cookie", "get", "set", "fetch", "unregister"};
    const auto [word, nearest] = GENERATE(table<std::wstring, std::string_view>({
        {L"status", "status"},
        {L"STATUS", "status"},
        {L"statsu", "status"},
        {L"stats", "status"},
        {L"sttauts", "status"},
        {L"statuses", "status"},
        {L"fech", "fetch"},
        {L"gat", "get"},
        {L"egt", "get"}, // two that changed places are one that is wrong
        {L"gte", "get"},
        {L"et", "get"},
        {L"unregistr", "unregister"},
        {L"registr", "unregister"},
        {L"eat", ""},
        {L"stop", ""},
        {L"", ""},
        {L"g\x00EAt", "get"},
    }));
    CHECK(NearestWord(word, kWords).value_or("") == nearest);
}

TEST_CASE("NearestWord: a long word is near to nothing, and takes no time", "[tools]")
{
    constexpr std::string_view kWords[] = {"status"};
    CHECK_FALSE(NearestWord(std::wstring(1'000'000, L's'), kWords));
    CHECK_FALSE(NearestWord(L"status", {}));
    const std::string longest(40, 's');
    const std::string_view words[] = {longest};
    CHECK(NearestWord(std::wstring(40, L's'), words) == longest);
    CHECK_FALSE(NearestWord(std::wstring(41, L's'), words));
}
