#include "tools/trace/trace_export.h"

#include "tools/trace/trace_filter.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>

namespace velt
{
namespace
{
using Buffer = std::array<char, 64>;
} // namespace

std::string FormatArrival(std::int64_t microseconds)
{
    using namespace std::chrono;
    constexpr sys_days kOrigin = year{1601} / January / 1;
    constexpr std::int64_t kPerDay = 86'400'000'000;
    const sys_days day = kOrigin + days(static_cast<int>(microseconds / kPerDay));
    const year_month_day date(day);
    const std::int64_t ofDay = microseconds % kPerDay;
    const auto second = static_cast<int>(ofDay / 1'000'000);

    Buffer text{};
    std::snprintf(text.data(), text.size(), "%04d-%02u-%02u %02d:%02d:%02d.%06d",
                  static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                  static_cast<unsigned>(date.day()), second / 3600, second / 60 % 60, second % 60,
                  static_cast<int>(ofDay % 1'000'000));
    return text.data();
}

std::string FormatDuration(std::int64_t microseconds)
{
    const auto whole = [&](std::int64_t unit) { return static_cast<int>(microseconds / unit); };
    const auto rest = [&](std::int64_t unit) { return static_cast<int>(microseconds % unit); };
    Buffer text{};
    if (microseconds < 1000)
    {
        std::snprintf(text.data(), text.size(), "%d us", whole(1));
    }
    else if (microseconds < 1'000'000)
    {
        std::snprintf(text.data(), text.size(), "%d.%03d ms", whole(1000), rest(1000));
    }
    else
    {
        std::snprintf(text.data(), text.size(), "%d.%06d s", whole(1'000'000), rest(1'000'000));
    }
    return text.data();
}

std::string FormatCount(std::uint64_t number)
{
    std::string digits = std::to_string(number);
    for (std::size_t at = digits.size(); at > 3;)
    {
        at -= 3;
        digits.insert(at, 1, ',');
    }
    return digits;
}

std::string FormatLevel(const TraceEntry& entry)
{
    return entry.fault == TraceRecordFault::none ? std::to_string(entry.level) : "!";
}

void AppendTextLine(std::string& to, const TraceEntry& entry, std::string_view process)
{
    to += FormatArrival(entry.arrivalUs) + "  " + FormatLevel(entry) + "  ";
    to.append(process).append("  ");
    if (!entry.source.empty())
    {
        to += WithoutControls(entry.source) + ": ";
    }
    to += WithoutControls(entry.text) + "\r\n";
}

bool EndsInCsv(std::string_view name) noexcept
{
    constexpr std::string_view kEnd = ".csv";
    return name.size() > kEnd.size() &&
           ContainsIgnoringCase(name.substr(name.size() - kEnd.size()), kEnd);
}

bool NeedsGuard(std::string_view field) noexcept
{
    field.remove_prefix(std::min(field.find_first_not_of('\''), field.size()));
    const std::size_t start = std::min(field.find_first_not_of(' '), field.size());
    return start < field.size() &&
           std::string_view("=+-@\t\r").find(field[start]) != std::string_view::npos;
}

void AppendCsvField(std::string& to, std::string_view field)
{
    const bool guarded = NeedsGuard(field);
    if (!guarded && field.find_first_of(",\"\r\n") == std::string_view::npos)
    {
        to += field;
        return;
    }
    to += '"';
    if (guarded)
    {
        to += '\'';
    }
    for (const char c : field)
    {
        to.append(c == '"' ? 2 : 1, c);
    }
    to += '"';
}

void AppendCsvLine(std::string& to, const TraceEntry& entry, std::string_view process)
{
    to += FormatArrival(entry.arrivalUs);
    to += ',';
    AppendCsvField(to, process);
    to += ',';
    to += FormatLevel(entry);
    to += ',';
    AppendCsvField(to, entry.source);
    to += ',';
    AppendCsvField(to, entry.text);
    to += "\r\n";
}
} // namespace velt
