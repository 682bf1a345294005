#include "server/registrar_script.h"

#include "tests/support/registry_operations.h"

#include <catch.hpp>

#include <filesystem>
#include <fstream>
#include <iterator>

using namespace std::string_literals;
using velt::ParseRegistrarScript;
using velt::RegistrarError;
using velt::RegistrarReplacements;
using velt::RegistryOperation;
using velt::RegistryRoot;
using velt::test::CreateKey;
using velt::test::DeleteTree;
using velt::test::SetValue;

using Operations = std::vector<RegistryOperation>;
using Bytes = std::vector<std::uint8_t>;
using Texts = std::vector<std::wstring>;

namespace
{
const RegistrarReplacements kReplacements = {
    {L"MODULE", LR"(C:\It's 100% {here}\x.dll)"},
    {L"NAME", L"Key"},
    {L"EMPTY", L""},
    {L"WORD", L"ForceRemove"},
    {L"TWO WORDS", L"spaced"},
};

Operations Parsed(std::wstring_view script)
{
    auto result = ParseRegistrarScript(script, kReplacements);
    if (const auto* error = std::get_if<RegistrarError>(&result))
    {
        FAIL("line " << error->line << ", column " << error->column << ": " << error->message);
    }
    return std::get<Operations>(std::move(result));
}

RegistrarError ErrorOf(std::wstring_view script)
{
    const auto result = ParseRegistrarScript(script, kReplacements);
    REQUIRE(std::holds_alternative<RegistrarError>(result));
    return std::get<RegistrarError>(result);
}

/// The operations of `name = value` in a key K.
RegistryOperation::Value ValueOf(std::wstring_view value)
{
    const Operations operations = Parsed(L"HKCR{K=" + std::wstring(value) + L"}");
    REQUIRE(operations.size() == 2);
    CHECK(operations[0] == CreateKey(L"K"));
    CHECK(operations[1] == SetValue(L"K", L"", operations[1].value));
    return operations[1].value;
}

/// One of the product's own scripts. They are ASCII, so a byte is a character.
std::wstring ProductScript(const char* name)
{
    std::ifstream file(std::filesystem::path(VELT_SCRIPTS_DIR) / name, std::ios::binary);
    REQUIRE(file);
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    for (const char c : bytes)
    {
        REQUIRE(static_cast<unsigned char>(c) < 0x80);
    }
    return {bytes.begin(), bytes.end()};
}

Operations ParsedProductScript(const char* name, const wchar_t* threadingModel)
{
    auto result = ParseRegistrarScript(ProductScript(name),
                                       {{L"MODULE", LR"(C:\a b\x.dll)"},
                                        {L"APPID", L"{0808C913-0251-4F8F-9EB2-5EF1D9FFD5DC}"},
                                        {L"THREADINGMODEL", threadingModel}});
    REQUIRE(std::holds_alternative<Operations>(result));
    return std::get<Operations>(std::move(result));
}

/// What the script of a class has to do: `classKey` is its key below CLSID.
Operations ClassOperations(const std::wstring& prefix, const std::wstring& version,
                           const std::wstring& description, const std::wstring& clsid,
                           const std::wstring& classKey, const wchar_t* threadingModel)
{
    const std::wstring versioned = prefix + L"." + version;
    const std::wstring key = LR"(CLSID\)" + classKey;
    return {
        CreateKey(versioned),
        SetValue(versioned, L"", description),
        CreateKey(versioned + LR"(\CLSID)"),
        SetValue(versioned + LR"(\CLSID)", L"", clsid),
        CreateKey(prefix),
        SetValue(prefix, L"", description),
        CreateKey(prefix + LR"(\CLSID)"),
        SetValue(prefix + LR"(\CLSID)", L"", clsid),
        CreateKey(prefix + LR"(\CurVer)"),
        SetValue(prefix + LR"(\CurVer)", L"", versioned),
        CreateKey(L"CLSID"),
        DeleteTree(key),
        CreateKey(key),
        SetValue(key, L"", description),
        CreateKey(key + LR"(\ProgID)"),
        SetValue(key + LR"(\ProgID)", L"", versioned),
        CreateKey(key + LR"(\VersionIndependentProgID)"),
        SetValue(key + LR"(\VersionIndependentProgID)", L"", prefix),
        DeleteTree(key + LR"(\Programmable)"),
        CreateKey(key + LR"(\Programmable)"),
        CreateKey(key + LR"(\InprocServer32)"),
        SetValue(key + LR"(\InprocServer32)", L"", LR"(C:\a b\x.dll)"s),
        SetValue(key + LR"(\InprocServer32)", L"ThreadingModel", std::wstring(threadingModel)),
        CreateKey(key + LR"(\TypeLib)"),
        SetValue(key + LR"(\TypeLib)", L"", L"{AB6A43CE-5CEE-40EE-9AD0-A7AA608DBB6C}"s),
    };
}
} // namespace

