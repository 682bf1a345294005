#pragma once

#ifdef _WIN32
#include <windows.h>
#endif

#include <algorithm>
#include <chrono>
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

/// The time since some start; the run-time's own clock is too coarse on Windows.
inline double NowNs()
{
#ifdef _WIN32
    LARGE_INTEGER frequency;
    LARGE_INTEGER now;
    ::QueryPerformanceFrequency(&frequency);
    ::QueryPerformanceCounter(&now);
    return static_cast<double>(now.QuadPart) * 1e9 / static_cast<double>(frequency.QuadPart);
#else
    return std::chrono::duration<double, std::nano>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
#endif
}

template <class Body>
double NanosecondsOf(Body&& body)
{
    const double start = NowNs();
    body();
    return NowNs() - start;
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
