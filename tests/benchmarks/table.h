#pragma once

#include "tests/benchmarks/paired.h"

#include <cstdio>

namespace velt::bench
{
inline void PrintHeading(const char* last)
{
    std::printf("%-40s  %-34s  %12s  %12s  %6s  %-10s  %12s\n", "measure", "against", "ours",
                "other", "ratio", "reach", last);
}

/// One row of the table; `reach` is what the ratio is meant to be. Without a line end.
inline void PrintStart(const char* measure, const char* against, const PairedTimes& times,
                       const char* reach)
{
    std::printf("%-40s  %-34s  %12.1f  %12.1f  %6.2f  %-10s", measure, against, times.oursNs,
                times.againstNs, times.ratio, reach);
}

inline void PrintRow(const char* measure, const char* against, const PairedTimes& times,
                     const char* reach)
{
    PrintStart(measure, against, times, reach);
    std::printf("\n");
    std::fflush(stdout);
}

/// One figure that stands for itself.
inline void PrintFigure(const char* measure, double value, const char* unit, const char* reach)
{
    std::printf("%-40s  %-34s  %9.2f %s  %12s  %6s  %-10s\n", measure, "", value, unit, "", "",
                reach);
    std::fflush(stdout);
}
} // namespace velt::bench