TEST_CASE("ParseRegistrarScript: an empty script does nothing", "[server]")
{
    CHECK(Parsed(L"").empty());
    CHECK(Parsed(L" \t\r\n\v\f ").empty());
    CHECK(Parsed(L"HKCR{}").empty());
    CHECK(Parsed(L"HKCR { } HKCU\n{\n}").empty());
}

TEST_CASE("ParseRegistrarScript: each name of a root key is that root, in any case", "[server]")
{
    const auto [name, root] = GENERATE(table<std::wstring, RegistryRoot>({
        {L"HKCR", RegistryRoot::classesRoot},
        {L"hkcr", RegistryRoot::classesRoot},
        {L"HKEY_CLASSES_ROOT", RegistryRoot::classesRoot},
        {L"HKCU", RegistryRoot::currentUser},
        {L"HKEY_CURRENT_USER", RegistryRoot::currentUser},
        {L"hkey_Current_User", RegistryRoot::currentUser},
        {L"HKLM", RegistryRoot::localMachine},
        {L"HKEY_LOCAL_MACHINE", RegistryRoot::localMachine},
        {L"HKU", RegistryRoot::users},
        {L"HKEY_USERS", RegistryRoot::users},
        {L"HKCC", RegistryRoot::currentConfig},
        {L"HKEY_CURRENT_CONFIG", RegistryRoot::currentConfig},
    }));
    CHECK(Parsed(name + L"{K}") == Operations{CreateKey(L"K", root)});
}

TEST_CASE("ParseRegistrarScript: several roots keep their order", "[server]")
{
    CHECK(Parsed(L"HKCU{A}HKCR{B}HKCU{C}") ==
          Operations{CreateKey(L"A", RegistryRoot::currentUser), CreateKey(L"B"),
                     CreateKey(L"C", RegistryRoot::currentUser)});
}

TEST_CASE("ParseRegistrarScript: keys nest, and siblings follow", "[server]")
{
    CHECK(Parsed(LR"(HKCR { A { B { C } D } E })") ==
          Operations{CreateKey(L"A"), CreateKey(LR"(A\B)"), CreateKey(LR"(A\B\C)"),
                     CreateKey(LR"(A\D)"), CreateKey(L"E")});
}

TEST_CASE("ParseRegistrarScript: words end at signs and white space of any kind", "[server]")
{
    const Operations expected = {CreateKey(L"A"), SetValue(L"A", L"", L"x"s),
                                 SetValue(L"A", L"n", L"y"s)};
    CHECK(Parsed(L"HKCR{A=s x{val n=s y}}") == expected);
    CHECK(Parsed(L"HKCR\r\n{\r\n\tA = s x\r\n\t{\v\fval n =\ns\ty } }") == expected);
    CHECK(Parsed(L"HKCR{'A'=s'x'{val'n'=s'y'}}") == expected);
}

