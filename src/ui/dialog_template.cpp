#include "ui/dialog_template.h"

#include "ui/byte_reader.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

namespace velt
{
namespace
{
constexpr std::uint32_t kSetFont = 0x40; // DS_SETFONT: the header has a font
constexpr std::uint16_t kOrdinal = 0xFFFF;

/// A text, or an ordinal, which reads as an empty text.
std::u16string TextOrOrdinal(ByteReader& reader)
{
    const std::uint16_t first = reader.Word();
    if (first == kOrdinal)
    {
        reader.Word();
        return {};
    }
    return reader.Text(first);
}

struct Header
{
    bool isExtended;
    std::size_t countAt; // where the number of items stands
    std::uint16_t count;
};

Header ReadHeader(ByteReader& reader)
{
    const std::uint32_t first = reader.DoubleWord();
    Header header{first == 0xFFFF0001, 8, 0};
    std::uint32_t style = first;
    if (header.isExtended)
    {
        reader.DoubleWord(); // help
        reader.DoubleWord(); // extended style
        style = reader.DoubleWord();
        header.countAt = 16;
    }
    else
    {
        reader.DoubleWord(); // extended style
    }
    header.count = reader.Word();
    reader.Skip(4 * sizeof(std::uint16_t)); // place
    TextOrOrdinal(reader);                  // menu
    TextOrOrdinal(reader);                  // class
    reader.Text(reader.Word());             // title
    if ((style & kSetFont) != 0)
    {
        reader.Skip(header.isExtended ? 6 : 2); // size; weight, italic and character set
        reader.Text(reader.Word());
    }
    return header;
}

struct Item
{
    ActiveXItem control;
    std::u16string className;
};

Item ReadItem(ByteReader& reader, bool isExtended)
{
    Item item{};
    ActiveXItem& control = item.control;
    if (isExtended)
    {
        reader.DoubleWord(); // help
        control.exStyle = reader.DoubleWord();
        control.style = reader.DoubleWord();
    }
    else
    {
        control.style = reader.DoubleWord();
        control.exStyle = reader.DoubleWord();
    }
    const auto coordinate = [&] { return static_cast<std::int16_t>(reader.Word()); };
    control.place.x = coordinate();
    control.place.y = coordinate();
    control.place.width = coordinate();
    control.place.height = coordinate();
    control.id = isExtended ? reader.DoubleWord() : reader.Word();
    item.className = TextOrOrdinal(reader);
    TextOrOrdinal(reader); // title
    // In a plain template, the size of the creation data counts its own two bytes.
    const std::uint16_t dataSize = reader.Word();
    control.data = reader.Bytes(isExtended || dataSize < 2 ? dataSize : dataSize - 2U);
    return item;
}

bool AsksForHostWindow(std::u16string_view className) noexcept
{
    constexpr std::u16string_view kName = u"atlaxwin";
    return className.size() >= kName.size() &&
           std::equal(kName.begin(), kName.end(), className.begin(), [](char16_t name, char16_t c) {
               return name == (c >= u'A' && c <= u'Z' ? c + (u'a' - u'A') : c);
           });
}

void Append(std::vector<std::uint32_t>& words, std::span<const std::byte> bytes)
{
    const std::size_t at = words.size();
    words.resize(at + (bytes.size() + 3) / 4);
    std::memcpy(&words[at], bytes.data(), bytes.size());
}
} // namespace

std::optional<DialogTemplate> SplitDialogTemplate(std::span<const std::byte> bytes)
{
    ByteReader reader(bytes);
    const Header header = ReadHeader(reader);
    DialogTemplate result;
    if (!reader.IsWhole())
    {
        return std::nullopt;
    }
    Append(result.words, bytes.first(reader.Position()));
    std::uint16_t kept = 0;
    for (std::uint16_t i = 0; i < header.count; ++i)
    {
        reader.Align();
        const std::size_t start = reader.Position();
        Item item = ReadItem(reader, header.isExtended);
        if (!reader.IsWhole())
        {
            return std::nullopt;
        }
        if (item.className.starts_with(u'{'))
        {
            item.control.classId = std::move(item.className);
            item.control.before = kept;
            result.activeX.push_back(std::move(item.control));
        }
        else
        {
            result.hasHostWindows |= AsksForHostWindow(item.className);
            Append(result.words, bytes.subspan(start, reader.Position() - start));
            ++kept;
        }
    }
    std::memcpy(reinterpret_cast<std::byte*>(result.words.data()) + header.countAt, &kept,
                sizeof(kept));
    return result;
}
} // namespace velt
