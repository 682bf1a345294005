#pragma once

#include "foundation/unique_handle.h"
#include "foundation/velt_critical_section.h"

#include <windows.h>

#include <atomic>
#include <map>
#include <set>
#include <string>

namespace velt
{
/// Tells which process sends. A record does not say so, and the system does not either; but who has
/// the component loaded can be seen. Looking takes longer than a sender should wait, so a thread of
/// its own does it.
class SenderFinder
{
public:
    /// Throws SystemException::Win32.
    SenderFinder();

    SenderFinder(const SenderFinder&) = delete;
    SenderFinder& operator=(const SenderFinder&) = delete;

    ~SenderFinder();

    /// Asks for a look at the processes, at most twice a second. Any thread may call; returns
    /// at once.
    void Look() noexcept;

    /// Waits until the look that was asked for is done; false when it is not within the limit.
    bool Wait(DWORD limitMs) const noexcept;

    /// The processes that have, or just had, the component loaded: "host.exe (12)", or several
    /// joined by "or"; "?" for none. What a 32-bit viewer on 64-bit Windows sees may always come
    /// from a 64-bit program instead, and the text says so. Any thread may call. Throws
    /// std::bad_alloc.
    std::string Describe() const;

private:
    static DWORD WINAPI ThreadEntry(void* self) noexcept;
    void Run() noexcept;
    void Scan();

    // Constant after construction.
    UniqueKernelObject m_quit;
    UniqueKernelObject m_wanted;
    UniqueKernelObject m_done;
    const bool m_seesOneKind;

    std::atomic<DWORD> m_askedMs{0}; // when the last look was asked for

    // Worker only.
    std::set<DWORD> m_foreign; // processes that cannot be looked into or are of another kind
    DWORD m_foreignMs = 0;     // since when

    mutable VeltCriticalSection m_lock;
    std::map<DWORD, std::string> m_present;  // guarded by m_lock: of the last look
    std::map<DWORD, std::string> m_previous; // guarded by m_lock: of the one before

    UniqueKernelObject m_thread;
};
} // namespace velt