TEST_CASE("ParseRegistrarScript: NoRemove only creates the key", "[server]")
{
    const std::wstring keyword = GENERATE(L"NoRemove"s, L"noremove"s, L"NOREMOVE"s);
    CHECK(
        Parsed(L"HKCR { " + keyword + L" CLSID = s x { K } }") ==
        Operations{CreateKey(L"CLSID"), SetValue(L"CLSID", L"", L"x"s), CreateKey(LR"(CLSID\K)")});
}

TEST_CASE("ParseRegistrarScript: ForceRemove deletes the key before it creates it", "[server]")
{
    const std::wstring keyword = GENERATE(L"ForceRemove"s, L"forceremove"s, L"FORCEREMOVE"s);
    CHECK(Parsed(L"HKCR { A { " + keyword + L" K = s x { val n = s y } } }") ==
          Operations{CreateKey(L"A"), DeleteTree(LR"(A\K)"), CreateKey(LR"(A\K)"),
                     SetValue(LR"(A\K)", L"", L"x"s), SetValue(LR"(A\K)", L"n", L"y"s)});
}

TEST_CASE("ParseRegistrarScript: Delete only deletes the key", "[server]")
{
    const std::wstring keyword = GENERATE(L"Delete"s, L"delete"s, L"DELETE"s);
    CHECK(Parsed(L"HKCU { " + keyword + L" K A { " + keyword + L" 'b c' } }") ==
          Operations{DeleteTree(L"K", RegistryRoot::currentUser),
                     CreateKey(L"A", RegistryRoot::currentUser),
                     DeleteTree(LR"(A\b c)", RegistryRoot::currentUser)});
}

TEST_CASE("ParseRegistrarScript: quoted keywords are names", "[server]")
{
    CHECK(Parsed(L"HKCR { 'val' 'NoRemove' 'ForceRemove' 'Delete' 'HKCR' }") ==
          Operations{CreateKey(L"val"), CreateKey(L"NoRemove"), CreateKey(L"ForceRemove"),
                     CreateKey(L"Delete"), CreateKey(L"HKCR")});
    CHECK(Parsed(L"HKCR { NoRemove ForceRemove }") == Operations{CreateKey(L"ForceRemove")});
}

TEST_CASE("ParseRegistrarScript: a named value goes into the key around it", "[server]")
{
    const std::wstring keyword = GENERATE(L"val"s, L"Val"s, L"VAL"s);
    CHECK(Parsed(L"HKCR { K { " + keyword + L" 'a b' = s x " + keyword + L" '' = s y } }") ==
          Operations{CreateKey(L"K"), SetValue(L"K", L"a b", L"x"s), SetValue(L"K", L"", L"y"s)});
}

TEST_CASE("ParseRegistrarScript: two quotes in a quoted text are one", "[server]")
{
    const auto [quoted, text] = GENERATE(table<std::wstring, std::wstring>({
        {L"''", L""},
        {L"''''", L"'"},
        {L"'a''b'", L"a'b"},
        {L"''''''", L"''"},
        {L"'{a} = b'", L"{a} = b"},
        {L"'two\r\nlines'", L"two\r\nlines"},
        {L"'// no comment'", L"// no comment"},
    }));
    CHECK(ValueOf(L"s" + quoted) == RegistryOperation::Value(text));
}

TEST_CASE("ParseRegistrarScript: a replacement stands in words and in quotes", "[server]")
{
    const auto [data, text] = GENERATE(table<std::wstring, std::wstring>({
        {L" %NAME%", L"Key"},
        {L" %NAME%%NAME%", L"KeyKey"},
        {L" a%NAME%b", L"aKeyb"},
        {L"'%NAME%'", L"Key"},
        {L"'a %NAME% b'", L"a Key b"},
        {L"'%TWO WORDS%'", L"spaced"},
        {L"%EMPTY%", L""},
        {L" %%", L"%"},
        {L"'100%%'", L"100%"},
        {L"'%%NAME%%'", L"%NAME%"},
        {L"%%%NAME%%%", L"%Key%"},
    }));
    CHECK(ValueOf(L"s" + (data[0] == L'%' ? L" " + data : data)) == RegistryOperation::Value(text));
}

