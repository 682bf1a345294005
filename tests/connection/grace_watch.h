#pragma once

#include "tests/support/import_patch.h"
#include "tests/support/test_thread.h"

#include <windows.h>

#include <atomic>

namespace velt::test
{
/// Watches the grace that a worker is given before it is ended by force: the waits, by their
/// argument instead of the clock. A worker of a busy machine may take longer here.
struct GraceWatch
{
    static constexpr DWORD kGraceMs = 5000;
    static constexpr DWORD kTerminationMs = 1000;

    using WaitPatch = ImportPatch<"WaitForSingleObject", decltype(::WaitForSingleObject)>;

    std::atomic<int> waits = 0;       // how often a worker was given its grace
    std::atomic<int> inVain = 0;      // and had not ended then
    std::atomic<int> forced = 0;      // for how many that were ended by force the end was awaited
    std::atomic<bool> isOver = false; // from now on each grace is over at once

    WaitPatch patch{"kernel32.dll", [this](HANDLE object, DWORD limitMs) -> DWORD {
                        if (limitMs != kGraceMs)
                        {
                            forced += limitMs == kTerminationMs ? 1 : 0;
                            return WaitPatch::Original(object, limitMs);
                        }
                        ++waits;
                        const DWORD result =
                            isOver ? WAIT_TIMEOUT : WaitPatch::Original(object, kWaitLimitMs);
                        inVain += result == WAIT_TIMEOUT ? 1 : 0;
                        return result;
                    }};
};
} // namespace velt::test
