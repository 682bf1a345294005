// The library comes and goes, many times, and leaves nothing behind.

#include "tests/support/activation_context.h"
#include "tests/support/component_library.h"
#include "tests/support/debuggee.h"
#include "tests/support/process_usage.h"
#include "tests/support/thread_group.h"

#include <provider_lib.h>

#include <objbase.h>

#include <array>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include <catch.hpp>

using Microsoft::WRL::ComPtr;
using velt::test::ActivationContext;
using velt::test::ComponentLibrary;
using velt::test::CurrentUsage;
using velt::test::ProcessUsage;
using velt::test::ShippedFile;
using velt::test::UncertainHeapBytes;

namespace
{
constexpr int kWarmUpRounds = 20;
constexpr int kRounds = 200;

constexpr wchar_t kManifest[] = L"VeltHTTPClient12OEM.Assembly.manifest";
constexpr wchar_t kClassKey[] = L"CLSID\\{344E0DAC-547C-47B5-A1A0-FF9A9C193352}";

bool IsLoaded()
{
    return ::GetModuleHandleW(L"VeltHTTPClient12OEM.dll") != nullptr;
}

/// How many thread-local indexes the process could still have.
std::size_t FreeThreadLocalIndexes()
{
    std::vector<DWORD> taken;
    for (DWORD index = ::TlsAlloc(); index != TLS_OUT_OF_INDEXES; index = ::TlsAlloc())
    {
        taken.push_back(index);
    }
    for (const DWORD index : taken)
    {
        ::TlsFree(index);
    }
    return taken.size();
}

/// Runs the rounds and checks that the later ones need no more than the earlier ones. What grows
/// with each round grows past any of these limits.
void CheckNoGrowth(const std::function<void()>& round)
{
    for (int i = 0; i < kWarmUpRounds; ++i)
    {
        round();
    }
    const ProcessUsage before = CurrentUsage();
    const std::size_t indexes = FreeThreadLocalIndexes();
    for (int i = 0; i < kRounds; ++i)
    {
        round();
    }
    const ProcessUsage after = CurrentUsage();
    CHECK(after.handles <= before.handles + 4);
    CHECK(after.heapBytes <= before.heapBytes + kRounds * 64 + UncertainHeapBytes());
    CHECK(after.privateBytes <= before.privateBytes + (1u << 20)); // heaps grow by large steps
    CHECK(FreeThreadLocalIndexes() + 4 >= indexes);
}

/// Uses a collection: an object with memory of its own, an enumerator and a late-bound call, which
/// loads the type library.
void Use(IEnumVariantCol& collection)
{
    VARIANT value;
    ::VariantInit(&value);
    value.vt = VT_I4;
    for (value.lVal = 0; value.lVal < 10; ++value.lVal)
    {
        REQUIRE(collection.Add(value) == S_OK);
    }
    LONG count = 0;
    REQUIRE(collection.get_Count(&count) == S_OK);
    REQUIRE(count == 10);
    ComPtr<IUnknown> enumerator;
    REQUIRE(collection.get__NewEnum(&enumerator) == S_OK);
    wchar_t clear[] = L"Clear";
    LPOLESTR name = clear;
    DISPID id = 0;
    REQUIRE(collection.GetIDsOfNames(IID_NULL, &name, 1, LOCALE_USER_DEFAULT, &id) == S_OK);
    DISPPARAMS none{};
    REQUIRE(collection.Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &none, nullptr,
                              nullptr, nullptr) == S_OK);
}

/// One life of the component in a thread's COM.
void CreateUseAndRelease()
{
    REQUIRE(SUCCEEDED(::CoInitialize(nullptr)));
    {
        ComPtr<IEnumVariantCol> collection;
        REQUIRE(::CoCreateInstance(CLSID_CEnumVariantCol, nullptr, CLSCTX_INPROC_SERVER,
                                   IID_PPV_ARGS(&collection)) == S_OK);
        REQUIRE(IsLoaded());
        Use(*collection.Get());
        ::CoFreeUnusedLibraries();
        REQUIRE(IsLoaded()); // in use
    }
    ::CoFreeUnusedLibraries();
    ::CoUninitialize();
    REQUIRE_FALSE(IsLoaded());
}
} // namespace

TEST_CASE("unloading: descriptions are given back and not when the process ends", "[.child]")
{
    using ReleaseFunction = ULONG(WINAPI*)(ITypeInfo*);
    static ReleaseFunction s_release = nullptr;
    static int s_calls = 0;
    static bool s_ending = false;
    struct Watch
    {
        static ULONG WINAPI Release(ITypeInfo* info)
        {
            ++s_calls;
            if (s_ending)
            {
                // The library's detaching is what runs after the program's own clean-up.
                ::TerminateProcess(::GetCurrentProcess(), 77);
            }
            return s_release(info);
        }
    };
    // Every description of the system's goes through one table of functions.
    ComPtr<ITypeLib> types;
    ComPtr<ITypeInfo> any;
    REQUIRE(::LoadTypeLibEx(ShippedFile(L"VeltHTTPClient12OEM.tlb").c_str(), REGKIND_NONE,
                            &types) == S_OK);
    REQUIRE(types->GetTypeInfo(0, &any) == S_OK);
    constexpr std::size_t kReleaseSlot = 2; // of IUnknown
    void** const slot = *reinterpret_cast<void***>(any.Get()) + kReleaseSlot;
    DWORD protection = 0;
    REQUIRE(::VirtualProtect(slot, sizeof(*slot), PAGE_READWRITE, &protection));
    s_release = reinterpret_cast<ReleaseFunction>(*slot);
    *slot = reinterpret_cast<void*>(&Watch::Release);
    {
        const ComponentLibrary library;
        Use(*library.Create<IEnumVariantCol>(CLSID_CEnumVariantCol).Get());
        s_calls = 0;
    }
    CHECK(s_calls == 1);
    const HMODULE stays =
        ::LoadLibraryW(ShippedFile(L"VeltHTTPClient12OEM.dll").c_str()); // until the end
    REQUIRE(stays);
    {
        const ComponentLibrary library;
        Use(*library.Create<IEnumVariantCol>(CLSID_CEnumVariantCol).Get());
    }
    any.Detach(); // its own releases are not looked at
    types.Detach();
    REQUIRE(std::atexit([] { s_ending = true; }) == 0);
}

