#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace velt::facts
{
/// One entry of facts.txt; its head explains the fields.
struct ListEntry
{
    std::string id;
    std::map<std::string, std::string> fields;

    /// A field's text; empty when the entry has none of that name.
    std::string Text(const std::string& field) const;
};

/// The entries in their order. A line that is neither a head, nor a field, nor a comment, nor empty
/// throws std::runtime_error.
std::vector<ListEntry> ParseFactList(std::string_view text);

/// Whether an answer is one of those that a column allows: "one | another".
bool IsOneOf(std::string_view answer, std::string_view column);
} // namespace velt::facts
