#pragma once

#include <cstdint>
#include <optional>

namespace velt
{
/// The language of a locale that the update agent has no texts for: English.
inline constexpr std::int32_t kDefaultLanguageCode = 1033;

/// The update agent's code for the language of a locale identifier; none for a locale that it has
/// no texts for.
std::optional<std::int32_t> FindLanguageCode(std::int32_t locale) noexcept;
} // namespace velt
