#include "ui/eula_texts_file.h"

#include "foundation/language_table.h"
#include "foundation/wide_text.h"
#include "tests/support/built_file.h"
#include "tests/support/com_apartment.h"
#include "tests/support/http_server.h"
#include "tests/support/temp_folder.h"
#include "tests/support/test_thread.h"
#include "tests/support/trace_recorder.h"
#include "tests/ui/plain_window.h"

#include <catch.hpp>

#include <algorithm>
#include <iterator>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <string_view>

using velt::EulaTexts;
using namespace velt::test;

namespace
{
constexpr auto kNever = [] { return false; };

EulaTexts ReadFile(const std::wstring& path)
{
    const ComApartment com;
    const PlainWindow dialog;
    return velt::ReadEulaTexts(path, dialog.Window(), kNever);
}

EulaTexts Read(std::string_view xml)
{
    const TempFolder folder;
    folder.Write(L"texts.xml", xml);
    return ReadFile(folder.File(L"texts.xml"));
}

bool IsEmpty(const EulaTexts& texts)
{
    return !texts.title && !texts.decline && !texts.accept && !texts.ok;
}

std::string Record(const std::string& key, const std::string& value)
{
    return "<RECORD><KEY>" + key + "</KEY><TEXT>" + value + "</TEXT></RECORD>";
}

/// A document of records, and of what is none, in random order, with the texts that it stands for.
class RandomDocument
{
public:
    explicit RandomDocument(unsigned seed) : m_random(seed)
    {
        if (OneOf(2) == 0)
        {
            m_xml = "<?xml version='1.0' encoding='UTF-8'?>";
        }
        Space();
        m_xml += "<Texts>";
        for (unsigned i = OneOf(20); i > 0; --i)
        {
            Space();
            OneOf(4) == 0 ? AddOther() : AddRecord();
        }
        Space();
        m_xml += "</Texts>";
    }

    const std::string& Xml() const noexcept
    {
        return m_xml;
    }

    const EulaTexts& Expected() const noexcept
    {
        return m_expected;
    }

    /// With some of its bytes changed, or without its end.
    std::string Damaged()
    {
        std::string xml = m_xml;
        for (unsigned i = OneOf(4); i > 0; --i)
        {
            xml[OneOf(static_cast<unsigned>(xml.size()))] = static_cast<char>(m_random());
        }
        xml.resize(xml.size() - OneOf(2) * OneOf(static_cast<unsigned>(xml.size())));
        return xml;
    }

private:
    unsigned OneOf(unsigned count)
    {
        return static_cast<unsigned>(m_random() % count);
    }

    void Space()
    {
        static constexpr const char* kSpaces[] = {"", " ", "\r\n", "\n\t"};
        m_xml += kSpaces[OneOf(std::size(kSpaces))];
    }

    /// What has no record's place, name or shape.
    void AddOther()
    {
        static constexpr const char* kOthers[] = {
            "text",
            "<!-- <RECORD><K>btn_ok</K><V>comment</V></RECORD> -->",
            "<record><K>btn_ok</K><V>other case</V></record>",
            "<RECORDS><K>btn_ok</K><V>other name</V></RECORDS>",
            "<IN><RECORD><K>btn_ok</K><V>deeper</V></RECORD></IN>",
            "<?RECORD btn_ok?>",
            "<RECORD/>",
            "<RECORD key='btn_ok' value='attribute'/>",
        };
        m_xml += kOthers[OneOf(std::size(kOthers))];
    }

    void AddRecord()
    {
        static constexpr struct
        {
            const char* key;
            std::optional<std::wstring> EulaTexts::*text;
        } kKeys[] = {
            {"enu_user_license_agreement", &EulaTexts::title},
            {"i_do_not_accept", &EulaTexts::decline},
            {"i_accept", &EulaTexts::accept},
            {"btn_ok", &EulaTexts::ok},
            {"BTN_OK", nullptr},
            {"other", nullptr},
        };
        const auto& [key, text] = kKeys[OneOf(std::size(kKeys))];
        std::wstring value;
        std::string markup;
        for (unsigned i = OneOf(30); i > 0; --i)
        {
            AddCharacter(value, markup);
        }
        if (text)
        {
            m_expected.*text = value;
        }
        m_xml += "<RECORD>";
        Space();
        m_xml += "<K>" + std::string(key) + "</K>";
        if (OneOf(4) == 0)
        {
            m_xml += "<N>btn_ok</N><!-- between -->";
        }
        m_xml += "<V>" + markup + "</V>";
        Space();
        m_xml += "</RECORD>";
    }