TEST_CASE("ParseRegistrarScript: a replacement's own characters have no meaning", "[server]")
{
    const RegistryOperation::Value module = LR"(C:\It's 100% {here}\x.dll)"s;
    CHECK(ValueOf(L"s %MODULE%") == module);
    CHECK(ValueOf(L"s '%MODULE%'") == module);
    CHECK(Parsed(L"HKCR { K { val %MODULE% = s x } }").back() ==
          SetValue(L"K", LR"(C:\It's 100% {here}\x.dll)", L"x"s));
    // Neither is a replaced word a keyword.
    CHECK(Parsed(L"HKCR { %WORD% K }") == Operations{CreateKey(L"ForceRemove"), CreateKey(L"K")});
}

TEST_CASE("ParseRegistrarScript: replacements do not stand in for one another", "[server]")
{
    const auto result = ParseRegistrarScript(L"HKCR{K=s %A%}", {{L"A", L"%B%"}, {L"B", L"x"}});
    REQUIRE(std::holds_alternative<Operations>(result));
    CHECK(std::get<Operations>(result).back() == SetValue(L"K", L"", L"%B%"s));
}

TEST_CASE("ParseRegistrarScript: a replacement can name a key", "[server]")
{
    CHECK(Parsed(L"HKCR { 'a %NAME%' { %NAME% } }") ==
          Operations{CreateKey(L"a Key"), CreateKey(LR"(a Key\Key)")});
}

TEST_CASE("ParseRegistrarScript: each type of value, in any case", "[server]")
{
    const auto [text, value] = GENERATE(table<std::wstring, RegistryOperation::Value>({
        {L"s x", L"x"s},
        {L"S 'x y'", L"x y"s},
        {L"s ''", L""s},
        {L"d 0", std::uint32_t{0}},
        {L"D '4294967295'", std::uint32_t{0xFFFFFFFF}},
        {L"d 0x1f", std::uint32_t{31}},
        {L"d 0XFFFFFFFF", std::uint32_t{0xFFFFFFFF}},
        {L"d 007", std::uint32_t{7}},
        {L"b ''", Bytes{}},
        {L"b 00", Bytes{0}},
        {L"B '01fFA0'", Bytes{0x01, 0xFF, 0xA0}},
        {L"m ''", Texts{}},
        {L"m one", Texts{L"one"}},
        {LR"(m 'one\0two')", Texts{L"one", L"two"}},
        {LR"(M 'one\0two words\0')", Texts{L"one", L"two words"}},
        {LR"(m 'C:\a\b')", Texts{LR"(C:\a\b)"}},
    }));
    CHECK(ValueOf(text) == value);
}

