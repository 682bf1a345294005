#include "ui/dialog_template.h"

#include <catch.hpp>

#include <cstring>
#include <string_view>

using namespace velt;

namespace
{
/// Some creation data, all different.
std::span<const std::byte> Data(std::size_t size)
{
    static const auto bytes = std::as_bytes(std::span("ABCDEFGH"));
    return bytes.first(size);
}

/// Writes a template byte by byte, as a resource has it.
class TemplateBytes
{
public:
    TemplateBytes& Word(std::uint32_t value)
    {
        m_bytes.push_back(static_cast<std::byte>(value & 0xFF));
        m_bytes.push_back(static_cast<std::byte>(value >> 8 & 0xFF));
        return *this;
    }

    TemplateBytes& Double(std::uint32_t value)
    {
        return Word(value & 0xFFFF).Word(value >> 16);
    }

    TemplateBytes& Text(std::u16string_view text)
    {
        for (const char16_t c : text)
        {
            Word(c);
        }
        return Word(0);
    }

    TemplateBytes& Place(int x, int y, int width, int height)
    {
        for (const int value : {x, y, width, height})
        {
            Word(static_cast<std::uint32_t>(value) & 0xFFFF);
        }
        return *this;
    }

    TemplateBytes& Align()
    {
        m_bytes.resize((m_bytes.size() + 3) / 4 * 4);
        return *this;
    }

    TemplateBytes& PlainHeader(std::uint32_t count)
    {
        return Double(0x80000040)
            .Double(0)
            .Word(count)
            .Place(1, 2, 300, 200)
            .Word(0)
            .Word(0)
            .Text(u"Title")
            .Word(8)
            .Text(u"MS Sans Serif");
    }

    TemplateBytes& PlainItem(std::uint32_t id, std::u16string_view className,
                             std::uint32_t dataBytes = 0)
    {
        Align()
            .Double(0x50010000)
            .Double(0x20)
            .Place(-3, 4, 50, 14)
            .Word(id)
            .Text(className)
            .Text(u"text");
        Word(dataBytes == 0 ? 0 : dataBytes + 2);
        return CreationData(dataBytes);
    }

    TemplateBytes& ExtendedHeader(std::uint32_t count)
    {
        Word(1).Word(0xFFFF).Double(0).Double(0).Double(0x80000040).Word(count);
        return Place(1, 2, 300, 200)
            .Word(0xFFFF)
            .Word(77)
            .Word(0)
            .Text(u"Title")
            .Word(8)
            .Word(400)
            .Word(0x0100)
            .Text(u"MS Shell Dlg");
    }

    TemplateBytes& ExtendedItem(std::uint32_t id, std::u16string_view className,
                                std::uint32_t dataBytes = 0)
    {
        Align().Double(0).Double(0x20).Double(0x50010000).Place(-3, 4, 50, 14).Double(id);
        Text(className).Text(u"text").Word(dataBytes);
        return CreationData(dataBytes);
    }

    TemplateBytes& CreationData(std::size_t size)
    {
        const std::span<const std::byte> data = Data(size);
        m_bytes.insert(m_bytes.end(), data.begin(), data.end());
        return *this;
    }

    const std::vector<std::byte>& Bytes() const
    {
        return m_bytes;
    }

    /// Padded to whole words.
    std::vector<std::uint32_t> Words() const
    {
        std::vector<std::uint32_t> words((m_bytes.size() + 3) / 4);
        std::memcpy(words.data(), m_bytes.data(), m_bytes.size());
        return words;
    }

private:
    std::vector<std::byte> m_bytes;
};

constexpr std::u16string_view kBrowser = u"{8856F961-340A-11D0-A96B-00C04FD705A2}";

ActiveXItem Browser(std::uint32_t id, std::uint32_t before, std::size_t dataBytes = 0)
{
    return {std::u16string(kBrowser), 0x50010000,     0x20, id, before,
            {-3, 4, 50, 14},          Data(dataBytes)};
}
} // namespace

