#include "foundation/velt_text.h"

#include "foundation/wide_text.h"
#include "tests/support/import_patch.h"
#include "tests/support/language_scope.h"
#include "tests/support/temp_folder.h"
#include "tests/support/virtual_slot.h"

#include <catch.hpp>

#include <string>
#include <vector>

using velt::kDefaultLanguage;
using velt::Utf8FromWide;
using velt::test::LanguageScope;
using velt::test::TempFolder;
using velt::test::VirtualSlot;

namespace
{
constexpr std::uint32_t kGerman = 7;
constexpr std::uint32_t kFrench = 6;

// Out of order, one id twice, one as large and one as small as an id can be.
const VeltText kLast(2147483647, "last");
const VeltText kGreeting(9012, "Hello %0 and %1");
const VeltText kOlder(9010, "older");
const VeltText kNeverTranslated(0, "never translated");
const VeltText kFirst(-2147483647 - 1, "first");
const VeltText kNewer(9010, "newer");

std::string Utf8File(const std::string& lines)
{
    return "\xEF\xBB\xBF" + lines;
}

VeltText::LanguageImpl& Language()
{
    return VeltText::Language();
}
} // namespace

TEST_CASE("VeltText: texts are linked by ascending id, the newer of one id first", "[foundation]")
{
    const VeltText* before = nullptr;
    std::vector<const VeltText*> twins;
    std::size_t own = 0;
    for (const VeltText* text = VeltText::First(); text; text = text->Next())
    {
        if (before)
        {
            CHECK(before->GetId() <= text->GetId());
        }
        if (text->GetId() == 9010)
        {
            twins.push_back(text);
        }
        own += text == &kLast || text == &kGreeting || text == &kNeverTranslated || text == &kFirst;
        before = text;
    }
    CHECK(twins == std::vector<const VeltText*>{&kNewer, &kOlder});
    CHECK(own == 4);
    CHECK(VeltText::First() == &kFirst);
    CHECK(before == &kLast);
}

TEST_CASE("VeltText: its operations stand in the slots that they always had", "[foundation]")
{
    CHECK(VirtualSlot(&VeltText::GetId) == 2); // behind the destructor's two
    CHECK(VirtualSlot(&VeltText::Format) == 3);
    CHECK(VirtualSlot(&VeltText::GetText) == 4);

    CHECK(VirtualSlot(&VeltText::LanguageImpl::GetLanguage) == 0);
    CHECK(VirtualSlot(&VeltText::LanguageImpl::GetLanguageCode) == 1);
    CHECK(VirtualSlot(&VeltText::LanguageImpl::Lookup) == 2);
    CHECK(VirtualSlot(&VeltText::LanguageImpl::SetLanguage) == 3);
}

TEST_CASE("VeltText: the compiled-in text is in force until a language is loaded", "[foundation]")
{
    const LanguageScope scope;
    CHECK(Language().GetLanguage() == kDefaultLanguage);
    CHECK(kGreeting.GetId() == 9012);
    CHECK(kGreeting.GetText() == "Hello %0 and %1");
    CHECK(kGreeting.Format({"Ann", "Bob"}) == "Hello Ann and Bob");
    CHECK(Language().Lookup(9012).empty());
}

TEST_CASE("VeltText: a translation replaces the text, unless it is empty or the id is 0",
          "[foundation]")
{
    const LanguageScope scope;
    const TempFolder folder;
    folder.Write(L"DEU.txt", Utf8File("9012 Hallo %0 und %1\n9010\n0 null\n0x0 null\n"));
    Language().SetLanguage(kGerman, Utf8FromWide(folder.Path()));
    CHECK(Language().GetLanguage() == kGerman);
    CHECK(kGreeting.GetText() == "Hallo %0 und %1");
    CHECK(kGreeting.Format({"Ann", "Bob"}) == "Hallo Ann und Bob");
    CHECK(kOlder.GetText() == "older");
    CHECK(kNeverTranslated.GetText() == "never translated");
    CHECK(kLast.GetText() == "last");
}

