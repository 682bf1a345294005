// docs/reference.md against the type library: the tables and headlines of the one are those that
// the other makes, in its order, and there are no more.

#include "foundation/wide_text.h"
#include "tests/support/component_library.h"
#include "tests/support/type_library_text.h"

#include <comutil.h>
#include <wrl/client.h>

#include <cstdio>
#include <fstream>
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

/// "id 1 at 28 [propget] HRESULT X(...) : help" as a row; members of a dispinterface have no
/// offset.
std::string MemberRow(const std::string& line)
{
    const std::string declaration = line.substr(0, line.find(kHelp));
    const std::string id = Between(declaration, "id ", " ");
    std::string rest = declaration.substr(3 + id.size() + 1);
    std::string offset;
    if (rest.starts_with("at "))
    {
        offset = Between(rest, "at ", " ");
        rest = rest.substr(3 + offset.size() + 1);
    }
    return "| " + id + " | " + (offset.empty() ? "-" : offset) + " | `" + rest + "` | " +
           HelpOf(line) + " |";
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
        lines.push_back("| DISPID | offset | member of `" + guid + "` | |");
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

/// The document's headlines of types and rows of tables.
Lines FromDocument()
{
    std::ifstream file(VELT_REFERENCE);
    REQUIRE(file);
    Lines lines;
    for (std::string line; std::getline(file, line);)
    {
        if (line.starts_with("## ") || line.starts_with("|"))
        {
            lines.push_back(line);
        }
    }
    return lines;
}
} // namespace

TEST_CASE("The reference: says what the type library says, all of it and no more", "[server]")
{
    const Lines expected = FromTypeLibrary();
    const Lines found = FromDocument();
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
