#pragma once

#include <windows.h>

#include <unknwn.h>
#include <wrl/client.h>

#include <string>

namespace velt::test
{
/// Full path of a file that is shipped.
std::wstring ShippedFile(const wchar_t* name);

/// The component's DLL, loaded the way a host does that needs no registration. Freed at the end,
/// after all objects of it must be gone. Failures throw std::runtime_error.
class ComponentLibrary
{
public:
    ComponentLibrary();

    ComponentLibrary(const ComponentLibrary&) = delete;
    ComponentLibrary& operator=(const ComponentLibrary&) = delete;

    ~ComponentLibrary();

    HMODULE Module() const noexcept
    {
        return m_module;
    }

    HRESULT GetClassObject(REFCLSID clsid, REFIID iid, void** object) const
    {
        return m_getClassObject(clsid, iid, object);
    }

    HRESULT CanUnloadNow() const
    {
        return m_canUnloadNow();
    }

    HRESULT RegisterServer() const
    {
        return m_registerServer();
    }

    /// A new object of a class, through its class factory.
    template <class Interface>
    Microsoft::WRL::ComPtr<Interface> Create(REFCLSID clsid) const
    {
        Microsoft::WRL::ComPtr<IClassFactory> factory = Factory(clsid);
        Microsoft::WRL::ComPtr<Interface> object;
        Check(factory->CreateInstance(nullptr, IID_PPV_ARGS(&object)));
        return object;
    }

    Microsoft::WRL::ComPtr<IClassFactory> Factory(REFCLSID clsid) const;

private:
    static void Check(HRESULT hr);

    HMODULE m_module;
    HRESULT(WINAPI* m_getClassObject)(REFCLSID, REFIID, void**);
    HRESULT(WINAPI* m_canUnloadNow)();
    HRESULT(WINAPI* m_registerServer)();
};
} // namespace velt::test
