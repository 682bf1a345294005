#pragma once

#include "tools/trace/trace_store.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace velt
{
/// What the calls of one function took, in microseconds.
struct CallTimes
{
    std::string name;
    std::uint64_t count = 0;
    std::int64_t totalUs = 0;
    std::int64_t ownUs = 0; // without the calls between its entry and its exit line
    std::int64_t longestUs = 0;
    std::uint64_t longest = 0; // the record of that call's entry line

    bool operator==(const CallTimes&) const = default;
};

/// Adds calls up by function, from entry and exit lines as they follow each other. A call whose
/// exit line is not among them does not count. Lines pair as FindPartner pairs them; a call lies
/// within the nearest one of its process that is open and less indented. Records do not tell their
/// thread: with several at once, own times are an estimate.
class CallTimesCollector
{
public:
    /// The next record. Throws std::bad_alloc.
    void Add(std::uint64_t sequence, const TraceEntry& entry);

    /// By name.
    std::vector<CallTimes> Take();

private:
    struct Open
    {
        std::string name;
        std::size_t indentation = 0;
        std::uint64_t sequence = 0;
        std::int64_t startUs = 0;
        std::int64_t insideUs = 0; // of calls within it
    };

    std::map<std::uint32_t, std::vector<Open>> m_open; // by process
    std::map<std::string, CallTimes, std::less<>> m_times;
};

enum class CallTimesOrder : std::uint8_t
{
    name, // from A on; the others from the largest on
    count,
    total,
    own,
    longest,
};

/// Equal ones stay in the order of their names.
void Sort(std::vector<CallTimes>& times, CallTimesOrder order);

/// As CSV, with a line that names the columns.
std::string CallTimesCsv(const std::vector<CallTimes>& times);
} // namespace velt
