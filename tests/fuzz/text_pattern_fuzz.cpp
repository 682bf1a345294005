// Looks for patterns with * and ? in texts, beside the plainest way to do so, and writes rules down
// and reads them back.

#include "foundation/utf.h"
#include "tests/fuzz/require.h"
#include "tools/trace/text_pattern.h"
#include "tools/trace/trace_rule.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

using velt::test::Require;

namespace
{
char Small(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}

/// How many bytes the character at the front takes: bytes that continue one belong to it.
std::size_t SizeOfFirst(std::string_view text)
{
    const auto next = std::find_if(text.begin() + 1, text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    });
    return static_cast<std::size_t>(next - text.begin());
}

/// Which places of the text the pattern can have come to, byte for byte of the pattern.
bool IsInPlainly(std::string_view pattern, std::string_view text)
{
    std::vector<bool> places(text.size() + 1, false);
    for (std::size_t at = 0; at < text.size(); at += SizeOfFirst(text.substr(at)))
    {
        places[at] = true; // it may begin at any character
    }
    places.back() = true;
    for (std::size_t at = 0; at < pattern.size(); ++at)
    {
        const bool escaped = pattern[at] == '\\' && at + 1 < pattern.size() &&
                             (pattern[at + 1] == '*' || pattern[at + 1] == '?');
        at += escaped ? 1 : 0;
        std::vector<bool> next(text.size() + 1, false);
        for (std::size_t place = 0; place <= text.size(); ++place)
        {
            if (!places[place])
            {
                continue;
            }
            if (!escaped && pattern[at] == '*')
            {
                std::fill(next.begin() + static_cast<std::ptrdiff_t>(place), next.end(), true);
            }
            else if (place < text.size() && !escaped && pattern[at] == '?')
            {
                next[place + SizeOfFirst(text.substr(place))] = true;
            }
            else if (place < text.size() && Small(pattern[at]) == Small(text[place]))
            {
                next[place + 1] = true;
            }
        }
        places = next;
    }
    return std::find(places.begin(), places.end(), true) != places.end();
}

void CheckRule(std::string_view line)
{
    const auto rule = velt::ParseRule(line);
    if (rule)
    {
        Require(rule->color >= 0 && rule->color < velt::TraceRule::kColors);
        Require(velt::ParseRule(velt::FormatRule(*rule)) == rule, "a rule is what was written");
        velt::TraceEntry entry;
        entry.level = rule->level.value_or(3);
        entry.source = entry.text = line;
        Require(rule->Means(entry, line) ==
                (rule->source.IsIn(line) && rule->process.IsIn(line) && rule->text.IsIn(line)));
        entry.fault = velt::TraceRecordFault::tooShort;
        Require(!rule->level || !rule->Means(entry, line), "what is malformed has no level");
    }
    velt::TraceRule terms;
    if (velt::ParseRuleTerms(line, terms))
    {
        velt::TraceRule again;
        Require(velt::ParseRuleTerms(velt::FormatRuleTerms(terms), again) && again == terms,
                "terms are what was written");
    }
    else
    {
        Require(terms == velt::TraceRule(), "what was not taken changes nothing");
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    const auto wellFormed = [](const std::string& bytes) {
        return velt::Utf8FromUtf16(velt::Utf16FromUtf8(bytes)); // as all texts of the viewer are
    };
    const std::string pattern = wellFormed(input.ConsumeRandomLengthString(200));
    const std::string text = wellFormed(input.ConsumeRemainingBytesAsString());
    Require(velt::TextPattern(pattern).IsIn(text) == IsInPlainly(pattern, text),
            "it is found where it is");
    CheckRule(pattern);
    CheckRule("+highlight3 " + pattern);

    // Any texts make a rule that can be written down.
    velt::TraceRule rule;
    rule.text = velt::TextPattern(pattern);
    rule.source = velt::TextPattern(text);
    const auto again = velt::ParseRule(velt::FormatRule(rule));
    Require(again && *again == rule, "any rule can be written down");
    return 0;
}
