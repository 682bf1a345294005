// The library's entry points, seen as a host sees them: through LoadLibrary and GetProcAddress.

#include "server/class_factory.h"
#include "tests/server/poison.h"
#include "tests/support/component_library.h"
#include "tests/support/import_patch.h"
#include "tests/support/test_thread.h"
#include "tests/support/thread_group.h"

#include <provider_lib.h>

#include <array>
#include <atomic>
#include <string>
#include <utility>
#include <vector>

#include <catch.hpp>

using Microsoft::WRL::ComPtr;
using velt::test::ComponentLibrary;
using velt::test::Poison;
using velt::test::RunTogether;

namespace
{
// No class of anybody's.
constexpr CLSID kUnknownClass = {
    0x1D3A0F7E, 0x5B2C, 0x4E88, {0x9A, 0x41, 0x66, 0x0D, 0x2B, 0xC7, 0x15, 0xF3}};

/// Lets allocations inside the library fail until the end of the scope: all of a size, or all.
class NoMemory
{
public:
    explicit NoMemory(HMODULE library, std::size_t size = 0)
        : m_malloc(velt::test::ImportSlot("msvcrt.dll", "malloc", library)),
          m_calloc(velt::test::ImportSlot("msvcrt.dll", "calloc", library))
    {
        s_size = size;
        s_original = reinterpret_cast<Malloc>(velt::test::ExchangeSlot(
            m_malloc, reinterpret_cast<void*>(static_cast<Malloc>(&NoMemory::Allocate))));
        s_originalCalloc = reinterpret_cast<Calloc>(velt::test::ExchangeSlot(
            m_calloc, reinterpret_cast<void*>(static_cast<Calloc>(&NoMemory::AllocateZeros))));
    }

    NoMemory(const NoMemory&) = delete;
    NoMemory& operator=(const NoMemory&) = delete;

    ~NoMemory()
    {
        velt::test::ExchangeSlot(m_malloc, reinterpret_cast<void*>(s_original));
        velt::test::ExchangeSlot(m_calloc, reinterpret_cast<void*>(s_originalCalloc));
    }

private:
    using Malloc = void*(__cdecl*)(std::size_t);
    using Calloc = void*(__cdecl*)(std::size_t, std::size_t);

    static void* __cdecl Allocate(std::size_t size)
    {
        return s_size == 0 || s_size == size ? nullptr : s_original(size);
    }

    static void* __cdecl AllocateZeros(std::size_t count, std::size_t size)
    {
        return s_size == 0 ? nullptr : s_originalCalloc(count, size);
    }

    inline static std::size_t s_size = 0;
    inline static Malloc s_original = nullptr;
    inline static Calloc s_originalCalloc = nullptr;

    void** m_malloc;
    void** m_calloc;
};

/// One of the library's classes, and whether this library can make it.
struct KnownClass
{
    const CLSID* clsid;
    bool creatable;
};
const std::array<KnownClass, 3> kClasses = {{
    {&CLSID_CVeltHTTPService, true},
    {&CLSID_CEnumVariantCol, true},
    {&CLSID_CVeltEulaDlg, true},
}};
} // namespace

TEST_CASE("DllGetClassObject: a null out pointer is told before anything else", "[server]")
{
    const ComponentLibrary library;
    const CLSID& clsid = GENERATE(std::cref(CLSID_CEnumVariantCol), std::cref(kUnknownClass));
    CHECK(library.GetClassObject(clsid, IID_IClassFactory, nullptr) == E_POINTER);
    CHECK(library.GetClassObject(clsid, IID_IDispatch, nullptr) == E_POINTER);
}

TEST_CASE("DllGetClassObject: an unknown class is not available", "[server]")
{
    const ComponentLibrary library;
    void* object = Poison();
    CHECK(library.GetClassObject(kUnknownClass, IID_IClassFactory, &object) ==
          CLASS_E_CLASSNOTAVAILABLE);
    CHECK(object == nullptr);

    object = Poison();
    CHECK(library.GetClassObject(CLSID_NULL, IID_IClassFactory, &object) ==
          CLASS_E_CLASSNOTAVAILABLE);
    CHECK(object == nullptr);

    // An interface is no class.
    object = Poison();
    CHECK(library.GetClassObject(IID_IEnumVariantCol, IID_IClassFactory, &object) ==
          CLASS_E_CLASSNOTAVAILABLE);
    CHECK(object == nullptr);
}