TEST_CASE("VeltText: a translation with its placeholders the wrong way round keeps the second",
          "[foundation]")
{
    const LanguageScope scope;
    const TempFolder folder;
    folder.Write(L"DEU.txt", Utf8File("9012 %1 gruesst %0\n"));
    Language().SetLanguage(kGerman, Utf8FromWide(folder.Path()));
    CHECK(kGreeting.Format({"Ann", "Bob"}) == "%1 gruesst Ann");
}

TEST_CASE("VeltText: a language file loads from a folder of any name", "[foundation]")
{
    const LanguageScope scope;
    const std::wstring name =
        GENERATE(std::wstring(L"with blanks"), std::wstring(L"Gr\u00FC\u00DFe"),
                 std::wstring(L"\u4E2D\u6587 \u0416"), std::wstring(L"\U0001F600"));
    const TempFolder folder(name);
    folder.Write(L"FRA.txt", Utf8File("9012 Bonjour\n"));
    Language().SetLanguage(kFrench, Utf8FromWide(folder.Path()));
    CHECK(Language().GetLanguage() == kFrench);
    CHECK(kGreeting.GetText() == "Bonjour");
}

TEST_CASE("VeltText: on the older Windows family files have names in the code page", "[foundation]")
{
    const LanguageScope scope;
    using Patch = velt::test::ImportPatch<"GetVersion", decltype(::GetVersion)>;
    const Patch older("kernel32.dll", [] { return Patch::Original() | 0x80000000; });
    const TempFolder plain(L"Gr\u00FC\u00DFe");
    plain.Write(L"DEU.txt", Utf8File("9012 Hallo\n"));
    const TempFolder beyond(L"\u4E2D\u6587");
    beyond.Write(L"FRA.txt", Utf8File("9012 Bonjour\n"));
    BOOL isReplaced = FALSE;
    ::WideCharToMultiByte(CP_ACP, 0, L"\u4E2D\u6587", 2, nullptr, 0, nullptr, &isReplaced);
    REQUIRE(isReplaced); // the system's code page is a Western one here

    Language().SetLanguage(kGerman, Utf8FromWide(plain.Path()));
    CHECK(kGreeting.GetText() == "Hallo");
    Language().SetLanguage(kFrench, Utf8FromWide(beyond.Path()));
    CHECK(Language().GetLanguage() == kDefaultLanguage);
    CHECK(kGreeting.GetText() == "Hello %0 and %1");
    CHECK(older.Calls() == 2);
}

TEST_CASE("VeltText: a file in any encoding loads the same texts", "[foundation]")
{
    const LanguageScope scope;
    const TempFolder folder;
    const std::u16string text = u"9012 gr\xFC\xDF\x4E2D\r\n";
    std::string little = "\xFF\xFE";
    std::string big = "\xFE\xFF";
    for (const char16_t unit : text)
    {
        little += {static_cast<char>(unit & 0xFF), static_cast<char>(unit >> 8)};
        big += {static_cast<char>(unit >> 8), static_cast<char>(unit & 0xFF)};
    }
    const std::string expected = "gr\xC3\xBC\xC3\x9F\xE4\xB8\xAD";
    const std::string bytes =
        GENERATE_COPY(as<std::string>{}, little, big, Utf8File("9012 " + expected + "\r\n"));
    folder.Write(L"DEU.txt", bytes);
    Language().SetLanguage(kGerman, Utf8FromWide(folder.Path()));
    CHECK(kGreeting.GetText() == expected);
}

TEST_CASE("VeltText: every row of the language table but the last reads its own file",
          "[foundation]")
{
    const LanguageScope scope;
    const TempFolder folder;
    for (std::uint32_t index = 0; index < kDefaultLanguage; ++index)
    {
        const std::string code = Language().GetLanguageCode(index);
        CHECK(code == velt::kLanguages[index].code);
        folder.Write(std::wstring(code.begin(), code.end()) + L".txt",
                     Utf8File("9012 " + code + "\n"));
    }
    for (std::uint32_t index = 0; index < kDefaultLanguage; ++index)
    {
        Language().SetLanguage(index, Utf8FromWide(folder.Path()));
        CHECK(Language().GetLanguage() == index);
        CHECK(kGreeting.GetText() == velt::kLanguages[index].code);
    }
}