TEST_CASE("SplitDialogTemplate: a plain template without ActiveX controls stays as it is", "[ui]")
{
    const auto bytes =
        TemplateBytes().PlainHeader(2).PlainItem(1, u"BUTTON").PlainItem(2, u"EDIT", 6);
    const auto result = SplitDialogTemplate(bytes.Bytes());
    REQUIRE(result);
    CHECK(result->words == bytes.Words());
    CHECK(result->activeX.empty());
    CHECK_FALSE(result->hasHostWindows);
}

TEST_CASE("SplitDialogTemplate: ActiveX controls leave a plain template with their data", "[ui]")
{
    const TemplateBytes bytes = TemplateBytes()
                                    .PlainHeader(4)
                                    .PlainItem(201, kBrowser, 4)
                                    .PlainItem(2, u"EDIT")
                                    .PlainItem(3, kBrowser, 8)
                                    .PlainItem(4, u"STATIC", 3);
    const auto result = SplitDialogTemplate(bytes.Bytes());
    REQUIRE(result);
    CHECK(result->words ==
          TemplateBytes().PlainHeader(2).PlainItem(2, u"EDIT").PlainItem(4, u"STATIC", 3).Words());
    CHECK(result->activeX == std::vector<ActiveXItem>{Browser(201, 0, 4), Browser(3, 1, 8)});
}

TEST_CASE("SplitDialogTemplate: ActiveX controls leave an extended template with their data",
          "[ui]")
{
    const TemplateBytes bytes = TemplateBytes()
                                    .ExtendedHeader(3)
                                    .ExtendedItem(100000, u"EDIT", 5)
                                    .ExtendedItem(201, kBrowser, 7)
                                    .ExtendedItem(9, u"STATIC");
    const auto result = SplitDialogTemplate(bytes.Bytes());
    REQUIRE(result);
    CHECK(result->words == TemplateBytes()
                               .ExtendedHeader(2)
                               .ExtendedItem(100000, u"EDIT", 5)
                               .ExtendedItem(9, u"STATIC")
                               .Words());
    CHECK(result->activeX == std::vector<ActiveXItem>{Browser(201, 1, 7)});
}

TEST_CASE("SplitDialogTemplate: classes of hosts are seen, whatever their capitals", "[ui]")
{
    const auto [name, isHost] = GENERATE(table<std::u16string_view, bool>(
        {{u"AtlAxWin", true}, {u"ATLAXWIN80", true}, {u"AtlAxWi", false}, {u"Button", false}}));
    const auto result =
        SplitDialogTemplate(TemplateBytes().PlainHeader(1).PlainItem(1, name).Bytes());
    REQUIRE(result);
    CHECK(result->hasHostWindows == isHost);
}

TEST_CASE("SplitDialogTemplate: a class given by number is the system's", "[ui]")
{
    TemplateBytes bytes;
    bytes.PlainHeader(1).Align().Double(1).Double(0).Place(0, 0, 1, 1).Word(7);
    bytes.Word(0xFFFF).Word(0x80).Word(0xFFFF).Word('{').Word(0);
    const auto result = SplitDialogTemplate(bytes.Bytes());
    REQUIRE(result);
    CHECK(result->words == bytes.Words());
}

TEST_CASE("SplitDialogTemplate: one that is cut short anywhere is none", "[ui]")
{
    const bool isExtended = GENERATE(false, true);
    TemplateBytes written;
    if (isExtended)
    {
        written.ExtendedHeader(2).ExtendedItem(1, u"BUTTON").ExtendedItem(2, kBrowser, 6);
    }
    else
    {
        written.PlainHeader(2).PlainItem(1, u"BUTTON").PlainItem(2, kBrowser, 6);
    }
    const std::vector<std::byte>& bytes = written.Bytes();
    for (std::size_t length = 0; length < bytes.size(); ++length)
    {
        INFO(length);
        CHECK_FALSE(SplitDialogTemplate(std::span(bytes).first(length)));
    }
    CHECK(SplitDialogTemplate(bytes));
}
