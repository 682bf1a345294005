#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velt
{
/// One value of the safe store. Both texts are any UTF-16 units, zeros and lone surrogates too.
struct SafePair
{
    std::u16string name;
    std::u16string value;

    friend bool operator==(const SafePair&, const SafePair&) = default;
};

/// What one cookie of the safe store holds. Each writing counts the revision up: a URL may see
/// several of our cookies, written with different domains or for a folder above, and the one with
/// the highest revision is the one that counts.
struct SafeContent
{
    std::uint32_t revision = 0;
    std::vector<SafePair> pairs;

    /// The value of a name; null when there is none. Valid until the next change.
    const std::u16string* Find(std::u16string_view name) const noexcept;

    /// Gives a name a value, in the place of the one that it had.
    void Set(std::u16string_view name, std::u16string_view value);

    friend bool operator==(const SafeContent&, const SafeContent&) = default;
};

/// The name of our cookie.
inline constexpr std::string_view kSafeCookieName = "velt";

/// How long all of a cookie's data, attributes included, can be: what every store keeps.
inline constexpr std::size_t kMaxCookieBytes = 4096;

/// A cookie's value. Before it is scrambled it is numbers, each of them in bytes of 7 bits, the
/// lowest first, with the top bit set in all but the last byte:
///   the revision
///   for each pair the length of the name in units, its units, the length of the value, its units
/// Throws std::bad_alloc only.
std::string EncodeCookieValue(const SafeContent& content);

/// The reverse; none when the text is not whole or not of this kind. Throws std::bad_alloc only.
std::optional<SafeContent> DecodeCookieValue(std::string_view text);

/// What the cookies of a URL ("name=value; name=value", as the platform lists them) hold for the
/// safe store; empty when none of ours is whole. Throws std::bad_alloc only.
SafeContent FindSafeContent(std::string_view cookies);

/// A whole cookie: name, value and the attributes that are not empty. `expires` is a date as
/// ExpiryText makes it. None when it would be longer than a store keeps, or the domain has
/// characters that would end the attribute. Throws std::bad_alloc only.
std::optional<std::string> MakeCookieData(const SafeContent& content, std::string_view domain,
                                          std::string_view expires);
} // namespace velt
