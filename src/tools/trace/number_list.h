#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace velt
{
/// Numbers in decimal digits with a blank between them, as settings are kept.
std::string FormatNumbers(std::span<const int> numbers);

/// The reverse; none for any other text, or for more or fewer than `count` numbers.
std::optional<std::vector<int>> ParseNumbers(std::string_view text, std::size_t count);

/// Whether the numbers are 0 up to their count, each once: an order of columns.
bool IsOrder(std::span<const int> numbers);
} // namespace velt
