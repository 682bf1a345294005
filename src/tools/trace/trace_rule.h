#pragma once

#include "tools/trace/text_pattern.h"
#include "tools/trace/trace_store.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velt
{
/// What becomes of the records that a rule is about.
enum class TraceRuleKind : std::uint8_t
{
    include,   // they alone are shown, with those of other rules of this kind
    exclude,   // they are not shown
    forget,    // they are not even kept
    highlight, // they have a colour behind them
};

/// One of several filters and highlights that can be switched on and off each by itself. A record
/// is meant when all that the rule names fits; what is left empty fits always.
struct TraceRule
{
    static constexpr int kColors = 5;

    bool on = true;
    TraceRuleKind kind = TraceRuleKind::include;
    int color = 0;                     // of a highlight, below kColors
    std::optional<std::int32_t> level; // exactly this one; malformed records have none
    TextPattern text;
    TextPattern source;
    TextPattern process;

    /// Whether it means a record. `process` is the name that the record is shown with.
    bool Means(const TraceEntry& entry, std::string_view itsProcess) const noexcept;

    /// Whether it names nothing and so means every record.
    bool MeansAll() const noexcept
    {
        return !level && text.IsEmpty() && source.IsEmpty() && process.IsEmpty();
    }

    bool operator==(const TraceRule&) const = default;
};

using TraceRules = std::vector<TraceRule>;

/// What a rule means, on one line: `level:3 source:net* process:"host.exe (12)" the text`. What is
/// empty is left out; a text that itself begins with such a word has `text:` in front. Between
/// quotation marks, two of them stand for one. Throws std::bad_alloc.
std::string FormatRuleTerms(const TraceRule& rule);

/// The reverse: takes the terms into a rule, whose kind and switch stay. False for a level that is
/// no number, and for a quotation mark that stays open; the rule is then unchanged. Throws
/// std::bad_alloc.
bool ParseRuleTerms(std::string_view line, TraceRule& rule);

/// A whole rule on one line: `+` or `-` for on and off, the kind (`include`, `exclude`, `forget`,
/// `highlight1`, ...), a blank, the terms. Throws std::bad_alloc.
std::string FormatRule(const TraceRule& rule);

/// The reverse of FormatRule; none for any other text.
std::optional<TraceRule> ParseRule(std::string_view line);
} // namespace velt
