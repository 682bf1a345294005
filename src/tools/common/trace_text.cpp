#include "tools/common/trace_text.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace velt
{
namespace
{
using Buffer = std::array<char, 64>;

const char* FaultText(TraceRecordFault fault) noexcept
{
    switch (fault)
    {
    case TraceRecordFault::none:
        return "no fault";
    case TraceRecordFault::tooShort:
        return "too short";
    case TraceRecordFault::wrongMagic:
        return "wrong magic";
    case TraceRecordFault::wrongTotal:
        return "wrong total";
    case TraceRecordFault::sourceWithoutEnd:
        return "source without end";
    case TraceRecordFault::textWithoutEnd:
        return "text without end";
    }
    return "unknown fault";
}
} // namespace

std::string DescribeMalformed(TraceRecordFault fault, std::size_t sizeBytes,
                              std::span<const std::byte> front)
{
    constexpr std::size_t kMostShown = 16;
    std::string text = "malformed record (" + std::string(FaultText(fault)) + "), " +
                       std::to_string(sizeBytes) + (sizeBytes == 1 ? " byte" : " bytes");
    for (std::size_t i = 0; i < std::min(front.size(), kMostShown); ++i)
    {
        Buffer byte{};
        std::snprintf(byte.data(), byte.size(), "%s%02X", i == 0 ? ": " : " ",
                      std::to_integer<unsigned>(front[i]));
        text += byte.data();
    }
    return sizeBytes > kMostShown && !front.empty() ? text + " ..." : text;
}

std::string WithoutControls(std::string_view text)
{
    std::string clean;
    clean.reserve(text.size());
    for (const char c : text)
    {
        const auto code = static_cast<unsigned char>(c);
        if (code >= 0x20 && code != 0x7F)
        {
            clean += c;
            continue;
        }
        Buffer escape{};
        std::snprintf(escape.data(), escape.size(), "\\x%02X", code);
        clean += c == '\n' ? "\\n" : c == '\r' ? "\\r" : c == '\t' ? "\\t" : escape.data();
    }
    return clean;
}
} // namespace velt
