#include "tools/velt/script_text.h"

#include "foundation/utf.h"

namespace velt::tool
{
std::u16string DecodeScript(std::string_view bytes)
{
    constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
    const bool little = bytes.starts_with("\xFF\xFE");
    const bool big = bytes.starts_with("\xFE\xFF");
    if (!little && !big)
    {
        return Utf16FromUtf8(bytes.substr(bytes.starts_with(kUtf8Mark) ? kUtf8Mark.size() : 0));
    }
    std::u16string text;
    for (std::size_t at = 2; at + 1 < bytes.size(); at += 2)
    {
        const auto first = static_cast<unsigned char>(bytes[at]);
        const auto second = static_cast<unsigned char>(bytes[at + 1]);
        text.push_back(static_cast<char16_t>(little ? first | second << 8 : first << 8 | second));
    }
    return Utf16FromUtf8(Utf8FromUtf16(text)); // lone surrogates are not well-formed
}
} // namespace velt::tool