TEST_CASE("DllGetClassObject: each class is available once it is part of the library", "[server]")
{
    const ComponentLibrary library;
    for (const KnownClass& known : kClasses)
    {
        IClassFactory* factory = static_cast<IClassFactory*>(Poison());
        const HRESULT hr = library.GetClassObject(*known.clsid, IID_IClassFactory,
                                                  reinterpret_cast<void**>(&factory));
        CHECK(hr == (known.creatable ? S_OK : CLASS_E_CLASSNOTAVAILABLE));
        CHECK((factory != nullptr) == known.creatable);
        if (factory)
        {
            factory->Release();
        }
    }
    CHECK(library.CanUnloadNow() == S_OK);
}

TEST_CASE("DllGetClassObject: an interface that a factory lacks is refused", "[server]")
{
    const ComponentLibrary library;
    void* object = Poison();
    CHECK(library.GetClassObject(CLSID_CEnumVariantCol, IID_IDispatch, &object) == E_NOINTERFACE);
    CHECK(object == nullptr);
    CHECK(library.CanUnloadNow() == S_OK);
}

TEST_CASE("DllGetClassObject: the same class answers with the same factory", "[server]")
{
    const ComponentLibrary library;
    ComPtr<IUnknown> first;
    ComPtr<IUnknown> second;
    REQUIRE(library.GetClassObject(CLSID_CEnumVariantCol, IID_PPV_ARGS(&first)) == S_OK);
    REQUIRE(library.GetClassObject(CLSID_CEnumVariantCol, IID_PPV_ARGS(&second)) == S_OK);
    CHECK(first.Get() == second.Get());
    // Also when nobody has held it in between.
    IUnknown* const before = first.Get();
    first.Reset();
    second.Reset();
    REQUIRE(library.CanUnloadNow() == S_OK);
    REQUIRE(library.GetClassObject(CLSID_CEnumVariantCol, IID_PPV_ARGS(&first)) == S_OK);
    CHECK(first.Get() == before);
}

TEST_CASE("DllGetClassObject: eight threads at once get one factory", "[server]")
{
    for (int round = 0; round < 25; ++round)
    {
        const ComponentLibrary library; // loaded anew, so the factory is made in the race
        std::array<IClassFactory*, 8> factories{};
        std::array<HRESULT, 8> results{};
        RunTogether(8, [&](unsigned i) {
            results[i] = library.GetClassObject(CLSID_CEnumVariantCol, IID_IClassFactory,
                                                reinterpret_cast<void**>(&factories[i]));
        });
        for (std::size_t i = 0; i < factories.size(); ++i)
        {
            REQUIRE(results[i] == S_OK);
            REQUIRE(factories[i] == factories[0]);
        }
        for (IClassFactory* factory : factories)
        {
            factory->Release();
        }
    }
}

TEST_CASE("DllGetClassObject: without memory for a factory it is out of memory, and recovers",
          "[server]")
{
    const ComponentLibrary library;
    void* object = Poison();
    {
        // Only the factory, or nothing at all any more.
        const NoMemory failing(library.Module(), GENERATE(sizeof(velt::CClassFactory), 0u));
        for (int attempt = 0; attempt < 2; ++attempt)
        {
            object = Poison();
            CHECK(library.GetClassObject(CLSID_CVeltEulaDlg, IID_IClassFactory, &object) ==
                  E_OUTOFMEMORY);
            CHECK(object == nullptr);
        }
        CHECK(library.CanUnloadNow() == S_OK);
    }
    const auto factory = library.Factory(CLSID_CVeltEulaDlg);
    {
        // One that is there needs no more memory.
        const NoMemory failing(library.Module(), sizeof(velt::CClassFactory));
        CHECK(library.GetClassObject(CLSID_CVeltEulaDlg, IID_IClassFactory, &object) == S_OK);
        CHECK(object == factory.Get());
        factory->Release();
    }
}

