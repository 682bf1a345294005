// Keeps this library's exceptions to this library's own unwinder.
//
// The compiler's start-up code registers a module's unwind tables with libgcc_s_dw2-1.dll whenever
// the process has that library loaded, and with the module's own unwinder only when it has not. A
// host or another component may well have it, and may load or free it later; our statically linked
// unwinder would then find no tables, and the first exception inside the library, or its unloading,
// would end the host's process. The linker sends the question for that library here
// (--wrap), and the answer is that it is not loaded. The 64-bit edition has no part in this: there
// the system finds the tables in the image.

#include "server/run_time_symbols.h"

#include <windows.h>

#include <string_view>

namespace
{
using GetModuleHandleFunction = HMODULE(WINAPI*)(const char*);

HMODULE WINAPI GetModuleHandleExceptUnwinder(const char* name) noexcept;
} // namespace

extern "C"
{
    extern GetModuleHandleFunction real asm(VELT_REAL_SYMBOL(VELT_IMPORT("GetModuleHandleA", "4")));
    extern const GetModuleHandleFunction wrapped asm(
        VELT_WRAP_SYMBOL(VELT_IMPORT("GetModuleHandleA", "4")));
    const GetModuleHandleFunction wrapped = &GetModuleHandleExceptUnwinder;
}

namespace
{
HMODULE WINAPI GetModuleHandleExceptUnwinder(const char* name) noexcept
{
    const bool isUnwinder = name && std::string_view(name).starts_with("libgcc_s");
    return isUnwinder ? nullptr : real(name);
}
} // namespace
