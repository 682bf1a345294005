#pragma once

#include <windows.h>

#include <cstdint>

namespace velt
{
/// Local time in microseconds since 1601, with the steps of the performance counter. It takes the
/// date and the zone once, so the time between two arrivals stays true when somebody sets the
/// system's clock. Any thread may ask.
class ArrivalClock
{
public:
    ArrivalClock() noexcept
    {
        FILETIME utc;
        FILETIME local;
        ::QueryPerformanceFrequency(&m_frequency); // cannot fail since Windows XP
        ::QueryPerformanceCounter(&m_start);
        ::GetSystemTimeAsFileTime(&utc);
        if (!::FileTimeToLocalFileTime(&utc, &local))
        {
            local = utc;
        }
        const std::uint64_t ticks =
            std::uint64_t{local.dwHighDateTime} << 32 | local.dwLowDateTime; // of 100 ns
        m_startUs = static_cast<std::int64_t>(ticks / 10);
    }

    std::int64_t Now() const noexcept
    {
        LARGE_INTEGER counter;
        ::QueryPerformanceCounter(&counter);
        const std::int64_t ticks = counter.QuadPart - m_start.QuadPart;
        // ticks * 1000000 / frequency, without its overflow after some days.
        const std::int64_t perSecond = m_frequency.QuadPart;
        return m_startUs + ticks / perSecond * 1'000'000 +
               ticks % perSecond * 1'000'000 / perSecond;
    }

private:
    LARGE_INTEGER m_frequency{};
    LARGE_INTEGER m_start{};
    std::int64_t m_startUs = 0;
};
} // namespace velt
