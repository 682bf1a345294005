// Gives back, when the library is unloaded, what the compiler's run-time in it keeps until the
// process ends: semaphores of its locks (of the unwinder, of local statics) and the memory for
// exceptions when there is no other. A host that loads and frees the library many times would lose
// handles and 19 KB each time.
//
// The linker sends the calls for semaphores and those that destroy a lock here (--wrap); what was
// created and not destroyed by the end is closed then. The library itself makes no semaphores. A
// lock's count alone serves while one thread is left, so the locks can still be used afterwards.

#include "server/run_time_symbols.h"

#include <windows.h>

#include <array>
#include <atomic>

namespace
{
using CreateSemaphoreFunction = HANDLE(WINAPI*)(SECURITY_ATTRIBUTES*, LONG, LONG, const wchar_t*);

HANDLE WINAPI CreateRunTimeSemaphore(SECURITY_ATTRIBUTES* security, LONG count, LONG limit,
                                     const wchar_t* name) noexcept;
} // namespace

extern "C"
{
    /// A lock of the run-time's.
    struct RunTimeMutex
    {
        long counter;
        HANDLE semaphore;
    };

    extern CreateSemaphoreFunction realCreate asm(VELT_REAL_SYMBOL(VELT_IMPORT("CreateSemaphoreW",
                                                                               "16")));
    extern const CreateSemaphoreFunction wrappedCreate asm(
        VELT_WRAP_SYMBOL(VELT_IMPORT("CreateSemaphoreW", "16")));
    const CreateSemaphoreFunction wrappedCreate = &CreateRunTimeSemaphore;

    void RealDestroy(RunTimeMutex* mutex) asm(VELT_REAL_SYMBOL("__gthr_win32_mutex_destroy"));
    void WrappedDestroy(RunTimeMutex* mutex) asm(VELT_WRAP_SYMBOL("__gthr_win32_mutex_destroy"));

    // __gnu_cxx::__freeres, which is in none of the run-time's headers.
    void FreeExceptionMemory() asm(VELT_SYMBOL("_ZN9__gnu_cxx9__freeresEv"));
}

namespace
{
// More than the run-time has; one that finds no place here is left open.
constexpr std::size_t kMostSemaphores = 16;
constinit std::array<std::atomic<HANDLE>, kMostSemaphores> g_semaphores{};

/// Puts another handle into the first place that holds `from`.
void Replace(HANDLE from, HANDLE to) noexcept
{
    for (auto& place : g_semaphores)
    {
        HANDLE expected = from;
        if (place.compare_exchange_strong(expected, to))
        {
            return;
        }
    }
}

HANDLE WINAPI CreateRunTimeSemaphore(SECURITY_ATTRIBUTES* security, LONG count, LONG limit,
                                     const wchar_t* name) noexcept
{
    const HANDLE semaphore = realCreate(security, count, limit, name);
    if (semaphore)
    {
        Replace(nullptr, semaphore);
    }
    return semaphore;
}

/// The first object to be constructed and the last one to be destroyed.
class RunTimeLeftovers
{
public:
    RunTimeLeftovers() noexcept = default;

    RunTimeLeftovers(const RunTimeLeftovers&) = delete;
    RunTimeLeftovers& operator=(const RunTimeLeftovers&) = delete;

    ~RunTimeLeftovers()
    {
        for (auto& place : g_semaphores)
        {
            if (const HANDLE semaphore = place.exchange(nullptr))
            {
                ::CloseHandle(semaphore);
            }
        }
        FreeExceptionMemory();
    }
};
[[maybe_unused]] RunTimeLeftovers g_leftovers __attribute__((init_priority(101)));
} // namespace

extern "C" void WrappedDestroy(RunTimeMutex* mutex)
{
    Replace(mutex->semaphore, nullptr);
    RealDestroy(mutex);
}
