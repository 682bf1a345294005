#include "service/cookie_codec.h"
#include "service/scrambled_text.h"
#include "tests/fuzz/require.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

using velt::test::Require;

namespace
{
/// One content has one text, and the text gives it back.
void CheckContent(const velt::SafeContent& content, std::string_view value)
{
    Require(velt::EncodeCookieValue(content) == value);
    const auto data = velt::MakeCookieData(content, "host.example", "");
    Require(!data || data->size() <= velt::kMaxCookieBytes);
    Require(!data || velt::FindSafeContent("a=b; " + *data + "; c=d") == content);
}

/// Reads texts out of the input: a byte of length in units, then the units.
std::u16string TakeText(std::string_view& bytes)
{
    std::u16string text;
    if (bytes.empty())
    {
        return text;
    }
    const auto length = static_cast<unsigned char>(bytes.front());
    bytes.remove_prefix(1);
    for (unsigned i = 0; i < length && bytes.size() >= 2; ++i)
    {
        const auto low = static_cast<unsigned char>(bytes[0]);
        const auto high = static_cast<unsigned char>(bytes[1]);
        text.push_back(static_cast<char16_t>(low | high << 8));
        bytes.remove_prefix(2);
    }
    return text;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string bytes(data, data + size);

    // As the cookies that the platform lists, as a cookie's value, and as a content.
    velt::FindSafeContent(bytes);
    if (const auto clear = velt::Unscramble(bytes))
    {
        Require(velt::Scramble(*clear) == bytes);
    }
    if (const auto content = velt::DecodeCookieValue(bytes))
    {
        CheckContent(*content, bytes);
    }
    const std::string value = velt::Scramble(bytes);
    Require(velt::Unscramble(value) == bytes);
    if (const auto content = velt::DecodeCookieValue(value))
    {
        CheckContent(*content, value);
    }

    // As texts that a host writes.
    velt::SafeContent written;
    for (std::string_view rest = bytes; !rest.empty();)
    {
        const std::u16string name = TakeText(rest);
        const std::u16string text = TakeText(rest);
        written.Set(name, text);
        Require(written.Find(name) && *written.Find(name) == text);
        ++written.revision;
    }
    CheckContent(written, velt::EncodeCookieValue(written));
    const auto cookie = velt::MakeCookieData(written, bytes, bytes);
    Require(!cookie ||
            (bytes.find(';') == bytes.npos && velt::FindSafeContent(*cookie) == written));
    return 0;
}
