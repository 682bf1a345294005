#include "service/scrambled_text.h"

#include <catch.hpp>

#include <algorithm>
#include <random>
#include <string>

using velt::Scramble;
using velt::Unscramble;

namespace
{
constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

std::string RandomBytes(std::mt19937& random, std::size_t size)
{
    std::string bytes(size, '\0');
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
    return bytes;
}
} // namespace

TEST_CASE("Scramble: every text comes back, of every length", "[service]")
{
    std::mt19937 random(1); // NOLINT(cert-msc51-cpp): the same run each time
    for (std::size_t size = 0; size < 300; ++size)
    {
        const std::string clear = RandomBytes(random, size);
        const std::string text = Scramble(clear);
        CHECK(text.find_first_not_of(kAlphabet) == std::string::npos);
        CHECK(text.size() == ((size + 4) * 4 + 2) / 3);
        CHECK(Unscramble(text) == clear);
    }
    const std::string large = RandomBytes(random, 1'000'003);
    CHECK(Unscramble(Scramble(large)) == large);
}

TEST_CASE("Scramble: the text is the documented one, which later versions read", "[service]")
{
    // Worked out apart from it: CRC-32, and a stream by xorshift of 13, 17 and 5 bits.
    const auto [clear, text] = GENERATE(table<std::string, std::string>({
        {"", "AAAAAA"},
        {"a", "Q7636M4"},
        {"123456789", "Jjn0y2zBweQEoIxlVg"}, // the checksum is the well-known 0xCBF43926
        {"\x3By\xE5\x38", "VExFVui83D4"},    // ...and the key itself
    }));
    CHECK(Scramble(clear) == text);
    CHECK(Unscramble(text) == clear);
}

TEST_CASE("Scramble: the clear text does not show", "[service]")
{
    const std::string text = Scramble("secret");
    CHECK(text.find("secret") == std::string::npos);
    CHECK(text.find("c2VjcmV0") == std::string::npos); // its base64
    // One unit more and everything is different.
    CHECK(text.substr(0, 8) != Scramble("secreu").substr(0, 8));
}

TEST_CASE("Unscramble: a text that is cut anywhere is none", "[service]")
{
    const std::string text = Scramble("some clear text of some length");
    for (std::size_t size = 0; size < text.size(); ++size)
    {
        INFO(size);
        CHECK_FALSE(Unscramble(text.substr(0, size)));
        CHECK_FALSE(Unscramble(text.substr(text.size() - size)));
    }
    CHECK_FALSE(Unscramble(text + "A"));
    CHECK_FALSE(Unscramble(text + text));
}

TEST_CASE("Unscramble: a text with any character changed is none", "[service]")
{
    const std::string text = Scramble("0123456789");
    for (std::size_t at = 0; at < text.size(); ++at)
    {
        for (int byte = 0; byte < 256; ++byte)
        {
            std::string changed = text;
            changed[at] = static_cast<char>(byte);
            INFO(at << " " << byte);
            CHECK(Unscramble(changed).has_value() == (changed == text));
        }
    }
}

TEST_CASE("Unscramble: bits that belong to no byte must be zero", "[service]")
{
    REQUIRE(Unscramble("AAAAAA") == "");
    CHECK_FALSE(Unscramble("AAAAAB"));
    CHECK_FALSE(Unscramble("AAAAAP"));
}

TEST_CASE("Unscramble: what others may have written is none", "[service]")
{
    const std::string text = GENERATE(as<std::string>(), "", "A", "AA", "AAA", "AAAA", "AAAAA",
                                      "deleted", "1", "%20%20", "==", "AAAAAA==", "\xff\xfe",
                                      std::string(100'000, 'A'), std::string(65'536, '\0'));
    CHECK_FALSE(Unscramble(text));
}

TEST_CASE("Unscramble: random bytes are none", "[service]")
{
    std::mt19937 random(2); // NOLINT(cert-msc51-cpp)
    for (int i = 0; i < 20'000; ++i)
    {
        std::string bytes = RandomBytes(random, random() % 64);
        CHECK_FALSE(Unscramble(bytes));
        for (char& byte : bytes)
        {
            byte = kAlphabet[static_cast<unsigned char>(byte) % kAlphabet.size()];
        }
        CHECK_FALSE(Unscramble(bytes));
    }
}
