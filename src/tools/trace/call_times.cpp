#include "tools/trace/call_times.h"

#include "tools/trace/trace_export.h"
#include "tools/trace/trace_line.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace velt
{
namespace
{
constexpr std::size_t kMostOpen = 4096; // of one process; the oldest have lost their exit lines
} // namespace

void CallTimesCollector::Add(std::uint64_t sequence, const TraceEntry& entry)
{
    const TraceLine line = ParseTraceLine(entry.level, entry.text);
    if (line.kind == TraceLineKind::other || entry.fault != TraceRecordFault::none)
    {
        return;
    }
    std::vector<Open>& open = m_open[entry.process];
    if (line.kind == TraceLineKind::entry)
    {
        if (open.size() >= kMostOpen)
        {
            open.erase(open.begin(), open.begin() + kMostOpen / 2);
        }
        open.push_back({std::string(line.name), line.indentation, sequence, entry.arrivalUs, 0});
        return;
    }
    const auto found = std::find_if(open.rbegin(), open.rend(), [&](const Open& call) {
        return call.indentation == line.indentation && call.name == line.name;
    });
    if (found == open.rend())
    {
        return;
    }
    const std::int64_t tookUs = std::max<std::int64_t>(entry.arrivalUs - found->startUs, 0);
    const auto around = std::find_if(std::next(found), open.rend(), [&](const Open& call) {
        return call.indentation < line.indentation;
    });
    if (around != open.rend())
    {
        around->insideUs += tookUs;
    }
    auto known = m_times.find(line.name);
    if (known == m_times.end())
    {
        known = m_times.emplace(line.name, CallTimes{}).first;
        known->second.name = line.name;
    }
    CallTimes& times = known->second;
    times.totalUs += tookUs;
    times.ownUs += std::max<std::int64_t>(tookUs - found->insideUs, 0);
    if (times.count == 0 || tookUs > times.longestUs)
    {
        times.longestUs = tookUs;
        times.longest = found->sequence;
    }
    ++times.count;
    open.erase(std::prev(found.base()));
}

std::vector<CallTimes> CallTimesCollector::Take()
{
    std::vector<CallTimes> all;
    all.reserve(m_times.size());
    for (auto& [name, times] : m_times)
    {
        all.push_back(std::move(times));
    }
    m_times.clear();
    m_open.clear();
    return all;
}

void Sort(std::vector<CallTimes>& times, CallTimesOrder order)
{
    const auto value = [order](const CallTimes& of) -> std::int64_t {
        switch (order)
        {
        case CallTimesOrder::count:
            return static_cast<std::int64_t>(of.count);
        case CallTimesOrder::total:
            return of.totalUs;
        case CallTimesOrder::own:
            return of.ownUs;
        case CallTimesOrder::longest:
            return of.longestUs;
        case CallTimesOrder::name:
            break;
        }
        return 0;
    };
    std::sort(times.begin(), times.end(), [&](const CallTimes& a, const CallTimes& b) {
        const std::int64_t left = value(a);
        const std::int64_t right = value(b);
        return left != right ? left > right : a.name < b.name;
    });
}

std::string CallTimesCsv(const std::vector<CallTimes>& times)
{
    std::string lines = "\xEF\xBB\xBF"
                        "function,count,total us,own us,longest us\r\n";
    for (const CallTimes& each : times)
    {
        AppendCsvField(lines, each.name);
        for (const std::int64_t number :
             {static_cast<std::int64_t>(each.count), each.totalUs, each.ownUs, each.longestUs})
        {
            lines += ',' + std::to_string(number);
        }
        lines += "\r\n";
    }
    return lines;
}
} // namespace velt