TEST_CASE("DllGetClassObject: a library that was not initialised is unexpected", "[server]")
{
    // Loaded without running its entry point: nothing is initialised, nothing imported.
    const HMODULE module =
        ::LoadLibraryExW(velt::test::ShippedFile(L"VeltHTTPClient12OEM.dll").c_str(), nullptr,
                         DONT_RESOLVE_DLL_REFERENCES);
    REQUIRE(module);
    const auto getClassObject = reinterpret_cast<decltype(&::DllGetClassObject)>(
        reinterpret_cast<void*>(::GetProcAddress(module, "DllGetClassObject")));
    REQUIRE(getClassObject);
    CHECK(getClassObject(CLSID_CEnumVariantCol, IID_IClassFactory, nullptr) == E_POINTER);
    for (const CLSID* clsid : {&CLSID_CEnumVariantCol, &kUnknownClass})
    {
        void* object = Poison();
        CHECK(getClassObject(*clsid, IID_IClassFactory, &object) == E_UNEXPECTED);
        CHECK(object == nullptr);
    }
    ::FreeLibrary(module);
}

TEST_CASE("DllCanUnloadNow: a new library can be unloaded", "[server]")
{
    const ComponentLibrary library;
    CHECK(library.CanUnloadNow() == S_OK);
}

TEST_CASE("DllCanUnloadNow: an object keeps the library until its last reference", "[server]")
{
    const ComponentLibrary library;
    ComPtr<IEnumVariantCol> object = library.Create<IEnumVariantCol>(CLSID_CEnumVariantCol);
    CHECK(library.CanUnloadNow() == S_FALSE);
    ComPtr<IUnknown> second;
    REQUIRE(object.As(&second) == S_OK);
    object.Reset();
    CHECK(library.CanUnloadNow() == S_FALSE);
    second.Reset();
    CHECK(library.CanUnloadNow() == S_OK);
}

TEST_CASE("DllCanUnloadNow: an object's enumerator keeps the library too", "[server]")
{
    const ComponentLibrary library;
    ComPtr<IEnumVariantCol> object = library.Create<IEnumVariantCol>(CLSID_CEnumVariantCol);
    ComPtr<IUnknown> enumerator;
    REQUIRE(object->get__NewEnum(&enumerator) == S_OK);
    object.Reset();
    CHECK(library.CanUnloadNow() == S_FALSE);
    enumerator.Reset();
    CHECK(library.CanUnloadNow() == S_OK);
}

TEST_CASE("DllCanUnloadNow: a factory that somebody holds does not keep the library", "[server]")
{
    const ComponentLibrary library;
    for (const KnownClass& known : kClasses)
    {
        ComPtr<IClassFactory> factory = library.Factory(*known.clsid);
        CHECK(library.CanUnloadNow() == S_OK);
        ComPtr<IUnknown> second;
        REQUIRE(factory.As(&second) == S_OK);
        CHECK(library.CanUnloadNow() == S_OK);
        // Who holds it makes objects and locks the server, and these count.
        REQUIRE(factory->LockServer(TRUE) == S_OK);
        CHECK(library.CanUnloadNow() == S_FALSE);
        REQUIRE(factory->LockServer(FALSE) == S_OK);
        CHECK(library.CanUnloadNow() == S_OK);
        ComPtr<IUnknown> object;
        REQUIRE(factory->CreateInstance(nullptr, IID_PPV_ARGS(&object)) == S_OK);
        CHECK(library.CanUnloadNow() == S_FALSE);
        object.Reset();
        CHECK(library.CanUnloadNow() == S_OK);
    }
}

TEST_CASE("DllCanUnloadNow: server locks keep the library, each one", "[server]")
{
    const ComponentLibrary library;
    ComPtr<IClassFactory> factory = library.Factory(CLSID_CEnumVariantCol);
    REQUIRE(factory->LockServer(TRUE) == S_OK);
    REQUIRE(factory->LockServer(TRUE) == S_OK);
    factory.Reset();
    CHECK(library.CanUnloadNow() == S_FALSE);
    factory = library.Factory(CLSID_CEnumVariantCol);
    REQUIRE(factory->LockServer(FALSE) == S_OK);
    factory.Reset();
    CHECK(library.CanUnloadNow() == S_FALSE);
    factory = library.Factory(CLSID_CEnumVariantCol);
    REQUIRE(factory->LockServer(FALSE) == S_OK);
    factory.Reset();
    CHECK(library.CanUnloadNow() == S_OK);
}

