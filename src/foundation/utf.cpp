#include "foundation/utf.h"

#include <cstddef>

namespace velt
{
namespace
{
bool IsHighSurrogate(char32_t unit) noexcept
{
    return unit >= 0xD800 && unit <= 0xDBFF;
}

bool IsLowSurrogate(char32_t unit) noexcept
{
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

void AppendUtf8(std::string& out, char32_t point)
{
    const auto put = [&out](char32_t byte) { out.push_back(static_cast<char>(byte)); };
    if (point < 0x80)
    {
        put(point);
    }
    else if (point < 0x800)
    {
        put(0xC0 | (point >> 6));
        put(0x80 | (point & 0x3F));
    }
    else if (point < 0x10000)
    {
        put(0xE0 | (point >> 12));
        put(0x80 | ((point >> 6) & 0x3F));
        put(0x80 | (point & 0x3F));
    }
    else
    {
        put(0xF0 | (point >> 18));
        put(0x80 | ((point >> 12) & 0x3F));
        put(0x80 | ((point >> 6) & 0x3F));
        put(0x80 | (point & 0x3F));
    }
}

void AppendUtf16(std::u16string& out, char32_t point)
{
    if (point < 0x10000)
    {
        out.push_back(static_cast<char16_t>(point));
        return;
    }
    const char32_t offset = point - 0x10000;
    out.push_back(static_cast<char16_t>(0xD800 + (offset >> 10)));
    out.push_back(static_cast<char16_t>(0xDC00 + (offset & 0x3FF)));
}

struct Decoded
{
    char32_t point;
    std::size_t size; // bytes taken, at least 1
};

/// Reads one code point from a text that is not empty.
Decoded DecodeUtf8(std::string_view text) noexcept
{
    struct Form
    {
        unsigned char mask;
        unsigned char lead;
        std::size_t size;
        char32_t smallest; // anything below has a shorter form
    };
    static constexpr Form kForms[] = {{0x80, 0x00, 1, 0x0},
                                      {0xE0, 0xC0, 2, 0x80},
                                      {0xF0, 0xE0, 3, 0x800},
                                      {0xF8, 0xF0, 4, 0x10000}};

    const auto lead = static_cast<unsigned char>(text[0]);
    for (const Form& form : kForms)
    {
        if ((lead & form.mask) != form.lead)
        {
            continue;
        }
        if (text.size() < form.size)
        {
            break;
        }
        char32_t point = lead & static_cast<unsigned char>(~form.mask);
        for (std::size_t i = 1; i < form.size; ++i)
        {
            const auto next = static_cast<unsigned char>(text[i]);
            if ((next & 0xC0) != 0x80)
            {
                return {kReplacementCharacter, 1};
            }
            point = (point << 6) | (next & 0x3Fu);
        }
        const bool surrogate = IsHighSurrogate(point) || IsLowSurrogate(point);
        if (point < form.smallest || point > 0x10FFFF || surrogate)
        {
            break;
        }
        return {point, form.size};
    }
    return {kReplacementCharacter, 1};
}
} // namespace

std::string Utf8FromUtf16(std::u16string_view text)
{
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        char32_t point = text[i];
        if (IsHighSurrogate(point) && i + 1 < text.size() && IsLowSurrogate(text[i + 1]))
        {
            point = 0x10000 + ((point - 0xD800) << 10) + (text[i + 1] - 0xDC00u);
            ++i;
        }
        else if (IsHighSurrogate(point) || IsLowSurrogate(point))
        {
            point = kReplacementCharacter;
        }
        AppendUtf8(out, point);
    }
    return out;
}

std::u16string Utf16FromUtf8(std::string_view text)
{
    std::u16string out;
    out.reserve(text.size());
    while (!text.empty())
    {
        const Decoded next = DecodeUtf8(text);
        AppendUtf16(out, next.point);
        text.remove_prefix(next.size);
    }
    return out;
}
} // namespace velt