TEST_CASE("ParseRegistrarScript: an error is told with its place", "[server]")
{
    struct Row
    {
        std::wstring script;
        std::size_t line;
        std::size_t column;
        std::string message;
    };
    const std::string kRoot = "a root key expected, such as HKCR";
    const std::string kKeyName = "the name of a key expected";
    const std::string kValueName = "the name of a value expected";
    const std::string kType = "a value's type expected: s, d, b or m";
    const std::string kData = "a value's data expected";
    const std::string kNumber = "a number of 32 bits expected";
    const std::string kDigits = "pairs of hexadecimal digits expected";
    const std::string kPercent = "a percent sign without its partner";
    const std::string kQuote = "a quoted text without its closing quote";
    const Row row = GENERATE_REF(values<Row>({
        {L"x", 1, 1, kRoot},
        {L"\n\n  {", 3, 3, kRoot},
        {L"}", 1, 1, kRoot},
        {L"HKCR{}}", 1, 7, kRoot},
        {L"'HKCR'{}", 1, 1, kRoot},
        {L"HKXX 'unclosed", 1, 1, kRoot}, // the first error is the one that is told
        {L"%WORD%{}", 1, 1, kRoot},
        {L"HKCR", 1, 5, "'{' expected after the root key"},
        {L"HKCR = s x", 1, 6, "'{' expected after the root key"},
        {L"HKCR K {}", 1, 6, "'{' expected after the root key"},
        {L"HKCR{", 1, 6, kKeyName},
        {L"HKCR\r\n{\r\n\tA\r\n", 4, 1, kKeyName},
        {L"HKCR{{}}", 1, 6, kKeyName},
        {L"HKCR{=s x}", 1, 6, kKeyName},
        {L"HKCR{''}", 1, 6, kKeyName},
        {L"HKCR{%EMPTY%}", 1, 6, kKeyName},
        {L"HKCR{NoRemove}", 1, 14, kKeyName},
        {L"HKCR{ForceRemove =}", 1, 18, kKeyName},
        {L"HKCR{Delete}", 1, 12, kKeyName},
        {L"HKCR{A{}{}}", 1, 9, kKeyName},
        {L"HKCR{A=s x=s y}", 1, 11, kKeyName},
        {L"HKCR{\n'a\\b'}", 2, 1, "the name of a key holds a backslash or NUL: nest the keys"},
        {L"HKCR{\n \\a}", 2, 2, "the name of a key holds a backslash or NUL: nest the keys"},
        {L"HKCR{a\0b}"s, 1, 6, "the name of a key holds a backslash or NUL: nest the keys"},
        {L"HKCR{%MODULE%}", 1, 6, "the name of a key holds a backslash or NUL: nest the keys"},
        {L"HKCR{A{val}}", 1, 11, kValueName},
        {L"HKCR{A{val = s x}}", 1, 12, kValueName},
        {L"HKCR{A{val 'a\0b' = s x}}"s, 1, 12, kValueName},
        {L"HKCR{val x = s y}", 1, 10, "a value cannot stand in a root key"},
        {L"HKCR{A{val x}}", 1, 13, "'=' expected after the name of a value"},
        {L"HKCR{A{val x s y}}", 1, 14, "'=' expected after the name of a value"},
        {L"HKCR{A=}", 1, 8, kType},
        {L"HKCR{A=q x}", 1, 8, kType},
        {L"HKCR{A=q}", 1, 8, kType},
        {L"HKCR{A=ss x}", 1, 8, kType},
        {L"HKCR{A='s' x}", 1, 8, kType},
        {L"HKCR{A=s}", 1, 9, kData},
        {L"HKCR{A=s{}}", 1, 9, kData},
        {L"HKCR{A{val x=d}}", 1, 15, kData},
        {L"HKCR{A=d ''}", 1, 10, kNumber},
        {L"HKCR{A=d x}", 1, 10, kNumber},
        {L"HKCR{A=d -1}", 1, 10, kNumber},
        {L"HKCR{A=d 1x}", 1, 10, kNumber},
        {L"HKCR{A=d 0x}", 1, 10, kNumber},
        {L"HKCR{A=d 4294967296}", 1, 10, kNumber},
        {L"HKCR{A=d 0x100000000}", 1, 10, kNumber},
        {L"HKCR{A=d \u0661}", 1, 10, kNumber}, // a digit, but not of ours
        {L"HKCR{A=b 0}", 1, 10, kDigits},
        {L"HKCR{A=b 012}", 1, 10, kDigits},
        {L"HKCR{A=b 0g}", 1, 10, kDigits},
        {L"HKCR{A=b '00 11'}", 1, 10, kDigits},
        {L"HKCR{A=b -1}", 1, 10, kDigits},
        {LR"(HKCR{A=m '\0a'})", 1, 10, "a multi-text holds an empty part, which would end it"},
        {LR"(HKCR{A=m 'a\0\0b'})", 1, 10, "a multi-text holds an empty part, which would end it"},
        {L"HKCR{\n  A=s %NONE%}", 2, 7, "unknown replacement %NONE%"},
        {L"HKCR{A=s 'x %NONE%'}", 1, 13, "unknown replacement %NONE%"},
        {L"HKCR{A=s %module%}", 1, 10, "unknown replacement %module%"}, // names mind case
        {L"HKCR{A=s %\u00e4%}", 1, 10, "unknown replacement %?%"},
        {L"HKCR{%NONE%}", 1, 6, "unknown replacement %NONE%"},
        {L"HKCR{A=s %MODULE}", 1, 10, kPercent},
        {L"HKCR{A=s %TWO WORDS%}", 1, 10, kPercent},
        {L"HKCR{A=s a%}", 1, 11, kPercent},
        {L"HKCR{A=s %%%}", 1, 12, kPercent},
        {L"HKCR{A=s '100%'}", 1, 14, kPercent},
        {L"HKCR{A=s 'a%\nb%'}", 1, 12, kPercent},
        {L"HKCR{A=s '%", 1, 11, kPercent},
        {L"HKCR{\n A=s 'x}", 2, 6, kQuote},
        {L"HKCR{A=s 'x''}", 1, 10, kQuote},
        {L"'", 1, 1, kQuote},
    }));
    INFO(velt::PrintableText(row.script));
    const RegistrarError error = ErrorOf(row.script);
    CHECK(error.line == row.line);
    CHECK(error.column == row.column);
    CHECK(error.message == row.message);
}