    /// A character as text, and as one of the ways to write it.
    void AddCharacter(std::wstring& text, std::string& markup)
    {
        static constexpr struct
        {
            const wchar_t* text;
            const char* markup;
        } kCharacters[] = {
            {L"a", "a"},
            {L"&", "&amp;"},
            {L"<", "&lt;"},
            {L"]]>", "]]&gt;"},
            {L"\"", "\""},
            {L"'", "&apos;"},
            {L"<b>&", "<![CDATA[<b>&]]>"},
            {L"inner", "<i>inner</i>"},
            {L"\u00E4", "\xC3\xA4"},
            {L"\u20AC", "&#x20AC;"},
            {L"\u3042", "&#12354;"},
            {L"\U0001F600", "\xF0\x9F\x98\x80"},
        };
        const auto& one = kCharacters[OneOf(std::size(kCharacters))];
        text += one.text;
        markup += one.markup;
    }

    std::mt19937 m_random;
    std::string m_xml;
    EulaTexts m_expected;
};
} // namespace

TEST_CASE("ReadEulaTexts: the four texts of a file", "[ui]")
{
    const EulaTexts texts = Read("<?xml version='1.0' encoding='UTF-8'?>\r\n<ANY>\r\n"
                                 "  <RECORD>\r\n    <A>enu_user_license_agreement</A>\r\n"
                                 "    <B>Titel \xC3\xA4\xE2\x82\xAC</B>\r\n  </RECORD>\r\n" +
                                 Record("i_do_not_accept", "no") + Record("i_accept", "ja") +
                                 Record("btn_ok", "fertig") + "</ANY>");
    CHECK(texts.title == L"Titel \u00E4\u20AC");
    CHECK(texts.decline == L"no");
    CHECK(texts.accept == L"ja");
    CHECK(texts.ok == L"fertig");
}

TEST_CASE("ReadEulaTexts: the first child is the key and the last one the value", "[ui]")
{
    CHECK(Read("<R><RECORD><X>btn_ok</X><Y>between</Y><Z>last</Z></RECORD></R>").ok == L"last");
    // One child is both; so is a text without an element around it.
    CHECK_FALSE(Read("<R><RECORD><X>some text</X></RECORD></R>").ok);
    CHECK(Read("<R><RECORD><X>btn_ok</X></RECORD></R>").ok == L"btn_ok");
    CHECK(Read("<R><RECORD>btn_ok</RECORD></R>").ok == L"btn_ok");
    CHECK(Read("<R><RECORD>btn_ok<V>value</V></RECORD></R>").ok == L"value");
    // The text of a node is that of everything in it.
    CHECK(Read("<R><RECORD><X>btn_<i>ok</i></X><Y><a>o</a><b>k</b></Y></RECORD></R>").ok == L"ok");
}

TEST_CASE("ReadEulaTexts: only child elements of the root named RECORD count", "[ui]")
{
    const std::string record = Record("btn_ok", "new");
    CHECK(Read("<RECORD>" + record + "</RECORD>").ok == L"new");
    CHECK(IsEmpty(Read(record)));
    CHECK(IsEmpty(Read("<R><INNER>" + record + "</INNER></R>")));
    CHECK(IsEmpty(Read("<R><record><K>btn_ok</K><V>new</V></record></R>")));
    CHECK(IsEmpty(Read("<R><RECORDS><K>btn_ok</K><V>new</V></RECORDS></R>")));
    CHECK(IsEmpty(Read("<R xmlns:v='urn:v'><v:RECORD><K>btn_ok</K><V>x</V></v:RECORD></R>")));
    CHECK(
        IsEmpty(Read("<R><!-- " + record + " --><![CDATA[" + record + "]]><?RECORD btn_ok?></R>")));
    CHECK(Read("<R>text<!-- comment -->" + record + "text</R>").ok == L"new");
    CHECK(IsEmpty(Read("<R><RECORD/><RECORD></RECORD><RECORD key='btn_ok'/></R>")));
    CHECK(IsEmpty(Read("<R/>")));
}

