#pragma once

#include <windows.h>

#include <oaidl.h>
#include <objidl.h>

namespace velt
{
/// What the objects of a library need of the library itself. The library's module object implements
/// it; one lives per library, before the first object is made and after the last one is gone. All
/// operations may be called on any thread.
class ComModule
{
public:
    /// Called with its argument when the module ends.
    using TermFunc = void (*)(void* argument) noexcept;

    ComModule(const ComModule&) = delete;
    ComModule& operator=(const ComModule&) = delete;

    /// The library's module.
    static ComModule& Current() noexcept
    {
        return *s_current;
    }

    /// The count of live objects and server locks; both return the new value.
    virtual LONG Lock() noexcept = 0;
    virtual LONG Unlock() noexcept = 0;

    /// The process's global interface table, with a reference for the caller.
    virtual HRESULT GetGITPtr(IGlobalInterfaceTable** table) noexcept = 0;

    /// Has a function called when the module ends; functions run in the order they were added.
    virtual HRESULT AddTermFunc(TermFunc function, void* argument) noexcept = 0;

    /// The library's own type library, with a reference for the caller.
    virtual HRESULT GetTypeLibrary(ITypeLib** library) noexcept = 0;

protected:
    ComModule() noexcept
    {
        s_current = this;
    }

    ~ComModule()
    {
        s_current = nullptr;
    }

private:
    inline static constinit ComModule* s_current = nullptr;
};
} // namespace velt
