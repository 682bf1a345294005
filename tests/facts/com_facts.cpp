#include "tests/facts/fact.h"
#include "tests/facts/fact_object.h"
#include "tests/support/activation_context.h"
#include "tests/support/apartment_thread.h"
#include "tests/support/com_apartment.h"

#include <windows.h>

#include <objbase.h>
#include <wrl/client.h>

#include <atomic>
#include <optional>

namespace velt::facts
{
namespace
{
using Microsoft::WRL::ComPtr;
using test::ApartmentThread;

constexpr wchar_t kUserClass[] = L"CLSID\\{6C4E9F55-8D0B-4B0E-9A43-5E1B7C0D2A61}";
constexpr CLSID kUserClsid = {
    0x6C4E9F55, 0x8D0B, 0x4B0E, {0x9A, 0x43, 0x5E, 0x1B, 0x7C, 0x0D, 0x2A, 0x61}};
constexpr CLSID kNoClsid = {
    0x6C4E9F5F, 0x8D0B, 0x4B0E, {0x9A, 0x43, 0x5E, 0x1B, 0x7C, 0x0D, 0x2A, 0x61}};

// How long an apartment stays silent. Long against a call, and no more than that: a machine that is
// too slow for it would answer "waits" where nothing waits.
constexpr DWORD kSilenceMs = 3000;

std::string CallWithTwoArguments(DISPID id, WORD kind)
{
    const test::ComApartment apartment;
    FactObject object;
    VARIANTARG arguments[2]{};
    arguments[0].vt = arguments[1].vt = VT_I4;
    DISPPARAMS parameters{arguments, nullptr, 2, 0};
    VARIANT result{};
    return Hex(object.Invoke(id, IID_NULL, 0, kind, &parameters, &result, nullptr, nullptr));
}

std::string TooManyArguments()
{
    return CallWithTwoArguments(1, DISPATCH_METHOD);
}

std::string TooManyForProperty()
{
    return CallWithTwoArguments(2, DISPATCH_PROPERTYGET);
}

std::string PutReadOnly()
{
    const test::ComApartment apartment;
    FactObject object;
    VARIANTARG argument{};
    argument.vt = VT_I4;
    DISPID named = DISPID_PROPERTYPUT;
    DISPPARAMS parameters{&argument, &named, 1, 1};
    return Hex(object.Invoke(2, IID_NULL, 0, DISPATCH_PROPERTYPUT, &parameters, nullptr, nullptr,
                             nullptr));
}

std::string ContextToken()
{
    ULONG_PTR first = 0;
    ULONG_PTR second = 0;
    ApartmentThread one(COINIT_MULTITHREADED);
    ApartmentThread other(COINIT_MULTITHREADED);
    one.Do([&] { ::CoGetContextToken(&first); });
    other.Do([&] { ::CoGetContextToken(&second); });
    Need(first && second, "no token");
    return Choose(first == second, "one for all threads", "one for each thread");
}

ComPtr<IGlobalInterfaceTable> InterfaceTable()
{
    ComPtr<IGlobalInterfaceTable> table;
    Need(SUCCEEDED(::CoCreateInstance(CLSID_StdGlobalInterfaceTable, nullptr, CLSCTX_INPROC_SERVER,
                                      IID_IGlobalInterfaceTable, &table)),
         "no interface table");
    return table;
}

std::string FreeThreadedThroughTable()
{
    ApartmentThread home;
    ApartmentThread guest;
    std::optional<FactObject> object;
    DWORD cookie = 0;
    bool itself = false;
    home.Do([&] {
        object.emplace(true);
        Need(SUCCEEDED(
                 InterfaceTable()->RegisterInterfaceInGlobal(&*object, IID_IDispatch, &cookie)),
             "not registered");
    });
    guest.Do([&] {
        ComPtr<IDispatch> found;
        Need(SUCCEEDED(InterfaceTable()->GetInterfaceFromGlobal(cookie, IID_IDispatch, &found)),
             "not found");
        itself = found.Get() == static_cast<IDispatch*>(&*object);
    });
    home.Do([&] {
        InterfaceTable()->RevokeInterfaceFromGlobal(cookie);
        object.reset();
    });
    return Choose(itself, "the object itself", "a proxy");
}

/// An apartment registers an object, and stays silent while another thread does something with the
/// entry; then it takes calls until that has ended.
struct SilentApartment
{
    bool answered = false; // during the silence
    bool releasedAtHome = false;
    bool wasReleased = false; // by what was done
};

SilentApartment DoWithSilentApartment(bool revoke)
{
    SilentApartment seen;
    ApartmentThread home;
    ApartmentThread other(COINIT_MULTITHREADED);
    std::optional<FactObject> object;
    DWORD cookie = 0;
    home.Do([&] {
        object.emplace();
        Need(SUCCEEDED(
                 InterfaceTable()->RegisterInterfaceInGlobal(&*object, IID_IDispatch, &cookie)),
             "not registered");
    });
    const UniqueKernelObject done(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
    ComPtr<IDispatch> proxy;
    if (!revoke)
    {
        other.Do([&] {
            Need(SUCCEEDED(InterfaceTable()->GetInterfaceFromGlobal(cookie, IID_IDispatch, &proxy)),
                 "not found");
        });
    }
    // Both have their own half from here on: the calling thread only waits. A call that came before
    // the silence would be taken.
    const UniqueKernelObject silent(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
    home.Begin([&] {
        ::SetEvent(silent.Get());
        seen.answered = ::WaitForSingleObject(done.Get(), kSilenceMs) == WAIT_OBJECT_0;
        ApartmentThread::WaitPumping(done.Get(), INFINITE);
    });
    ::WaitForSingleObject(silent.Get(), INFINITE);
    other.Begin([&] {
        if (revoke)
        {
            InterfaceTable()->RevokeInterfaceFromGlobal(cookie);
        }
        else
        {
            UINT count = 0;
            proxy->GetTypeInfoCount(&count);
            proxy.Reset();
        }
        ::SetEvent(done.Get());
    });
    other.Finish();
    home.Finish();
    seen.wasReleased = object->ReleasedBy() != 0;
    seen.releasedAtHome = object->ReleasedBy() == home.Id();
    home.Do([&] {
        if (!revoke)
        {
            InterfaceTable()->RevokeInterfaceFromGlobal(cookie);
        }
        object.reset();
    });
    return seen;
}

std::string CallIntoSilentApartment()
{
    return Choose(DoWithSilentApartment(false).answered, "does not wait", "waits");
}

std::string RevokeFromSilentApartment()
{
    const SilentApartment seen = DoWithSilentApartment(true);
    return Choose(seen.answered, "does not wait", "waits") + ", released " +
           (!seen.wasReleased     ? "later"
            : seen.releasedAtHome ? "in its apartment"
                                  : "by the caller");
}

std::string MissingServerHandles()
{
    const test::ComApartment apartment;
    const auto ask = [] {
        ComPtr<IUnknown> object;
        ::CoCreateInstance(kNoClsid, nullptr, CLSCTX_LOCAL_SERVER, IID_IUnknown, &object);
    };
    const auto handles = [] {
        DWORD count = 0;
        ::GetProcessHandleCount(::GetCurrentProcess(), &count);
        return count;
    };
    ask(); // what is kept once does not count
    const DWORD before = handles();
    for (int i = 0; i < 10; ++i)
    {
        ask();
    }
    return Choose(handles() < before + 10, "keeps nothing", "keeps handles each time");
}

std::string ActivationContextClass()
{
    CLSID clsid;
    return Choose(SUCCEEDED(::CLSIDFromProgID(L"Microsoft.Windows.ActCtx", &clsid)), "there",
                  "missing");
}

std::string UserClass()
{
    const test::ComApartment apartment;
    const std::wstring path =
        std::wstring(L"Software\\Classes\\") + kUserClass + L"\\InprocServer32";
    const wchar_t server[] = L"oleaut32.dll";
    Need(::RegSetKeyValueW(HKEY_CURRENT_USER, path.c_str(), nullptr, REG_SZ, server,
                           sizeof(server)) == ERROR_SUCCESS,
         "cannot register");
    // That library does not know the class; it is asked if the registration was seen.
    ComPtr<IClassFactory> factory;
    const HRESULT result =
        ::CoGetClassObject(kUserClsid, CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory, &factory);
    DWORD size = 0;
    TOKEN_ELEVATION elevation{};
    HANDLE token = nullptr;
    ::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token);
    ::GetTokenInformation(token, TokenElevation, &elevation, sizeof(elevation), &size);
    ::CloseHandle(token);
    return std::string(elevation.TokenIsElevated ? "elevated: " : "not elevated: ") +
           (result == REGDB_E_CLASSNOTREG ? "not seen" : "seen");
}

void UndoUserClass()
{
    DeleteClassesKey(kUserClass);
}

constexpr char kMarshalManifest[] = R"(<?xml version="1.0" encoding="UTF-8" standalone="yes"?>
<assembly xmlns="urn:schemas-microsoft-com:asm.v1" manifestVersion="1.0">
  <assemblyIdentity type="win32" name="VeltFacts.Marshal" version="1.0.0.0"/>
  <file name="facts_library.tlb">
    <typelib tlbid="{6C4E9F52-8D0B-4B0E-9A43-5E1B7C0D2A61}" version="1.0" helpdir=""/>
  </file>
  <comInterfaceExternalProxyStub name="IVeltFact" iid="{6C4E9F53-8D0B-4B0E-9A43-5E1B7C0D2A61}"
    tlbid="{6C4E9F52-8D0B-4B0E-9A43-5E1B7C0D2A61}" proxyStubClsid32="{00020424-0000-0000-C000-000000000046}"/>
</assembly>
)";

void WriteMarshalFiles()
{
    const HRSRC resource = ::FindResourceW(nullptr, MAKEINTRESOURCEW(1), L"TYPELIB");
    Need(resource != nullptr, "no type library");
    WriteBytes(L"facts_library.tlb",
               {static_cast<const char*>(::LockResource(::LoadResource(nullptr, resource))),
                ::SizeofResource(nullptr, resource)});
    WriteBytes(L"facts.manifest", kMarshalManifest);
}

/// A proxy of an object that is registered by a manifest alone, from an apartment that has the
/// manifest in force, to one that has or has not.
std::string UnmarshalByManifest(bool inForceThere)
{
    WriteMarshalFiles();
    const std::wstring manifest = FullPath(L"facts.manifest");
    ApartmentThread home;
    ApartmentThread guest;
    std::optional<FactObject> object;
    IStream* stream = nullptr;
    HRESULT marshaled = E_FAIL;
    HRESULT unmarshaled = E_FAIL;
    home.Do([&] {
        const test::ActivationContext context(manifest);
        object.emplace();
        marshaled = ::CoMarshalInterThreadInterfaceInStream(IID_IVeltFact, &*object, &stream);
    });
    if (FAILED(marshaled))
    {
        return "not marshaled, " + Hex(marshaled);
    }
    guest.Do([&] {
        std::optional<test::ActivationContext> context;
        if (inForceThere)
        {
            context.emplace(manifest);
        }
        ComPtr<IVeltFact> proxy;
        unmarshaled = ::CoGetInterfaceAndReleaseStream(stream, IID_IVeltFact, &proxy);
    });
    home.Do([&] {
        ::CoDisconnectObject(&*object, 0);
        object.reset();
    });
    return SUCCEEDED(unmarshaled) ? "a proxy" : "no proxy, " + Hex(unmarshaled);
}

std::string UnmarshalUnderManifest()
{
    return UnmarshalByManifest(true);
}

std::string UnmarshalWithoutManifest()
{
    return UnmarshalByManifest(false);
}

// Under Wine, the proxies' library registers itself when it is found by a manifest.
constexpr Fact kFacts[] = {
    {"com.too-many-arguments", &TooManyArguments},
    {"com.too-many-for-a-property", &TooManyForProperty},
    {"com.put-of-a-read-only-property", &PutReadOnly},
    {"com.context-token", &ContextToken},
    {"com.free-threaded-through-the-table", &FreeThreadedThroughTable},
    {"com.call-into-a-silent-apartment", &CallIntoSilentApartment},
    {"com.entry-of-a-silent-apartment", &RevokeFromSilentApartment},
    {"com.missing-local-server", &MissingServerHandles},
    {"com.activation-context-class", &ActivationContextClass},
    {"com.user-class", &UserClass, &UndoUserClass},
    {"com.manifest-in-both-threads", &UnmarshalUnderManifest, &UndoFactLibrary},
    {"com.manifest-in-one-thread", &UnmarshalWithoutManifest, &UndoFactLibrary},
};
} // namespace

std::span<const Fact> ComFacts()
{
    return kFacts;
}
} // namespace velt::facts
