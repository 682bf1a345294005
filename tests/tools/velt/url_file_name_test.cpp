#include "tools/velt/url_file_name.h"

#include <catch.hpp>

#include <string>

using namespace velt::tool;

TEST_CASE("FileNameFromUrl: the last part of the path", "[tools]")
{
    const auto [url, name] = GENERATE(table<std::string, std::string>({
        {"http://host/a/b.txt", "b.txt"},
        {"http://host/a/b.txt?query/x#y", "b.txt"},
        {"http://host/b.txt#f?x", "b.txt"},
        {"http://host/a%20b%C3%A4.txt", "a b\xC3\xA4.txt"},
        {"http://host/100%", "100%"},
        {"http://host/%4", "%4"},
        {"http://host/%zz%41", "%zzA"},
        {"b.txt", "b.txt"},
        {"http://host/.hidden", ".hidden"},
    }));
    CHECK(FileNameFromUrl(url) == name);
}

TEST_CASE("FileNameFromUrl: a path without a last part", "[tools]")
{
    for (const char* const url : {"", "http://", "http://host", "http://host/", "http://host/a/",
                                  "http://host?x/y", "http://host/..", "http://host/ . ."})
    {
        CHECK(FileNameFromUrl(url) == "index.html");
    }
}

TEST_CASE("FileNameFromUrl: never leads out of its folder or to a device", "[tools]")
{
    const auto [url, name] = GENERATE(table<std::string, std::string>({
        {"http://h/..%2F..%5Cx", ".._.._x"},
        {"http://h/a%00b%1F%7F", "a_b__"},
        {"http://h/C%3Ax%3C%3E%22%7C%3F%2A", "C_x______"},
        {"http://h/con", "_con"},
        {"http://h/NUL.txt", "_NUL.txt"},
        {"http://h/Com1 .x", "_Com1 .x"},
        {"http://h/com0", "_com0"},
        {"http://h/lpt9", "_lpt9"},
        {"http://h/CONOUT$", "_CONOUT$"},
        {"http://h/com%C2%B9", "_com\xC2\xB9"}, // superscript one, two and three count as digits
        {"http://h/LPT%C2%B2.txt", "_LPT\xC2\xB2.txt"},
        {"http://h/Com%C2%B3 .x", "_Com\xC2\xB3 .x"},
        {"http://h/com%E2%81%B4", "com\xE2\x81\xB4"}, // superscript four does not
        {"http://h/com%C2%B9%C2%B9", "com\xC2\xB9\xC2\xB9"},
        {"http://h/com%C2%B4", "com\xC2\xB4"},
        {"http://h/COM", "COM"},
        {"http://h/conx", "conx"},
        {"http://h/name. .", "name"},
        {"http://h/%FF", "\xEF\xBF\xBD"},
    }));
    CHECK(FileNameFromUrl(url) == name);
}

TEST_CASE("FileNameFromUrl: is cut to 120 characters", "[tools]")
{
    CHECK(FileNameFromUrl("http://h/" + std::string(500, 'x')) == std::string(119, 'x'));
    CHECK(FileNameFromUrl("http://h/nul." + std::string(500, 'x')).size() == 120);
}

TEST_CASE("TakeFileName: numbers the names that are taken", "[tools]")
{
    std::set<std::string> taken;
    CHECK(TakeFileName(taken, "a.txt") == "a.txt");
    CHECK(TakeFileName(taken, "A.TXT") == "A (2).TXT");
    CHECK(TakeFileName(taken, "a.txt") == "a (3).txt");
    CHECK(TakeFileName(taken, "a (2).txt") == "a (2) (2).txt");
    CHECK(TakeFileName(taken, "b") == "b");
    CHECK(TakeFileName(taken, "b") == "b (2)");
}