TEST_CASE("VeltText: the default language never reads a file", "[foundation]")
{
    const LanguageScope scope;
    const TempFolder folder;
    folder.Write(L"DEU.txt", Utf8File("9012 Hallo\n"));
    folder.Write(L"ENU.txt", Utf8File("9012 Howdy\n"));
    Language().SetLanguage(kGerman, Utf8FromWide(folder.Path()));
    REQUIRE(kGreeting.GetText() == "Hallo");
    Language().SetLanguage(kDefaultLanguage, Utf8FromWide(folder.Path()));
    CHECK(Language().GetLanguage() == kDefaultLanguage);
    CHECK(kGreeting.GetText() == "Hello %0 and %1");
    CHECK(Language().GetLanguageCode(kDefaultLanguage) == std::string("ENU"));
    CHECK(Language().GetLanguageCode(kDefaultLanguage + 1) == nullptr);
}

TEST_CASE("VeltText: the current language does not reload a changed file", "[foundation]")
{
    const LanguageScope scope;
    const TempFolder folder;
    const std::string path = Utf8FromWide(folder.Path());
    folder.Write(L"DEU.txt", Utf8File("9012 first\n"));
    Language().SetLanguage(kGerman, path);
    folder.Write(L"DEU.txt", Utf8File("9012 second\n"));
    Language().SetLanguage(kGerman, path);
    CHECK(kGreeting.GetText() == "first");
    Language().SetLanguage(kGerman, path + "\\elsewhere");
    CHECK(kGreeting.GetText() == "first");
    Language().SetLanguage(kDefaultLanguage, path);
    Language().SetLanguage(kGerman, path);
    CHECK(kGreeting.GetText() == "second");
}

TEST_CASE("VeltText: a language that cannot be had leaves the compiled-in texts", "[foundation]")
{
    const LanguageScope scope;
    const TempFolder folder;
    const std::string path = Utf8FromWide(folder.Path());
    folder.Write(L"DEU.txt", Utf8File("9012 Hallo\n"));
    Language().SetLanguage(kGerman, path);
    REQUIRE(kGreeting.GetText() == "Hallo");

    SECTION("no file")
    {
        Language().SetLanguage(kFrench, path);
    }
    SECTION("no folder")
    {
        Language().SetLanguage(kFrench, path + "\\none");
    }
    SECTION("a folder's name that is not UTF-8")
    {
        Language().SetLanguage(kFrench, path + "\\\xFF");
    }
    SECTION("a folder in place of the file")
    {
        REQUIRE(::CreateDirectoryW(folder.File(L"FRA.txt").c_str(), nullptr));
        Language().SetLanguage(kFrench, path);
        ::RemoveDirectoryW(folder.File(L"FRA.txt").c_str());
    }
    SECTION("an index past the table's end")
    {
        Language().SetLanguage(17, path);
    }
    SECTION("the largest index")
    {
        Language().SetLanguage(~std::uint32_t{0}, path);
    }
    CHECK(Language().GetLanguage() == kDefaultLanguage);
    CHECK(kGreeting.GetText() == "Hello %0 and %1");
}

TEST_CASE("VeltText: an empty file is a language without translations", "[foundation]")
{
    const LanguageScope scope;
    const TempFolder folder;
    folder.Write(L"DEU.txt", "");
    Language().SetLanguage(kGerman, Utf8FromWide(folder.Path()));
    CHECK(Language().GetLanguage() == kGerman);
    CHECK(kGreeting.GetText() == "Hello %0 and %1");
}

TEST_CASE("VeltText: a language code past the table's end is null", "[foundation]")
{
    CHECK(Language().GetLanguageCode(17) == nullptr);
    CHECK(Language().GetLanguageCode(~std::uint32_t{0}) == nullptr);
}
