#pragma once

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace velt::bench
{
/// What one operation costs beside another one, measured in turn so that a change of the machine's
/// speed meets both. Times are medians in nanoseconds an operation; the ratio is the median of the
/// rounds' ratios.
struct PairedTimes
{
    double oursNs;
    double againstNs;
    double ratio;
};

inline double Median(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

template <class Body>
double NanosecondsOf(Body&& body)
{
    LARGE_INTEGER frequency;
    LARGE_INTEGER start;
    LARGE_INTEGER end;
    ::QueryPerformanceFrequency(&frequency);
    ::QueryPerformanceCounter(&start);
    body();
    ::QueryPerformanceCounter(&end);
    return static_cast<double>(end.QuadPart - start.QuadPart) * 1e9 /
           static_cast<double>(frequency.QuadPart);
}

/// Runs both bodies once unmeasured and then `rounds` times in turn. Each body does `operations`
/// operations.
template <class Ours, class Against>
PairedTimes MeasurePaired(std::size_t rounds, std::size_t operations, Ours&& ours,
                          Against&& against)
{
    std::vector<double> oursNs;
    std::vector<double> againstNs;
    std::vector<double> ratios;
    ours();
    against();
    for (std::size_t i = 0; i < rounds; ++i)
    {
        oursNs.push_back(NanosecondsOf(ours));
        againstNs.push_back(NanosecondsOf(against));
        ratios.push_back(oursNs.back() / againstNs.back());
    }
    const auto each = static_cast<double>(operations);
    return {Median(oursNs) / each, Median(againstNs) / each, Median(ratios)};
}
} // namespace velt::bench
