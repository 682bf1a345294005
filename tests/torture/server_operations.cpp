#include "tests/support/outer_object.h"
#include "tests/support/temp_folder.h"
#include "tests/torture/trial.h"

#include <provider_lib.h>

namespace velt::torture
{
namespace
{
using Microsoft::WRL::ComPtr;

void GetClassObject(Trial& trial, REFCLSID clsid, REFIID iid, HRESULT ordinary)
{
    ComPtr<IUnknown> object;
    const HRESULT hr = trial.Act(
        [&] {
            return trial.Library().GetClassObject(clsid, iid,
                                                  reinterpret_cast<void**>(object.GetAddressOf()));
        },
        ordinary);
    trial.Check(SUCCEEDED(hr) == (object != nullptr), "the out value is not whole");
}

void CreateInstance(Trial& trial, REFCLSID clsid, REFIID iid, HRESULT ordinary = S_OK)
{
    const auto factory = trial.Library().Factory(clsid);
    ComPtr<IUnknown> object;
    const HRESULT hr = trial.Act(
        [&] {
            return factory->CreateInstance(nullptr, iid,
                                           reinterpret_cast<void**>(object.GetAddressOf()));
        },
        ordinary);
    trial.Check(SUCCEEDED(hr) == (object != nullptr), "the out value is not whole");
    trial.Do([&] { object.Reset(); });
}

void Aggregate(Trial& trial, REFCLSID clsid)
{
    const auto factory = trial.Library().Factory(clsid);
    bool isAlive = false;
    {
        const auto outer = velt::test::OuterObject::Make(&isAlive);
        const HRESULT hr = trial.Act([&] { return outer->Aggregate(*factory.Get()); });
        trial.Check(SUCCEEDED(hr) == (outer->Inner() != nullptr), "the out value is not whole");
        if (SUCCEEDED(hr))
        {
            ComPtr<IDispatch> dispatch;
            trial.Act([&] { return outer->QueryInterface(IID_PPV_ARGS(&dispatch)); });
        }
    }
    trial.Check(!isAlive, "references are left");
}

/// Another copy of the component in this process, whose start and end can be watched: it is mapped,
/// and its entry point is called as the system does it.
class Copy
{
public:
    explicit Copy(const std::wstring& path)
        : m_module(::LoadLibraryExW(path.c_str(), nullptr, DONT_RESOLVE_DLL_REFERENCES))
    {
        if (!m_module)
        {
            throw std::runtime_error("the copy is not mapped");
        }
        FaultEngine::Install(m_module, true);
        const auto* const image = reinterpret_cast<const char*>(m_module);
        const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(image);
        const auto* const headers =
            reinterpret_cast<const IMAGE_NT_HEADERS*>(image + dos->e_lfanew);
        m_entry = reinterpret_cast<Entry>(
            reinterpret_cast<UINT_PTR>(image + headers->OptionalHeader.AddressOfEntryPoint));
    }

    Copy(const Copy&) = delete;
    Copy& operator=(const Copy&) = delete;

    ~Copy()
    {
        FaultEngine::Forget(m_module);
        ::FreeLibrary(m_module);
    }

    bool Call(DWORD reason) const
    {
        return m_entry(m_module, reason, nullptr) != FALSE;
    }

    HMODULE Module() const noexcept
    {
        return m_module;
    }

private:
    using Entry = BOOL(WINAPI*)(HMODULE, DWORD, void*);

