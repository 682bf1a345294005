#include "tests/support/component_library.h"
#include "ui/resources/resource_ids.h"

#include <richedit.h>

#include <catch.hpp>

#include <cstring>
#include <string>
#include <vector>

using velt::test::ComponentLibrary;

namespace
{
constexpr WORD kLanguage = 1033;

/// The bytes of a resource in English; none when there is none.
std::vector<std::byte> ResourceOf(HMODULE module, LPCWSTR type, WORD id)
{
    const HRSRC place = ::FindResourceExW(module, type, MAKEINTRESOURCEW(id), kLanguage);
    REQUIRE(place);
    const auto* const bytes =
        static_cast<const std::byte*>(::LockResource(::LoadResource(module, place)));
    return {bytes, bytes + ::SizeofResource(module, place)};
}

/// Reads a plain dialog template from its start.
class TemplateReader
{
public:
    explicit TemplateReader(std::vector<std::byte> bytes) : m_bytes(std::move(bytes)) {}

    WORD Word()
    {
        REQUIRE(m_at + sizeof(WORD) <= m_bytes.size());
        WORD value = 0;
        std::memcpy(&value, &m_bytes[m_at], sizeof(value));
        m_at += sizeof(value);
        return value;
    }

    DWORD DoubleWord()
    {
        const DWORD low = Word();
        return low | static_cast<DWORD>(Word()) << 16;
    }

    /// A text, or "#" and the number that stands for one.
    std::wstring Name()
    {
        std::wstring name;
        WORD character = Word();
        if (character == 0xFFFF)
        {
            return L"#" + std::to_wstring(Word());
        }
        for (; character != 0; character = Word())
        {
            name += static_cast<wchar_t>(character);
        }
        return name;
    }

    void Align()
    {
        m_at = (m_at + 3) / 4 * 4;
    }

private:
    std::vector<std::byte> m_bytes;
    std::size_t m_at = 0;
};
} // namespace

TEST_CASE("Dialog template 1000: every byte that hosts and translators count on", "[ui]")
{
    const ComponentLibrary library;
    TemplateReader reader(ResourceOf(library.Module(), RT_DIALOG, 1000));
    CHECK(reader.DoubleWord() == (DS_SETFONT | WS_POPUP));
    CHECK(reader.DoubleWord() == 0); // extended style
    REQUIRE(reader.Word() == 5);     // controls
    CHECK(reader.Word() == 0);
    CHECK(reader.Word() == 0);
    CHECK(reader.Word() == 411);
    CHECK(reader.Word() == 259);
    CHECK(reader.Name().empty()); // menu
    CHECK(reader.Name().empty()); // class
    CHECK(reader.Name().empty()); // title
    CHECK(reader.Word() == 8);
    CHECK(reader.Name() == L"MS Sans Serif");

    constexpr DWORD kChild = WS_CHILD | WS_VISIBLE;
    const struct
    {
        DWORD style;
        WORD place[4];
        WORD id;
        const wchar_t* type; // 0x80 is a button, 0x82 a static control
        const wchar_t* text;
    } rows[] = {
        {kChild | WS_GROUP | WS_TABSTOP | BS_AUTORADIOBUTTON,
         {16, 204, 383, 10},
         1000,
         L"#128",
         L"I &do not accept the terms in the license agreement"},
        {kChild | WS_TABSTOP | BS_AUTORADIOBUTTON,
         {16, 219, 381, 10},
         1001,
         L"#128",
         L"I &accept the terms in the license agreement"},
        {kChild | WS_BORDER | WS_VSCROLL | WS_TABSTOP | ES_MULTILINE | ES_AUTOVSCROLL | ES_READONLY,
         {16, 26, 378, 171},
         1002,
         L"RICHEDIT",
         L""},
        {kChild | WS_TABSTOP | BS_PUSHBUTTON, {180, 231, 50, 17}, 1, L"#128", L"OK"},
        {WS_CHILD | WS_GROUP | SS_LEFT,
         {12, 8, 368, 13},
         1006,
         L"#130",
         L"End User License Agreement"},
    };
    for (const auto& row : rows)
    {
        CAPTURE(row.id);
        reader.Align();
        CHECK(reader.DoubleWord() == row.style);
        CHECK(reader.DoubleWord() == 0);
        for (const WORD expected : row.place)
        {
            CHECK(reader.Word() == expected);
        }
        CHECK(reader.Word() == row.id);
        CHECK(reader.Name() == row.type);
        CHECK(reader.Name() == row.text);
        CHECK(reader.Word() == 0); // creation data
    }
}

TEST_CASE("Bitmaps: the skin and the three faces have their numbers, sizes and depth", "[ui]")
{
    const ComponentLibrary library;
    const struct
    {
        WORD id;
        LONG width;
        LONG height;
    } rows[] = {{206, 312, 156}, {1009, 79, 23}, {1008, 79, 23}, {1007, 79, 23}};
    for (const auto& row : rows)
    {
        CAPTURE(row.id);
        const std::vector<std::byte> bytes = ResourceOf(library.Module(), RT_BITMAP, row.id);
        BITMAPINFOHEADER header{};
        REQUIRE(bytes.size() > sizeof(header));
        std::memcpy(&header, bytes.data(), sizeof(header));
        CHECK(header.biWidth == row.width);
        CHECK(header.biHeight == row.height);
        CHECK(header.biBitCount == 24);
        CHECK(header.biCompression == BI_RGB);
    }
}