TEST_CASE("The library: leaves foreign objects alone when the process ends", "[server]")
{
    CHECK(velt::test::RunInChild(
              "unloading: descriptions are given back and not when the process ends") == 0);
}

TEST_CASE("The library: loading and unloading it 200 times leaves nothing", "[server]")
{
    CheckNoGrowth([] {
        {
            const ComponentLibrary library;
            Use(*library.Create<IEnumVariantCol>(CLSID_CEnumVariantCol).Get());
            REQUIRE(library.CanUnloadNow() == S_OK);
        }
        REQUIRE_FALSE(IsLoaded());
    });
}

TEST_CASE("The library: exceptions inside it leave nothing either", "[server]")
{
    CheckNoGrowth([] {
        const ComponentLibrary library;
        const auto collection = library.Create<IEnumVariantCol>(CLSID_CEnumVariantCol);
        VARIANT wrong;
        ::VariantInit(&wrong);
        wrong.vt = 0x0FFF; // cannot be copied, which is thrown inside
        REQUIRE(collection->Remove(wrong) == DISP_E_BADVARTYPE);
        HRESULT onOtherThread = S_OK;
        velt::test::RunOnNewThread([&] { onOtherThread = collection->Remove(wrong); });
        REQUIRE(onOtherThread == DISP_E_BADVARTYPE);
    });
}

TEST_CASE("The library: eight threads throw inside it at once, each for itself", "[server]")
{
    const ComponentLibrary library;
    const auto collection = library.Create<IEnumVariantCol>(CLSID_CEnumVariantCol);
    std::array<int, 8> failures{};
    velt::test::RunTogether(8, [&](unsigned thread) {
        VARIANT wrong;
        ::VariantInit(&wrong);
        wrong.vt = 0x0FFF;
        for (int i = 0; i < 50; ++i)
        {
            failures[thread] += collection->Remove(wrong) == DISP_E_BADVARTYPE ? 0 : 1;
        }
    });
    CHECK(failures == std::array<int, 8>{});
}

TEST_CASE("The library: threads that have used it leave nothing when they end", "[server]")
{
    const ComponentLibrary library;
    CheckNoGrowth([&] { velt::test::RunTogether(8, [&](unsigned) { library.CanUnloadNow(); }); });
}

TEST_CASE("The library: unloads at once while nothing was made", "[server]")
{
    CheckNoGrowth([] {
        {
            const ComponentLibrary library;
        }
        REQUIRE_FALSE(IsLoaded());
    });
}

TEST_CASE("The library: 200 lives in COM without registration leave nothing", "[server]")
{
    const ActivationContext context(ShippedFile(kManifest));
    CheckNoGrowth(&CreateUseAndRelease);
}

TEST_CASE("The library: 200 lives in COM by a registered class leave nothing", "[server]")
{
    // Registration writes this class's key with doubled braces, which COM does not find.
    const std::wstring library = ShippedFile(L"VeltHTTPClient12OEM.dll");
    const std::wstring server = std::wstring(kClassKey) + L"\\InprocServer32";
    const auto size = static_cast<DWORD>((library.size() + 1) * sizeof(wchar_t));
    REQUIRE(::RegSetKeyValueW(HKEY_CLASSES_ROOT, server.c_str(), nullptr, REG_SZ, library.c_str(),
                              size) == ERROR_SUCCESS);
    REQUIRE(::RegSetKeyValueW(HKEY_CLASSES_ROOT, server.c_str(), L"ThreadingModel", REG_SZ,
                              L"Apartment", 20) == ERROR_SUCCESS);
    CheckNoGrowth(&CreateUseAndRelease);
    ::RegDeleteTreeW(HKEY_CLASSES_ROOT, kClassKey);
}

TEST_CASE("CEnumVariantCol: registration alone does not make it creatable", "[server]")
{
    // By design: its class key's braces are doubled. Hosts use DllGetClassObject or a manifest.
    {
        const ComponentLibrary library;
        REQUIRE(library.RegisterServer() == S_OK);
    }
    REQUIRE(SUCCEEDED(::CoInitialize(nullptr)));
    {
        CLSID clsid{};
        CHECK(::CLSIDFromProgID(L"VeltHTTPClient.EnumVariantCol12OEM", &clsid) == S_OK);
        ComPtr<IUnknown> object;
        CHECK(::CoCreateInstance(CLSID_CEnumVariantCol, nullptr, CLSCTX_INPROC_SERVER,
                                 IID_PPV_ARGS(&object)) == REGDB_E_CLASSNOTREG);
        CHECK_FALSE(object);
    }
    ::CoUninitialize();
}