TEST_CASE("DllCanUnloadNow: a creation that fails leaves no lock", "[server]")
{
    const ComponentLibrary library;
    ComPtr<IClassFactory> factory = library.Factory(CLSID_CEnumVariantCol);
    void* object = Poison();
    CHECK(factory->CreateInstance(nullptr, IID_IClassFactory, &object) == E_NOINTERFACE);
    CHECK(object == nullptr);
    factory.Reset();
    CHECK(library.CanUnloadNow() == S_OK);
}

TEST_CASE("The library: it cannot unregister itself", "[server]")
{
    const ComponentLibrary library;
    CHECK(::GetProcAddress(library.Module(), "DllUnregisterServer") == nullptr);
    CHECK(::GetProcAddress(library.Module(), "DllMain") == nullptr);
}

TEST_CASE("The library: a thread's first exception needs no memory, and no place for its state",
          "[server]")
{
    const ComponentLibrary library;
    const bool hasPlace = GENERATE(true, false);
    // More than could throw without memory at a time, and than the exceptions kept for that would
    // do if they were not given back.
    constexpr int kThreads = 300;
    for (int thread = 0; thread < kThreads; ++thread)
    {
        const HRESULT result = velt::test::OnOtherThread([&] {
            const auto collection = library.Create<IEnumVariantCol>(CLSID_CEnumVariantCol);
            const velt::test::ImportPatch<"TlsSetValue", decltype(::TlsSetValue)> place(
                "kernel32.dll",
                [&](DWORD index, void* value) {
                    return hasPlace ? ::TlsSetValue(index, value) : FALSE;
                },
                library.Module());
            const NoMemory noMemory(library.Module());
            const VARIANT value{};
            const HRESULT first = collection->Add(value);
            return first == E_OUTOFMEMORY ? collection->Add(value) : first;
        });
        REQUIRE(result == E_OUTOFMEMORY);
    }
}

TEST_CASE("The library: exceptions without memory on several threads do not meet", "[server]")
{
    constexpr unsigned kThreads = 4;
    constexpr int kRounds = 500;
    const ComponentLibrary library;
    std::vector<ComPtr<IEnumVariantCol>> collections;
    for (unsigned i = 0; i < kThreads; ++i)
    {
        collections.push_back(library.Create<IEnumVariantCol>(CLSID_CEnumVariantCol));
    }
    std::atomic<int> failed = 0;
    {
        const NoMemory noMemory(library.Module());
        RunTogether(kThreads, [&](unsigned thread) {
            const VARIANT value{};
            for (int i = 0; i < kRounds; ++i)
            {
                failed += collections[thread]->Add(value) == E_OUTOFMEMORY ? 1 : 0;
            }
        });
    }
    CHECK(failed == static_cast<int>(kThreads) * kRounds);
}

TEST_CASE("DllMain: without a thread-local index the library cannot be loaded", "[server]")
{
    std::vector<DWORD> taken;
    for (DWORD index = ::TlsAlloc(); index != TLS_OUT_OF_INDEXES; index = ::TlsAlloc())
    {
        taken.push_back(index);
    }
    // Exceptions need one and tracing needs another.
    REQUIRE_FALSE(taken.empty());
    if (GENERATE(false, true))
    {
        ::TlsFree(taken.back());
        taken.pop_back();
    }
    const HMODULE module =
        ::LoadLibraryW(velt::test::ShippedFile(L"VeltHTTPClient12OEM.dll").c_str());
    const DWORD error = ::GetLastError();
    for (const DWORD index : taken)
    {
        ::TlsFree(index);
    }
    CHECK(module == nullptr);
    CHECK(error == ERROR_DLL_INIT_FAILED);
    CHECK_NOTHROW(ComponentLibrary()); // works again
}
