// How a program loads the DLLs of the system that it needs late: the library those of the internet
// and of the dialog's controls, which a host that wants a collection need not wait for. They are
// the system's, so they are looked for in its folder and nowhere else; and they stay until the
// process ends, because the library cannot give them back while it is itself being unloaded.
//
// The compiler's helper would go on with a plain search, and then raise an exception of the
// system's that C++ does not catch. So nothing is left to it: where a library or a function is
// missing, it is given a function of ours to call instead, which throws as if the missing one had
// thrown.

#include "foundation/library_utils.h"
#include "foundation/system_exception.h"

#include <windows.h>

#include <delayimp.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace
{
/// Stands in for a function of any signature: it is entered by a jump, with the missing one's
/// arguments, and never returns. The last error is that of the look-up, which has just failed.
[[noreturn]] void ThrowNotFound()
{
    velt::ThrowLastError();
}

/// The library from the system's folder; null with the thread's last error set. It is loaded once
/// more for each of its functions that is used, which costs a look-up.
HMODULE LoadFromSystemFolder(std::string_view ascii) noexcept
{
    std::array<wchar_t, MAX_PATH> name{};
    std::copy_n(ascii.begin(), std::min(ascii.size(), name.size() - 1), name.begin());
    return velt::LoadSystemLibrary(name.data());
}

/// Has the next calls go to a function by themselves. Some linkers make the pages of the table
/// read-only; they stay writable afterwards, because other threads may be writing to them too.
/// Where they cannot be made so, the next call looks again.
void Keep(FARPROC* entry, FARPROC function) noexcept
{
    DWORD before = 0;
    if (::VirtualProtect(entry, sizeof(*entry), PAGE_READWRITE, &before))
    {
        *entry = function;
    }
}

/// Called before anything else; the helper takes a function for the answer and does no more.
FARPROC WINAPI FindLateFunction(unsigned note, DelayLoadInfo* load) noexcept
{
    if (note != dliStartProcessing)
    {
        return nullptr;
    }
    const HMODULE library = LoadFromSystemFolder(load->szDll);
    const FARPROC function =
        library ? ::GetProcAddress(library, load->dlp.fImportByName
                                                ? load->dlp.szProcName
                                                : MAKEINTRESOURCEA(load->dlp.dwOrdinal))
                : nullptr;
    if (!function)
    {
        // For this call only: the next one looks again.
        return reinterpret_cast<FARPROC>(&ThrowNotFound);
    }
    Keep(load->ppfn, function);
    return function;
}
} // namespace

PfnDliHook __pfnDliNotifyHook2 = &FindLateFunction;
