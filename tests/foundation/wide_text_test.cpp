#include "foundation/wide_text.h"

#include "foundation/system_exception.h"
#include "tests/support/import_patch.h"

#include <catch.hpp>

#include <optional>
#include <string>

using velt::ExactNarrowFromWide;
using velt::NarrowFromWide;
using velt::Utf8FromWide;
using velt::WideFromNarrow;
using velt::WideFromUtf8;
using velt::test::ImportPatch;

namespace
{
using ToNarrow = ImportPatch<"WideCharToMultiByte", decltype(::WideCharToMultiByte)>;
using ToWide = ImportPatch<"MultiByteToWideChar", decltype(::MultiByteToWideChar)>;
} // namespace

TEST_CASE("WideFromUtf8: texts come back as they went", "[foundation]")
{
    const auto [utf8, wide] = GENERATE(table<std::string, std::wstring>(
        {{"", L""},
         {"abc", L"abc"},
         {std::string("a\0b", 3), std::wstring(L"a\0b", 3)},
         {"\xC3\xA4\xE4\xB8\xAD\xF0\x9F\x98\x80", L"\u00E4\u4E2D\U0001F600"}}));
    CHECK(WideFromUtf8(utf8) == wide);
    CHECK(Utf8FromWide(wide) == utf8);
}

TEST_CASE("WideFromUtf8: what is not well-formed is replaced", "[foundation]")
{
    CHECK(WideFromUtf8("a\xFFz") == L"a\uFFFDz");
    CHECK(Utf8FromWide(std::wstring{L'a', wchar_t{0xD800}, L'z'}) == "a\xEF\xBF\xBDz");
}

TEST_CASE("NarrowFromWide: the text is in the code page", "[foundation]")
{
    CHECK(NarrowFromWide(L"gr\u00FC\u00DF \u20AC", 1252) == "gr\xFC\xDF \x80");
    CHECK(NarrowFromWide(L"\u0416", 1251) == "\xC6");
    CHECK(NarrowFromWide(L"\u4E2D", 932) == "\x92\x86");
    CHECK(NarrowFromWide(L"\U0001F600", CP_UTF8) == "\xF0\x9F\x98\x80");
    CHECK(NarrowFromWide(std::wstring(L"a\0b", 3), 1252) == std::string("a\0b", 3));
}

TEST_CASE("NarrowFromWide: a character that the code page lacks becomes its default one",
          "[foundation]")
{
    CHECK(NarrowFromWide(L"a\u4E2Dz", 1252) == "a?z");
}

TEST_CASE("NarrowFromWide: an empty text stays empty", "[foundation]")
{
    CHECK(NarrowFromWide(L"", CP_ACP).empty());
    CHECK(NarrowFromWide({}, CP_THREAD_ACP).empty());
}

TEST_CASE("NarrowFromWide: an unknown code page throws the system's code", "[foundation]")
{
    try
    {
        NarrowFromWide(L"a", 64999);
        FAIL("nothing was thrown");
    }
    catch (const SystemException::Win32& e)
    {
        CHECK(e.GetCode() == ERROR_INVALID_PARAMETER);
    }
}

TEST_CASE("NarrowFromWide, WideFromNarrow: a system that refuses throws its code", "[foundation]")
{
    const bool refusesSize = GENERATE(true, false); // or the conversion
    const auto refuses = [&](int room) {
        ::SetLastError(ERROR_NOACCESS);
        return (room == 0) == refusesSize;
    };
    const ToNarrow narrow("kernel32.dll", [&](UINT codePage, DWORD flags, const wchar_t* text,
                                              int length, char* to, int room, const char* other,
                                              BOOL* used) {
        return refuses(room)
                   ? 0
                   : ToNarrow::Original(codePage, flags, text, length, to, room, other, used);
    });
    const ToWide wide("kernel32.dll", [&](UINT codePage, DWORD flags, const char* text, int length,
                                          wchar_t* to, int room) {
        return refuses(room) ? 0 : ToWide::Original(codePage, flags, text, length, to, room);
    });
    DWORD code = 0;
    const bool isNarrow = GENERATE(true, false);
    try
    {
        isNarrow ? void(NarrowFromWide(L"abc", 1252)) : void(WideFromNarrow("abc", 1252));
    }
    catch (const SystemException::Win32& e)
    {
        code = e.GetCode();
    }
    CHECK(code == ERROR_NOACCESS);
    CHECK(ExactNarrowFromWide(L"abc", 1252) == std::nullopt);
}

TEST_CASE("ExactNarrowFromWide: only what comes back as it went", "[foundation]")
{
    CHECK(ExactNarrowFromWide(L"gr\u00FC\u00DF \u20AC", 1252) == "gr\xFC\xDF \x80");
    CHECK(ExactNarrowFromWide(L"\U0001F600", CP_UTF8) == "\xF0\x9F\x98\x80");
    CHECK(ExactNarrowFromWide(std::wstring(L"a\0b", 3), 1252) == std::string("a\0b", 3));
    CHECK(ExactNarrowFromWide(L"", 1252) == "");
    CHECK_FALSE(ExactNarrowFromWide(L"a\u4E2Dz", 1252)); // would be "a?z"
    CHECK_FALSE(ExactNarrowFromWide(L"\u0100", 1252));   // may become an A
    CHECK_FALSE(ExactNarrowFromWide(std::wstring(1, wchar_t{0xD800}), CP_UTF8));
    CHECK_FALSE(ExactNarrowFromWide(L"a", 64999));
}
