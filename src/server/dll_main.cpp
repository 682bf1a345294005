#include "foundation/com_method.h"
#include "server/exception_state.h"
#include "server/module.h"

#include <windows.h>

namespace
{
CVeltHTTPClient g_module;
} // namespace

// There is deliberately no unregistration entry point: what registration wrote stays until an
// installer removes it.

STDAPI DllGetClassObject(REFCLSID clsid, REFIID iid, void** object)
{
    return velt::ComMethod("DllGetClassObject",
                           [&] { return g_module.GetClassObject(clsid, iid, object); });
}

STDAPI DllCanUnloadNow()
{
    return velt::ComMethod("DllCanUnloadNow",
                           [] { return g_module.GetLockCount() > 0 ? S_FALSE : S_OK; });
}

STDAPI DllRegisterServer()
{
    return velt::ComMethod("DllRegisterServer", [] { return g_module.RegisterServer(); });
}

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, void* reserved)
{
    if (reason == DLL_PROCESS_ATTACH)
    {
        return velt::HasExceptionState() && g_module.Initialise(instance) ? TRUE : FALSE;
    }
    if (reason == DLL_THREAD_DETACH)
    {
        UTrace::EndThread();
        velt::EndExceptionStateOfThread();
    }
    if (reason == DLL_PROCESS_DETACH && reserved)
    {
        g_module.OnProcessEnd(); // the tear-down itself is the module's destructor
    }
    return TRUE;
}
