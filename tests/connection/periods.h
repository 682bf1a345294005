#pragma once

#include <windows.h>

namespace velt::test
{
/// A worker's period, in milliseconds, that a test can wait for often; and one that no test
/// outlives.
inline constexpr DWORD kPeriodMs = 20;
inline constexpr DWORD kNeverMs = 600'000;
} // namespace velt::test
