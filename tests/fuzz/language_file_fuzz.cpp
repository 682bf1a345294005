#include "foundation/language_file.h"
#include "foundation/utf.h"
#include "tests/fuzz/require.h"
#include "tests/support/well_formed_utf8.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

using velt::test::Require;

namespace
{
/// What every text of a language file is, whatever the file's bytes were.
void CheckEntry(std::int32_t id, std::string_view text)
{
    constexpr std::string_view kWhiteSpace = " \t\v\f";
    Require(id != 0);
    Require(velt::test::IsWellFormedUtf8(text));
    Require(text.find_first_of("\r\n") == text.npos);
    Require(text.empty() || (text.front() != ' ' && text.front() != '\t'));
    Require(text.empty() || kWhiteSpace.find(text.back()) == kWhiteSpace.npos);
}

std::string WriteUtf8(const velt::Translations& texts)
{
    std::string file = "\xEF\xBB\xBF";
    for (const auto& [id, text] : texts)
    {
        file.append(std::to_string(id)).append(" ").append(text).append("\r\n");
    }
    return file;
}

std::string WriteUtf16(const velt::Translations& texts, bool bigEndian)
{
    const std::u16string units = u"\xFEFF" + velt::Utf16FromUtf8(WriteUtf8(texts).substr(3));
    std::string file;
    for (const char16_t unit : units)
    {
        const auto low = static_cast<char>(unit & 0xFF);
        const auto high = static_cast<char>(unit >> 8);
        file += bigEndian ? high : low;
        file += bigEndian ? low : high;
    }
    return file;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string bytes(data, data + size);
    const velt::Translations texts = velt::ParseLanguageFile(bytes);
    for (const auto& [id, text] : texts)
    {
        CheckEntry(id, text);
    }
    // Written out again, in any encoding, the texts are the same.
    Require(velt::ParseLanguageFile(WriteUtf8(texts)) == texts);
    Require(velt::ParseLanguageFile(WriteUtf16(texts, false)) == texts);
    Require(velt::ParseLanguageFile(WriteUtf16(texts, true)) == texts);
    return 0;
}
