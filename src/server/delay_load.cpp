// How the library loads the DLLs that it needs late: those of the internet and of the dialog's
// controls, which a host that wants a collection need not wait for. They are the system's, so they
// are looked for in its folder; and they stay until the process ends, because the library cannot
// give them back while it is itself being unloaded.

#include "foundation/library_utils.h"

#include <windows.h>

#include <delayimp.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace
{
FARPROC WINAPI LoadFromSystemFolder(unsigned note, DelayLoadInfo* load) noexcept
{
    if (note != dliNotePreLoadLibrary)
    {
        return nullptr; // as usual
    }
    const std::string_view ascii = load->szDll;
    std::array<wchar_t, MAX_PATH> name{};
    std::copy_n(ascii.begin(), std::min(ascii.size(), name.size() - 1), name.begin());
    return reinterpret_cast<FARPROC>(velt::LoadSystemLibrary(name.data()));
}
} // namespace

PfnDliHook __pfnDliNotifyHook2 = &LoadFromSystemFolder;
