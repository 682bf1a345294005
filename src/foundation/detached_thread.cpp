#include "foundation/detached_thread.h"

#include "foundation/module_lock.h"
#include "foundation/unique_handle.h"

#include <windows.h>

#include <process.h>

#include <cstdint>
#include <memory>
#include <new>

namespace velt
{
namespace
{
struct Start
{
    void (*function)(void*) noexcept;
    void* argument;
    HMODULE module; // the reference that the thread gives up
};

unsigned __stdcall ThreadEntry(void* argument) noexcept
{
    Start start{};
    {
        const std::unique_ptr<Start> given(static_cast<Start*>(argument));
        start = *given;
    }
    start.function(start.argument);
    ComModule::Current().Unlock();
    ::FreeLibraryAndExitThread(start.module, 0);
}
} // namespace

bool RunDetached(void (*function)(void* argument) noexcept, void* argument) noexcept
{
    std::unique_ptr<Start> start(new (std::nothrow) Start{function, argument, nullptr});
    if (!start ||
        !::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                              reinterpret_cast<const wchar_t*>(&ThreadEntry), &start->module))
    {
        return false;
    }
    ModuleLock lock;
    const std::uintptr_t thread =
        ::_beginthreadex(nullptr, 0, &ThreadEntry, start.get(), 0, nullptr);
    if (thread == 0)
    {
        ::FreeLibrary(start->module);
        return false;
    }
    lock.Keep();
    static_cast<void>(start.release()); // the thread's
    // NOLINTNEXTLINE(performance-no-int-to-ptr): so it is given
    const UniqueKernelObject handle(reinterpret_cast<HANDLE>(thread));
    return true;
}
} // namespace velt
