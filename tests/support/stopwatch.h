#pragma once

#include <chrono>

namespace velt::test
{
/// How long a call takes, in milliseconds. The tick count is no clock for that: where it is another
/// process's task to advance it, as under Wine, it lags behind on a busy machine.
template <class Call>
unsigned long long MillisecondsOf(Call&& call)
{
    const auto start = std::chrono::steady_clock::now();
    call();
    const auto taken = std::chrono::steady_clock::now() - start;
    return static_cast<unsigned long long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(taken).count());
}
} // namespace velt::test