TEST_CASE("ParseRegistrarScript: the names of keys end at 255 characters", "[server]")
{
    const std::wstring longest(255, L'k');
    CHECK(Parsed(L"HKCR{" + longest + L"}") == Operations{CreateKey(longest)});
    CHECK(Parsed(L"HKCR{Delete " + longest + L"}") == Operations{DeleteTree(longest)});
    const RegistrarError error = ErrorOf(L"HKCR{A{ " + longest + L"k}}");
    CHECK(error.column == 9);
    CHECK(error.message == "the name of a key is longer than 255 characters");
    CHECK(ErrorOf(L"HKCR{Delete " + longest + L"k}").column == 13);
}

TEST_CASE("ParseRegistrarScript: the names of values end at 16383 characters", "[server]")
{
    const std::wstring longest(16383, L'v');
    CHECK(Parsed(L"HKCR{K{val " + longest + L"=s x}}").back() == SetValue(L"K", longest, L"x"s));
    CHECK(ErrorOf(L"HKCR{K{val " + longest + L"v=s x}}").column == 12);
}

TEST_CASE("ParseRegistrarScript: keys nest 512 levels deep", "[server]")
{
    std::wstring script = L"HKCR{";
    for (int level = 1; level < 512; ++level)
    {
        script += L"k{";
    }
    const std::wstring close(512, L'}');
    const Operations operations = Parsed(script + L"k{val n=s x}" + close);
    REQUIRE(operations.size() == 513);
    CHECK(operations[511].path.size() == 512 + 511);
    CHECK(operations[512] == SetValue(operations[511].path, L"n", L"x"s));

    const RegistrarError error = ErrorOf(script + L"k{k}" + close);
    CHECK(error.message == "keys nested deeper than the registry allows");
    CHECK(error.column == script.size() + 3);
    CHECK(ErrorOf(script + L"k{Delete k}" + close).message == error.message);
}

