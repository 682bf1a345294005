#include "foundation/velt_exception.h"

#include "foundation/wide_text.h"
#include "tests/support/import_patch.h"
#include "tests/support/language_scope.h"
#include "tests/support/temp_folder.h"
#include "tests/support/virtual_slot.h"

#include <catch.hpp>

#include <string>
#include <type_traits>
#include <typeinfo>

using velt::test::LanguageScope;
using velt::test::TempFolder;
using velt::test::VirtualSlot;

namespace
{
const VeltText kTemplate(9100, "template %0");
} // namespace

TEST_CASE("VeltException: a broken contract names its file and line", "[foundation]")
{
    const LanguageScope scope;
    const VeltException e("queue_manager.cpp", 42);
    CHECK(e.GetId() == -2);
    CHECK(e.GetMessage() == "internal software error: queue_manager.cpp, line 42");
    CHECK(e.what() == e.GetMessage());
    CHECK(e.GetDetail().empty());
    CHECK(VeltException("", -1).GetMessage() == "internal software error: , line -1");
}

TEST_CASE("VeltException: a file name that looks like a placeholder is not filled", "[foundation]")
{
    const LanguageScope scope;
    CHECK(VeltException("%1", 7).GetMessage() == "internal software error: %1, line 7");
}

TEST_CASE("VeltException: a template is the message as it stands", "[foundation]")
{
    const LanguageScope scope;
    const VeltException e(kTemplate);
    CHECK(e.GetId() == 9100);
    CHECK(e.GetMessage() == "template %0");
    CHECK(e.GetDetail().empty());
}

TEST_CASE("VeltException: the message is in the language of its making", "[foundation]")
{
    const LanguageScope scope;
    const TempFolder folder;
    folder.Write(L"DEU.txt", "\xEF\xBB\xBF-2 interner Fehler: %0, Zeile %1\n9100 Vorlage\n");
    VeltText::Language().SetLanguage(7, velt::Utf8FromWide(folder.Path()));
    const VeltException internal("a.cpp", 1);
    const VeltException other(kTemplate);
    VeltText::Language().SetLanguage(velt::kDefaultLanguage, "");
    CHECK(internal.GetMessage() == "interner Fehler: a.cpp, Zeile 1");
    CHECK(other.GetMessage() == "Vorlage");
}

TEST_CASE("VeltException: what() is in the ANSI code page", "[foundation]")
{
    const LanguageScope scope;
    const std::wstring file = L"gr\u00FC\u00DF.cpp";
    const VeltException e(velt::Utf8FromWide(file).c_str(), 1);
    CHECK(e.GetMessage() == "internal software error: gr\xC3\xBC\xC3\x9F.cpp, line 1");

    const std::wstring message = L"internal software error: " + file + L", line 1";
    CHECK(e.what() == velt::NarrowFromWide(message, CP_ACP));
    INFO("ANSI code page " << ::GetACP());
    if (::GetACP() == 1252)
    {
        CHECK(e.what() == std::string("internal software error: gr\xFC\xDF.cpp, line 1"));
    }
    CHECK(std::string(e.what()) == std::string(e.what())); // the second call answers as the first
}

TEST_CASE("VeltException: what() shows characters that the code page lacks as others",
          "[foundation]")
{
    const LanguageScope scope;
    const VeltException e("\xE4\xB8\xAD.cpp", 1);
    if (::GetACP() == 1252)
    {
        CHECK(e.what() == std::string("internal software error: ?.cpp, line 1"));
    }
    CHECK(std::string(e.what()).find(".cpp, line 1") != std::string::npos);
}

TEST_CASE("VeltException: a detail is kept, replaced and set to itself", "[foundation]")
{
    VeltException e("a.cpp", 1);
    CHECK(&e.SetDetail("while loading") == &e);
    CHECK(e.GetDetail() == "while loading");
    CHECK(&e.SetDetail(e.GetDetail()) == &e);
    CHECK(e.GetDetail() == "while loading");
    e.SetDetail("");
    CHECK(e.GetDetail().empty());
}

TEST_CASE("VeltException: a copy is whole and on its own", "[foundation]")
{
    const LanguageScope scope;
    VeltException original("a.cpp", 1);
    original.SetDetail("detail");
    REQUIRE(std::string(original.what()) == original.GetMessage());

    const std::unique_ptr<VeltException> clone = original.Clone();
    original.SetDetail("changed");
    REQUIRE(clone);
    CHECK(typeid(*clone) == typeid(VeltException));
    CHECK(clone->GetId() == -2);
    CHECK(clone->GetMessage() == original.GetMessage());
    CHECK(clone->GetDetail() == "detail");
    CHECK(clone->what() == clone->GetMessage());
    CHECK_FALSE(clone->what() == original.what()); // each has a text of its own

    VeltException assigned(kTemplate);
    assigned = *clone;
    CHECK(assigned.GetId() == -2);
    CHECK(assigned.GetMessage() == clone->GetMessage());
    CHECK(assigned.GetDetail() == "detail");
    CHECK(assigned.what() == clone->GetMessage());
}

TEST_CASE("VeltException: Raise throws a copy of it", "[foundation]")
{
    VeltException original("a.cpp", 1);
    original.SetDetail("detail");
    try
    {
        original.Raise();
        FAIL("nothing was thrown");
    }
    catch (const VeltException& e)
    {
        CHECK(typeid(e) == typeid(VeltException));
        CHECK(&e != &original);
        CHECK(e.GetDetail() == "detail");
        CHECK(e.GetMessage() == original.GetMessage());
    }
}

TEST_CASE("VeltException: its operations stand in the slots that they always had", "[foundation]")
{
    CHECK(VirtualSlot(&VeltException::what) == 2); // behind the destructor's two
    CHECK(VirtualSlot(&VeltException::Clone) == 3);
    CHECK(VirtualSlot(&VeltException::GetDetail) == 4);
    CHECK(VirtualSlot(&VeltException::GetId) == 5);
    CHECK(VirtualSlot(&VeltException::GetMessage) == 6);
    CHECK(VirtualSlot(&VeltException::SetDetail) == 7);
    CHECK(VirtualSlot(&VeltException::Raise) == 8);
    CHECK(std::is_base_of_v<std::exception, VeltException>);
}

TEST_CASE("VeltException: what() is empty when the message cannot be converted", "[foundation]")
{
    const LanguageScope scope;
    const VeltException e("a.cpp", 1);
    {
        const velt::test::ImportPatch<"WideCharToMultiByte", decltype(::WideCharToMultiByte)>
            refusing("kernel32.dll",
                     [](UINT, DWORD, const wchar_t*, int, char*, int, const char*, BOOL*) {
                         ::SetLastError(ERROR_NO_UNICODE_TRANSLATION);
                         return 0;
                     });
        CHECK(std::string(e.what()).empty());
    }
    CHECK(std::string(e.what()) == "internal software error: a.cpp, line 1");
}