    HMODULE m_module;
    Entry m_entry;
};

template <class Function>
Function Exported(const Copy& copy, const char* name)
{
    return reinterpret_cast<Function>(
        reinterpret_cast<void*>(::GetProcAddress(copy.Module(), name)));
}

/// What a library does once, at the first call of a kind, happens in each run here.
void Use(Trial& trial, const Copy& copy)
{
    const auto getClass =
        Exported<HRESULT(WINAPI*)(REFCLSID, REFIID, void**)>(copy, "DllGetClassObject");
    ComPtr<IClassFactory> factory;
    ComPtr<IVeltHTTPService> service;
    ComPtr<ITypeInfo> info;
    trial.Act([&] {
        return getClass(CLSID_CVeltHTTPService, IID_IClassFactory,
                        reinterpret_cast<void**>(factory.GetAddressOf()));
    });
    if (factory)
    {
        trial.Act([&] { return factory->CreateInstance(nullptr, IID_PPV_ARGS(&service)); });
    }
    if (service)
    {
        const HRESULT hr =
            trial.Act([&] { return service->GetTypeInfo(0, LOCALE_USER_DEFAULT, &info); });
        trial.Check(SUCCEEDED(hr) == (info != nullptr), "the out value is not whole");
        const InText url(trial.Place(L"copy-torture").c_str());
        BSTR text = nullptr;
        trial.Act([&] { return service->ReadData(url, nullptr, &text); });
        ::SysFreeString(text);
    }
    trial.Do([&] {
        info.Reset();
        service.Reset();
        factory.Reset();
    });
    const auto canUnload = Exported<HRESULT(WINAPI*)()>(copy, "DllCanUnloadNow");
    trial.Act([&] { return canUnload(); });
}

void LoadAndUnload(Trial& trial, bool isUsed)
{
    static const velt::test::TempFolder folder(L"torture");
    const std::wstring path = folder.File(L"copy.dll");
    ::CopyFileW(velt::test::ShippedFile(L"VeltHTTPClient12OEM.dll").c_str(), path.c_str(), TRUE);
    const Copy copy(path);
    bool isLoaded = false;
    trial.Do([&] { isLoaded = copy.Call(DLL_PROCESS_ATTACH); });
    trial.CheckOrdinary(isLoaded, "is not loaded");
    if (isLoaded && isUsed)
    {
        Use(trial, copy);
    }
    trial.Do([&] { copy.Call(DLL_PROCESS_DETACH); }); // also where the load was refused
}
} // namespace

void AddServerOperations(std::vector<Operation>& operations)
{
    const auto add = [&](const char* name, std::function<void(Trial&)> run) {
        operations.push_back({"server", name, std::move(run)});
    };
    add("Load and unload", [](Trial& trial) { LoadAndUnload(trial, false); });
    add("Load, use and unload", [](Trial& trial) { LoadAndUnload(trial, true); });
    add("DllGetClassObject", [](Trial& trial) {
        GetClassObject(trial, CLSID_CVeltHTTPService, IID_IClassFactory, S_OK);
    });
    add("DllGetClassObject of an unknown class", [](Trial& trial) {
        GetClassObject(trial, CLSID_NULL, IID_IClassFactory, CLASS_E_CLASSNOTAVAILABLE);
    });
    add("DllGetClassObject of another interface", [](Trial& trial) {
        GetClassObject(trial, CLSID_CEnumVariantCol, IID_IDispatch, E_NOINTERFACE);
    });
    add("DllGetClassObject to nowhere", [](Trial& trial) {
        trial.Act(
            [&] {
                return trial.Library().GetClassObject(CLSID_CEnumVariantCol, IID_IClassFactory,
                                                      nullptr);
            },
            E_POINTER);
    });
    add("DllCanUnloadNow", [](Trial& trial) {
        trial.Act([&] {
            const HRESULT hr = trial.Library().CanUnloadNow();
            return hr == S_FALSE && !trial.IsAlone() ? S_OK : hr; // others have objects
        });
    });
    add("Create a service",
        [](Trial& trial) { CreateInstance(trial, CLSID_CVeltHTTPService, IID_IVeltHTTPService); });
    add("Create a collection",
        [](Trial& trial) { CreateInstance(trial, CLSID_CEnumVariantCol, IID_IEnumVariantCol); });
    add("Create a dialog",
        [](Trial& trial) { CreateInstance(trial, CLSID_CVeltEulaDlg, IID_IVeltEulaDlg); });
    add("Create with another interface", [](Trial& trial) {
        CreateInstance(trial, CLSID_CEnumVariantCol, IID_IVeltEulaDlg, E_NOINTERFACE);
    });
    add("Aggregate a service", [](Trial& trial) { Aggregate(trial, CLSID_CVeltHTTPService); });
    add("Aggregate a collection", [](Trial& trial) { Aggregate(trial, CLSID_CEnumVariantCol); });
    add("Aggregate a dialog", [](Trial& trial) { Aggregate(trial, CLSID_CVeltEulaDlg); });
    add("LockServer", [](Trial& trial) {
        const auto factory = trial.Library().Factory(CLSID_CEnumVariantCol);
        const HRESULT hr = trial.Act([&] { return factory->LockServer(TRUE); });
        trial.Check(!trial.IsAlone() ||
                        trial.Library().CanUnloadNow() == (SUCCEEDED(hr) ? S_FALSE : S_OK),
                    "another count of locks");
        if (SUCCEEDED(hr) && trial.Act([&] { return factory->LockServer(FALSE); }) != S_OK)
        {
            factory->LockServer(FALSE);
        }
    });
    add("DllRegisterServer",
        [](Trial& trial) { trial.Act([&] { return trial.Library().RegisterServer(); }); });
}
} // namespace velt::torture