TEST_CASE("ParseRegistrarScript: braces without end use up no stack", "[server]")
{
    std::wstring script = L"HKCR";
    for (int level = 0; level < 200'000; ++level)
    {
        script += L"{k";
    }
    CHECK(ErrorOf(script).message == "keys nested deeper than the registry allows");
}

TEST_CASE("ParseRegistrarScript: a key that all programs share is never deleted", "[server]")
{
    const std::wstring key =
        GENERATE(L"AppID"s, L"CLSID"s, L"'Component Categories'"s, L"FileType"s, L"Interface"s,
                 L"Hardware"s, L"Mime"s, L"SAM"s, L"SECURITY"s, L"SYSTEM"s, L"Software"s,
                 L"TypeLib"s, L"clsid"s, L"TYPELIB"s);
    const std::wstring keyword = GENERATE(L"ForceRemove "s, L"Delete "s);
    const RegistrarError error = ErrorOf(L"HKCR {\n" + keyword + key + L" }");
    CHECK(error.line == 2);
    CHECK(error.column == keyword.size() + 1);
    CHECK(error.message == "a key that all programs share is not deleted");
    // One of that name inside a key of the script's own is its own.
    CHECK(Parsed(L"HKCR { Mine { " + keyword + key + L" } }").size() >= 2);
}

TEST_CASE("ParseRegistrarScript: an error at the end leaves no operation", "[server]")
{
    const auto result =
        ParseRegistrarScript(L"HKCR { A = s x { B } Delete C } HKCU { D } oops", kReplacements);
    REQUIRE(std::holds_alternative<RegistrarError>(result));
    CHECK(std::get<RegistrarError>(result).column == 44);
}

TEST_CASE("ParseRegistrarScript: any character can be part of a name", "[server]")
{
    const std::wstring name = L"\u00e4\u4e2d-._+,;:!\"#$&()*/<>?@[]^`|~";
    CHECK(Parsed(L"HKCR{" + name + L"}") == Operations{CreateKey(name)});
}

TEST_CASE("appid.rgs: registers the application and the library's file name", "[server]")
{
    const std::wstring appId = L"{0808C913-0251-4F8F-9EB2-5EF1D9FFD5DC}";
    CHECK(ParsedProductScript("appid.rgs", L"") ==
          Operations{CreateKey(L"AppID"), CreateKey(LR"(AppID\)" + appId),
                     SetValue(LR"(AppID\)" + appId, L"", L"VeltHTTPClient"s),
                     CreateKey(LR"(AppID\VeltHTTPClient12OEM.DLL)"),
                     SetValue(LR"(AppID\VeltHTTPClient12OEM.DLL)", L"AppID", appId)});
}

TEST_CASE("velt_http_service.rgs: registers the HTTP service", "[server]")
{
    const std::wstring clsid = L"{5A6B579B-3C37-4A16-A3A5-F6C72FA15C40}";
    CHECK(ParsedProductScript("velt_http_service.rgs", L"Free") ==
          ClassOperations(L"VeltHTTPClient.VeltHTTPService12OEM", L"2", L"VeltHTTPService Class",
                          clsid, clsid, L"Free"));
}

TEST_CASE("enum_variant_col.rgs: the class key has doubled braces, nothing else has", "[server]")
{
    const std::wstring clsid = L"{344E0DAC-547C-47B5-A1A0-FF9A9C193352}";
    CHECK(ParsedProductScript("enum_variant_col.rgs", L"Apartment") ==
          ClassOperations(L"VeltHTTPClient.EnumVariantCol12OEM", L"2", L"EnumVariantCol Class",
                          clsid, L"{" + clsid + L"}", L"Apartment"));
}

TEST_CASE("velt_eula_dlg.rgs: registers the dialog under a prefix and version of its own",
          "[server]")
{
    const std::wstring clsid = L"{E9F9957F-AE23-4BBC-A97D-9815EA6E4C83}";
    CHECK(ParsedProductScript("velt_eula_dlg.rgs", L"Both") ==
          ClassOperations(L"VeltHTTPClientX.VeltEulaDlg12OEM", L"1", L"VeltEulaDlg Class", clsid,
                          clsid, L"Both"));
}
