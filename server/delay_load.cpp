// How the library loads the DLLs that it needs late: those of the internet and of the dialog's
// controls, which a host that wants a collection need not wait for. They are the system's, so they
// are looked for in its folder alone; and they stay until the process ends, because the library
// cannot give them back while it is itself being unloaded.

#include <windows.h>

#include <delayimp.h>

namespace
{
FARPROC WINAPI LoadFromSystemFolder(unsigned note, DelayLoadInfo* load)
{
    if (note != dliNotePreLoadLibrary)
    {
        return nullptr; // as usual
    }
    // Null on Windows 7 without its update for this flag: then the usual search follows.
    const HMODULE module = ::LoadLibraryExA(load->szDll, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    return reinterpret_cast<FARPROC>(module);
}
} // namespace

PfnDliHook __pfnDliNotifyHook2 = &LoadFromSystemFolder;
