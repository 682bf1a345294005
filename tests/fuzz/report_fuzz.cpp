// Writes reports of any texts, numbers and parts as JSON: a parser of others reads back what was
// put in, and lines of text stay lines.

#include "foundation/utf.h"
#include "tests/fuzz/require.h"
#include "tests/support/well_formed_utf8.h"
#include "tools/velt/report.h"

#include <fuzzer/FuzzedDataProvider.h>
#include <nlohmann/json.hpp>

#include <algorithm>

using namespace velt::tool;
using velt::test::Require;

namespace
{
using Json = nlohmann::ordered_json;

constexpr int kDeepest = 8;

/// What a reader of the JSON text sees of a text.
std::string Shown(const std::string& text)
{
    return velt::Utf8FromUtf16(velt::Utf16FromUtf8(text));
}

/// A report, and what it says in the parser's terms.
std::pair<Report, Json> TakeReport(FuzzedDataProvider& input, int depth)
{
    std::pair<Report, Json> taken{Report(), Json::object()};
    auto& [report, json] = taken;
    const auto texts = [&] { return input.ConsumeRandomLengthString(200); };
    for (int field = 0; input.remaining_bytes() > 0 && field < 20; ++field)
    {
        const std::string name = "field" + std::to_string(field); // as ours are: plain
        switch (input.ConsumeIntegralInRange(0, 6))
        {
        case 0:
        {
            const std::string text = texts();
            report.Add(name, text);
            json[name] = Shown(text);
            break;
        }
        case 1:
        {
            const auto number = input.ConsumeIntegral<std::int64_t>();
            report.Add(name, number);
            json[name] = number;
            break;
        }
        case 2:
        {
            const bool yes = input.ConsumeBool();
            report.Add(name, yes);
            json[name] = yes;
            break;
        }
        case 3:
            report.AddNothing(name);
            json[name] = nullptr;
            break;
        case 4:
        {
            ReportValue::Texts values;
            Json& shown = json[name] = Json::array();
            for (int i = input.ConsumeIntegralInRange(0, 3); i > 0; --i)
            {
                values.push_back(texts());
                shown.push_back(Shown(values.back()));
            }
            report.Add(name, ReportValue{values});
            break;
        }
        case 5:
        {
            ReportValue::Parts parts;
            Json shown = Json::array();
            for (int i = depth < kDeepest ? input.ConsumeIntegralInRange(0, 3) : 0; i > 0; --i)
            {
                auto [part, itsJson] = TakeReport(input, depth + 1);
                parts.push_back(std::move(part));
                shown.push_back(std::move(itsJson));
            }
            report.Add(name, ReportValue{std::move(parts)});
            json[name] = std::move(shown);
            break;
        }
        default:
            return taken;
        }
    }
    return taken;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    const auto [report, expected] = TakeReport(input, 0);
    const std::string json = report.Json();
    Require(std::all_of(json.begin(), json.end(), [](char c) { return c >= ' ' && c <= '~'; }));
    const Json read = Json::parse(json, nullptr, false);
    Require(!read.is_discarded(), "it is JSON");
    Require(read == expected, "and says what was put in");

    const std::string text = report.Text();
    Require(velt::test::IsWellFormedUtf8(text));
    Require(text.empty() || text.back() == '\n');
    Require(std::none_of(text.begin(), text.end(), [](char c) { return c == '\r' || c == '\x1B'; }),
            "a value cannot steer a terminal");
    return 0;
}
