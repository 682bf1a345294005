#pragma once

#include <cstddef>
#include <string_view>

namespace velt::test
{
/// Whether a text is UTF-8 by the table of well-formed byte sequences of the Unicode standard. Says
/// it by the bytes' ranges and decodes nothing, so that it shares no mistake with a decoder.
constexpr bool IsWellFormedUtf8(std::string_view text) noexcept
{
    struct Row
    {
        unsigned char leadFrom, leadTo;     // first byte
        unsigned char secondFrom, secondTo; // second byte; all later ones are 80..BF
        std::size_t size;
    };
    constexpr Row kRows[] = {
        {0x00, 0x7F, 0x00, 0x00, 1}, {0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3},
        {0xE1, 0xEC, 0x80, 0xBF, 3}, {0xED, 0xED, 0x80, 0x9F, 3}, {0xEE, 0xEF, 0x80, 0xBF, 3},
        {0xF0, 0xF0, 0x90, 0xBF, 4}, {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4}};
    const auto isBetween = [&text](std::size_t at, unsigned char from, unsigned char to) {
        const auto byte = static_cast<unsigned char>(text[at]);
        return byte >= from && byte <= to;
    };

    while (!text.empty())
    {
        const Row* found = nullptr;
        for (const Row& row : kRows)
        {
            if (isBetween(0, row.leadFrom, row.leadTo))
            {
                found = &row;
            }
        }
        if (!found || text.size() < found->size)
        {
            return false;
        }
        for (std::size_t i = 1; i < found->size; ++i)
        {
            if (!isBetween(i, i == 1 ? found->secondFrom : 0x80, i == 1 ? found->secondTo : 0xBF))
            {
                return false;
            }
        }
        text.remove_prefix(found->size);
    }
    return true;
}
} // namespace velt::test
