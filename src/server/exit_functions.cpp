// What is to be done when the library is unloaded: destructors of static objects, mostly. The
// run-time keeps its list of them in memory that it asks for at the first one, while the library is
// being loaded, and nobody hears of it when there is none: that destructor never runs. The linker
// sends its calls here (--wrap), where there is room for all that the library has, without asking.

#include "server/run_time_symbols.h"

#include <windows.h>

#include <array>
#include <cstddef>

extern "C"
{
    using ExitFunction = int(__cdecl*)();

    int RealRegister(void* table,
                     ExitFunction function) asm(VELT_REAL_SYMBOL("_register_onexit_function"));
    int WrappedRegister(void* table,
                        ExitFunction function) asm(VELT_WRAP_SYMBOL("_register_onexit_function"));
    int RealExecute(void* table) asm(VELT_REAL_SYMBOL("_execute_onexit_table"));
    int WrappedExecute(void* table) asm(VELT_WRAP_SYMBOL("_execute_onexit_table"));
}

namespace
{
// Far more than the library has; one that finds no place here goes to the run-time's own list, and
// runs before the others.
constexpr std::size_t kMost = 256;

constinit SRWLOCK g_lock = SRWLOCK_INIT; // objects inside functions are made by any thread

// guarded by g_lock
constinit std::array<ExitFunction, kMost> g_functions{};
constinit std::size_t g_count = 0;

/// The last one that was added, which is taken out; null when there is none.
ExitFunction TakeLast() noexcept
{
    ::AcquireSRWLockExclusive(&g_lock);
    const ExitFunction last = g_count > 0 ? g_functions[--g_count] : nullptr;
    ::ReleaseSRWLockExclusive(&g_lock);
    return last;
}
} // namespace

int WrappedRegister(void* table, ExitFunction function)
{
    ::AcquireSRWLockExclusive(&g_lock);
    const bool hasPlace = g_count < kMost;
    if (hasPlace)
    {
        g_functions[g_count++] = function;
    }
    ::ReleaseSRWLockExclusive(&g_lock);
    return hasPlace ? 0 : RealRegister(table, function);
}

int WrappedExecute(void* table)
{
    const int result = RealExecute(table);
    while (const ExitFunction function = TakeLast())
    {
        function();
    }
    return result;
}
