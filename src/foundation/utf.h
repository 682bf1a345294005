#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace velt
{
/// The character that stands for input which is not well-formed (U+FFFD).
inline constexpr char32_t kReplacementCharacter = 0xFFFD;

/// Converts UTF-16 to UTF-8. A surrogate without its partner becomes U+FFFD, so every input is
/// valid. Throws std::bad_alloc only.
std::string Utf8FromUtf16(std::u16string_view text);

/// Converts UTF-8 to UTF-16. Each byte that belongs to no well-formed sequence (overlong forms,
/// surrogates and values past U+10FFFF are not well-formed) becomes one U+FFFD, so every input is
/// valid. Throws std::bad_alloc only.
std::u16string Utf16FromUtf8(std::string_view text);
} // namespace velt
