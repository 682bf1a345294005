// Documents against what they describe: docs/reference.md against the type library, the table of
// keys in docs/installer-guide.md against what registration writes.

#include "foundation/wide_text.h"
#include "tests/support/component_library.h"
#include "tests/support/component_registration.h"
#include "tests/support/type_library_text.h"

#include <comutil.h>
#include <wrl/client.h>

#include <cstdio>
#include <fstream>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <catch.hpp>

using Microsoft::WRL::ComPtr;

using Lines = std::vector<std::string>;

namespace
{
constexpr std::string_view kHelp = " : ";

/// The text between two others in a line; the second one may be its end.
std::string Between(const std::string& line, std::string_view before, std::string_view after)
{
    const std::size_t start = line.find(before) + before.size();
    const std::size_t end = after.empty() ? line.size() : line.find(after, start);
    if (line.find(before) == line.npos || end == line.npos)
    {
        throw std::runtime_error("not the form of a description: " + line);
    }
    return line.substr(start, end - start);
}

std::string HelpOf(const std::string& line)
{
    return Between(line, kHelp, "");
}

/// "id 1 at 7 [propget] HRESULT X(...) : help" as a row; members of a dispinterface have no
/// slot.
std::string MemberRow(const std::string& line)
{
    const std::string declaration = line.substr(0, line.find(kHelp));
    const std::string id = Between(declaration, "id ", " ");
    std::string rest = declaration.substr(3 + id.size() + 1);
    std::string slot;
    if (rest.starts_with("at "))
    {
        slot = Between(rest, "at ", " ");
        rest = rest.substr(3 + slot.size() + 1);
    }
    return "| " + id + " | " + (slot.empty() ? "-" : slot) + " | `" + rest + "` | " + HelpOf(line) +
           " |";
}

/// A type's part of the document.
void AddType(const Lines& description, Lines& lines)
{
    const std::string& head = description.front();
    const std::string kind = head.substr(0, head.find(' '));
    const std::string name = Between(head, kind + " ", " ");
    lines.push_back("## " + kind + " `" + name + "`");
    const std::string guid = "{" + Between(head, "{", "}") + "}";
    if (kind == "enum")
    {
        lines.push_back("| constant |");
        lines.push_back("|---|");
    }
    else if (kind == "coclass")
    {
        lines.push_back("| CLSID | `" + guid + "` |");
        lines.push_back("|---|---|");
    }
    else
    {
        lines.push_back("| DISPID | slot | member of `" + guid + "` | |");
        lines.push_back("|---|---|---|---|");
    }
    for (std::size_t i = 1; i < description.size(); ++i)
    {
        const std::string& line = description[i];
        if (line.starts_with("id "))
        {
            lines.push_back(MemberRow(line));
        }
        else if (kind == "enum")
        {
            lines.push_back("| `" + line + "` |");
        }
        else if (kind == "coclass") // "[1] IX": default; "[3] IX": default source
        {
            lines.push_back((line.starts_with("[3] ") ? "| events | `" : "| interface | `") +
                            line.substr(4) + "` |");
        }
    }
}

Lines FromTypeLibrary()
{
    ComPtr<ITypeLib> library;
    REQUIRE(::LoadTypeLibEx(velt::test::ShippedFile(L"VeltHTTPClient12OEM.tlb").c_str(),
                            REGKIND_NONE, &library) == S_OK);
    Lines lines;
    for (UINT i = 0; i < library->GetTypeInfoCount(); ++i)
    {
        ComPtr<ITypeInfo> info;
        REQUIRE(library->GetTypeInfo(i, &info) == S_OK);
        AddType(velt::test::DescribeType(*info.Get()), lines);
    }
    return lines;
}

/// The values that registration writes, as rows; a key without any has a row too.
Lines FromRegistration()
{
    const std::wstring library = L"<folder>\\VeltHTTPClient12OEM.dll";
    Lines lines;
    for (const auto& [path, values] : velt::test::Merge(
             velt::test::ExpectedClassKeys(library), velt::test::ExpectedTypeLibraryKeys(library)))
    {
        std::string place = velt::Utf8FromWide(path);
        if (place.ends_with("\\win64"))
        {
            place.replace(place.size() - 2, 2, "32"); // the guide names the 32-bit edition's key
        }
        const std::string key = "| `" + place + "` | ";
        if (values.empty())
        {
            lines.push_back(key + "| |");
        }
        for (const auto& [name, value] : values)
        {
            REQUIRE(value.type == REG_SZ);
            const std::wstring text(reinterpret_cast<const wchar_t*>(value.data.data()),
                                    value.data.size() / sizeof(wchar_t) - 1);
            lines.push_back(key + (name.empty() ? "(default)" : velt::Utf8FromWide(name)) + " | `" +
                            velt::Utf8FromWide(text) + "` |");
        }
    }
    return lines;
}

/// The lines of a document that start with one of some texts.
Lines FromDocument(const char* name, std::initializer_list<std::string_view> starts)
{
    std::ifstream file(std::string(VELT_DOCS_DIR "/") + name);
    REQUIRE(file);
    Lines lines;
    for (std::string line; std::getline(file, line);)
    {
        for (const std::string_view start : starts)
        {
            if (line.starts_with(start))
            {
                lines.push_back(line);
            }
        }
    }
    return lines;
}

void CheckSame(const Lines& found, const Lines& expected)
{
    if (found != expected)
    {
        std::puts("The document is to have these lines:");
        for (const std::string& line : expected)
        {
            std::puts(line.c_str());
        }
    }
    CHECK(expected.size() > 30);
    CHECK((found == expected));
}
} // namespace

TEST_CASE("The reference: says what the type library says, all of it and no more", "[server]")
{
    CheckSame(FromDocument("reference.md", {"## ", "|"}), FromTypeLibrary());
}

TEST_CASE("The installer guide: lists what registration writes, all of it and no more", "[server]")
{
    CheckSame(
        FromDocument("installer-guide.md", {"| `AppID", "| `CLSID", "| `Interface", "| `TypeLib",
                                            "| `VeltHTTPClient.", "| `VeltHTTPClientX."}),
        FromRegistration());
}