TEST_CASE("ReadEulaTexts: repeated and unknown keys", "[ui]")
{
    const EulaTexts texts = Read("<R>" + Record("btn_ok", "first") + Record("i_accept", "kept") +
                                 Record("unknown", "x") + Record("BTN_OK", "y") + Record("", "z") +
                                 Record("btn_ok", "second") + "</R>");
    CHECK(texts.ok == L"second");
    CHECK(texts.accept == L"kept");
    CHECK_FALSE(texts.title);
    CHECK(Read("<R>" + Record("btn_ok", "x") + Record("btn_ok", "") + "</R>").ok == L"");
}

TEST_CASE("ReadEulaTexts: files that cannot be read give no texts", "[ui]")
{
    const TempFolder folder;
    const std::string good = "<R>" + Record("btn_ok", "new") + "</R>";
    CHECK(IsEmpty(ReadFile(L"")));
    CHECK(IsEmpty(ReadFile(folder.File(L"missing.xml"))));
    CHECK(IsEmpty(ReadFile(folder.Path())));
    CHECK(IsEmpty(ReadFile(L"?:\\*<>|")));
    CHECK(IsEmpty(ReadFile(std::wstring(40'000, L'x'))));
    CHECK(IsEmpty(Read("")));
    CHECK(IsEmpty(Read("no markup at all")));
    CHECK(IsEmpty(Read(good.substr(0, good.size() - 3))));
    CHECK(IsEmpty(Read("<R>" + Record("btn_ok", "a & b") + "</R>")));
    CHECK(IsEmpty(Read("<R>" + Record("btn_ok", "\xFF\xFE\x80") + "</R>")));
    CHECK(IsEmpty(Read(std::string(4096, '\0'))));
    CHECK(Read(good).ok == L"new");
}

TEST_CASE("ReadEulaTexts: documents of any shape", "[ui]")
{
    const TempFolder folder;
    const ComApartment com;
    const PlainWindow dialog;
    const auto read = [&](const std::string& xml) {
        folder.Write(L"texts.xml", xml);
        return velt::ReadEulaTexts(folder.File(L"texts.xml"), dialog.Window(), kNever);
    };
    constexpr unsigned kDocuments = 200;
    for (unsigned seed = 0; seed < kDocuments; ++seed)
    {
        CAPTURE(seed);
        RandomDocument document(seed);
        const EulaTexts expected = document.Expected();
        const EulaTexts texts = read(document.Xml());
        REQUIRE(texts.title == expected.title);
        REQUIRE(texts.decline == expected.decline);
        REQUIRE(texts.accept == expected.accept);
        REQUIRE(texts.ok == expected.ok);
        // Damaged, it gives whatever the system still reads, or nothing; and the next one is whole.
        read(document.Damaged());
    }
}

TEST_CASE("ReadEulaTexts: a thread without COM gets no texts", "[ui]")
{
    const TempFolder folder;
    folder.Write(L"texts.xml", "<R>" + Record("btn_ok", "new") + "</R>");
    const auto isEmpty = OnOtherThread([&] {
        const PlainWindow dialog;
        return IsEmpty(velt::ReadEulaTexts(folder.File(L"texts.xml"), dialog.Window(), kNever));
    });
    CHECK(isEmpty);
}

TEST_CASE("ReadEulaTexts: 100,000 records and a text of 10,000 characters", "[ui]")
{
    std::string xml = "<R>";
    for (int i = 0; i < 100'000; ++i)
    {
        xml += Record("key" + std::to_string(i), "value");
    }
    xml += Record("btn_ok", std::string(10'000, 'x')) + "</R>";
    const ULONGLONG start = ::GetTickCount64();
    const EulaTexts texts = Read(xml);
    CHECK(texts.ok == std::wstring(10'000, L'x'));
    CHECK(::GetTickCount64() - start < 60'000); // each record is visited once
}

TEST_CASE("ReadEulaTexts: a thread told to quit still is afterwards", "[ui]")
{
    const TempFolder folder;
    folder.Write(L"texts.xml", "<R>" + Record("btn_ok", "new") + "</R>");
    const auto code = OnOtherThread([&] {
        ::PostQuitMessage(7);
        const ComApartment com;
        const PlainWindow dialog;
        velt::ReadEulaTexts(folder.File(L"texts.xml"), dialog.Window(), kNever);
        MSG message{};
        while (::GetMessageW(&message, nullptr, 0, 0) > 0)
        {
        }
        return message.wParam;
    });
    CHECK(code == 7);
}

TEST_CASE("ReadEulaTexts: the sample texts of every language of the table", "[ui]")
{
    std::set<std::wstring> declines;
    for (const velt::Language& language : velt::kLanguages)
    {
        CAPTURE(language.code);
        const std::wstring code = velt::WideFromUtf8(language.code);
        const EulaTexts texts = ReadFile(BuiltFile(L"samples\\eula\\texts\\" + code + L".xml"));
        for (const auto* text : {&texts.title, &texts.decline, &texts.accept, &texts.ok})
        {
            REQUIRE(text->has_value());
            CHECK_FALSE((*text)->empty());
            CHECK((*text)->find(L'\uFFFD') == std::wstring::npos);
        }
        // Each choice has a key of its own, and the two differ.
        const auto key = [](const std::wstring& text) {
            const std::size_t at = text.find(L'&');
            REQUIRE(at + 1 < text.size());
            CHECK(text.find(L'&', at + 1) == std::wstring::npos);
            return ::CharLowerW(reinterpret_cast<LPWSTR>(static_cast<ULONG_PTR>(text[at + 1])));
        };
        CHECK(key(*texts.decline) != key(*texts.accept));
        declines.insert(*texts.decline);
    }
    CHECK(declines.size() == 15); // both kinds of Portuguese say the same
}

TEST_CASE("ReadEulaTexts: a URL is no file, and nobody is asked for it", "[ui]")
{
    HttpServer server(HttpAnswer("200 OK", "<T>" + Record("btn_ok", "fetched") + "</T>",
                                 "Content-Type: text/xml\r\n"));
    const std::wstring host = L"127.0.0.1:" + std::to_wstring(server.Port()) + L"/texts.xml";
    const TempFolder folder;
    folder.Write(L"texts.xml", "<T>" + Record("btn_ok", "read") + "</T>");
    std::wstring fileUrl = L"file:///" + folder.File(L"texts.xml");
    std::replace(fileUrl.begin(), fileUrl.end(), L'\\', L'/');

    CHECK(IsEmpty(ReadFile(L"http://" + host)));
    CHECK(IsEmpty(ReadFile(L"HTTP://" + host)));
    CHECK(IsEmpty(ReadFile(L" \t\r\nhttp://" + host))); // the system passes over these
    CHECK(IsEmpty(ReadFile(L"http:" + host)));
    CHECK(IsEmpty(ReadFile(fileUrl)));
    CHECK(server.Requests().empty());
    CHECK(ReadFile(folder.File(L"texts.xml")).ok == L"read");
}

TEST_CASE("ReadEulaTexts: a URL has a scheme of two characters at least, of which the first is a "
          "letter",
          "[ui]")
{
    const auto [path, isUrl] = GENERATE(table<std::wstring, bool>({
        {L"az09+-.AZ:texts", true},
        {L"zz:texts", true},
        {L"Az:texts", true},
        {L"Za:texts", true},
        {L" az:texts", true}, // the system passes over blanks and control characters
        {L"\x1F\taz:texts", true},
        {L"a:texts", false},
        {L"0a:texts", false},
        {L"+a:texts", false},
        {L"a_z:texts", false},
        {L"a/z:texts", false},
        {L"`a:texts", false},
        {L"{a:texts", false},
        {L"a\u00E4:texts", false},
        {L":texts", false},
        {L"texts", false},
        {L"", false},
    }));
    TraceRecorder trace;
    CHECK(IsEmpty(ReadFile(path)));
    CHECK(trace.Count("the path of the texts is a URL") == (isUrl ? 1u : 0u));
}

TEST_CASE("ReadEulaTexts: paths of all kinds are no URLs", "[ui]")
{
    const TempFolder folder;
    folder.Write(L"a-b+c.xml", "<T>" + Record("btn_ok", "read") + "</T>");
    const std::wstring file = folder.File(L"a-b+c.xml");
    CHECK(ReadFile(file).ok == L"read");
    std::wstring slashes = file;
    std::replace(slashes.begin(), slashes.end(), L'\\', L'/');
    CHECK(ReadFile(slashes).ok == L"read");
    REQUIRE(::SetCurrentDirectoryW(folder.Path().c_str()));
    CHECK(ReadFile(L"a-b+c.xml").ok == L"read");
    ::SetCurrentDirectoryW(L"C:\\"); // so that the folder can be removed
}
