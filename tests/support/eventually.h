#pragma once

#include "tests/support/test_thread.h"

#include <windows.h>

namespace velt::test
{
/// Asks again and again until it is true; false when it is not within the limit.
template <class Condition>
bool Eventually(Condition&& condition, DWORD limitMs = kWaitLimitMs)
{
    const ULONGLONG start = ::GetTickCount64();
    while (!condition())
    {
        if (::GetTickCount64() - start > limitMs)
        {
            return false;
        }
        ::Sleep(10);
    }
    return true;
}
} // namespace velt::test
