#include "server/module.h"

#include "foundation/system_exception.h"
#include "tests/support/component_registration.h"
#include "tests/support/outer_object.h"
#include "tests/support/thread_group.h"

#include <provider_lib.h>
#include <wrl/client.h>

#include <array>
#include <exception>
#include <string>
#include <vector>

#include <catch.hpp>

using Microsoft::WRL::ComPtr;
using velt::test::DeniedKey;
using velt::test::RunOnNewThread;
using velt::test::RunTogether;

namespace
{
/// COM on the calling thread until the end of the scope.
class Apartment
{
public:
    explicit Apartment(DWORD kind = COINIT_MULTITHREADED)
    {
        REQUIRE(SUCCEEDED(::CoInitializeEx(nullptr, kind)));
    }

    Apartment(const Apartment&) = delete;
    Apartment& operator=(const Apartment&) = delete;

    ~Apartment()
    {
        ::CoUninitialize();
    }
};

std::string g_called;

void Append(void* argument) noexcept
{
    g_called += static_cast<const char*>(argument);
}

char* Text(const char* text)
{
    return const_cast<char*>(text);
}

int g_hookCalls = 0;
bool g_wasRegistered = false; // when the hook was called
HRESULT g_hookResult = S_OK;

HRESULT CountingHook()
{
    ++g_hookCalls;
    constexpr wchar_t kLast[] = L"Interface\\{BB98678D-21E9-478C-9103-B163FFE269E5}\\TypeLib";
    g_wasRegistered = ::RegGetValueW(HKEY_CLASSES_ROOT, kLast, nullptr, RRF_RT_REG_SZ, nullptr,
                                     nullptr, nullptr) == ERROR_SUCCESS;
    return g_hookResult;
}

HRESULT MakeFirst(IUnknown*, REFIID, void**)
{
    return 1;
}

HRESULT MakeSecond(IUnknown*, REFIID, void**)
{
    return 2;
}
} // namespace

TEST_CASE("CVeltHTTPClient: Lock and Unlock return the new count", "[server]")
{
    CVeltHTTPClient module;
    CHECK(module.GetLockCount() == 0);
    CHECK(module.Lock() == 1);
    CHECK(module.Lock() == 2);
    CHECK(module.GetLockCount() == 2);
    CHECK(module.Unlock() == 1);
    CHECK(module.Unlock() == 0);
    CHECK(module.GetLockCount() == 0);
    CHECK(module.Unlock() == -1); // signed, and nothing guards it
    CHECK(module.Lock() == 0);
}

TEST_CASE("CVeltHTTPClient: eight threads lose no lock", "[server]")
{
    CVeltHTTPClient module;
    RunTogether(8, [&](unsigned thread) {
        for (int i = 0; i < 20'000; ++i)
        {
            module.Lock();
            if (thread % 2 == 0)
            {
                module.Unlock();
            }
        }
    });
    CHECK(module.GetLockCount() == 4 * 20'000);
}

TEST_CASE("CVeltHTTPClient: is the current module while it lives", "[server]")
{
    CVeltHTTPClient module;
    CHECK(&velt::ComModule::Current() == &module);
}

TEST_CASE("CVeltHTTPClient: makes no class before it is initialised", "[server]")
{
    CVeltHTTPClient module;
    CHECK_FALSE(module.IsInitialised());
    int poison = 0;
    void* object = &poison;
    CHECK(module.GetClassObject(CLSID_CEnumVariantCol, IID_IClassFactory, nullptr) == E_POINTER);
    CHECK(module.GetClassObject(CLSID_CEnumVariantCol, IID_IClassFactory, &object) == E_UNEXPECTED);
    CHECK(object == nullptr);

    REQUIRE(module.Initialise(::GetModuleHandleW(nullptr)));
    CHECK(module.IsInitialised());
    ComPtr<IClassFactory> factory;
    CHECK(module.GetClassObject(CLSID_CEnumVariantCol, IID_PPV_ARGS(&factory)) == S_OK);
    CHECK(module.GetLockCount() == 0); // a factory's references hold no lock
}

TEST_CASE("FindClass: finds the first row of a class that has a creator", "[server]")
{
    using velt::FindClass;
    const velt::ClassRegistration service = velt::kServiceRegistration;
    const velt::ClassRegistration collection = velt::kCollectionRegistration;
    const std::array<velt::ClassRow, 4> table = {{{nullptr, service},
                                                  {&MakeFirst, collection},
                                                  {&MakeSecond, service},
                                                  {&MakeFirst, service}}};
    CHECK(FindClass(table, CLSID_CVeltHTTPService) == &table[2]);
    CHECK(FindClass(table, CLSID_CEnumVariantCol) == &table[1]);
    CHECK(FindClass(table, CLSID_CVeltEulaDlg) == nullptr);
    CHECK(FindClass({table.data(), 1}, CLSID_CVeltHTTPService) == nullptr);
    CHECK(FindClass({}, CLSID_CVeltHTTPService) == nullptr);
}

TEST_CASE("kClassTable: its classes are those that are registered, in the same order", "[server]")
{
    REQUIRE(velt::kClassTable.size() == velt::kClassRegistrations.size());
    for (std::size_t i = 0; i < velt::kClassTable.size(); ++i)
    {
        const velt::ClassRow& row = velt::kClassTable[i];
        CHECK(row.create != nullptr);
        CHECK(::IsEqualCLSID(*row.registration.clsid, *velt::kClassRegistrations[i].clsid));
        CHECK(row.registration.script == velt::kClassRegistrations[i].script);
        CHECK(velt::FindClass(velt::kClassTable, *row.registration.clsid) == &row);
    }
}

TEST_CASE("CVeltHTTPClient: without a thread-local index it cannot be initialised", "[server]")
{
    // This program's own exceptions take their index at the first of them: now.
    REQUIRE(std::uncaught_exceptions() == 0);
    std::vector<DWORD> taken;
    for (DWORD index = ::TlsAlloc(); index != TLS_OUT_OF_INDEXES; index = ::TlsAlloc())
    {
        taken.push_back(index);
    }
    bool initialised = true;
    {
        CVeltHTTPClient module;
        initialised = module.Initialise(::GetModuleHandleW(nullptr));
    }
    for (const DWORD index : taken)
    {
        ::TlsFree(index);
    }
    REQUIRE_FALSE(taken.empty());
    CHECK_FALSE(initialised);
    CVeltHTTPClient module;
    CHECK(module.Initialise(::GetModuleHandleW(nullptr)));
}

TEST_CASE("CVeltHTTPClient: GetGITPtr hands out the process's table each time", "[server]")
{
    const Apartment apartment;
    CVeltHTTPClient module;
    CHECK(module.GetGITPtr(nullptr) == E_POINTER);
    ComPtr<IGlobalInterfaceTable> first;
    ComPtr<IGlobalInterfaceTable> second;
    REQUIRE(module.GetGITPtr(&first) == S_OK);
    REQUIRE(module.GetGITPtr(&second) == S_OK);
    CHECK(first.Get() == second.Get());

    // Each is a reference of its own: the table works until the last is gone.
    second.Reset();
    const auto object = velt::test::OuterObject::Make();
    DWORD cookie = 0;
    REQUIRE(first->RegisterInterfaceInGlobal(object.Get(), IID_IUnknown, &cookie) == S_OK);
    ComPtr<IUnknown> found;
    CHECK(first->GetInterfaceFromGlobal(cookie, IID_PPV_ARGS(&found)) == S_OK);
    CHECK(found.Get() == object.Get());
    CHECK(first->RevokeInterfaceFromGlobal(cookie) == S_OK);
}

TEST_CASE("CVeltHTTPClient: the table outlives the module for who still holds it", "[server]")
{
    const Apartment apartment;
    ComPtr<IGlobalInterfaceTable> table;
    {
        CVeltHTTPClient module;
        REQUIRE(module.GetGITPtr(&table) == S_OK);
    }
    CHECK(table->RevokeInterfaceFromGlobal(0xABCDEF) == E_INVALIDARG);
}

TEST_CASE("CVeltHTTPClient: GetGITPtr without COM fails, and works once COM is there", "[server]")
{
    CVeltHTTPClient module;
    int poison = 0;
    auto* table = reinterpret_cast<IGlobalInterfaceTable*>(&poison);
    HRESULT result = S_OK;
    RunOnNewThread([&] { result = module.GetGITPtr(&table); });
    CHECK(result == CO_E_NOTINITIALIZED);
    CHECK(table == nullptr);

    const Apartment apartment;
    ComPtr<IGlobalInterfaceTable> works;
    CHECK(module.GetGITPtr(&works) == S_OK);
    CHECK(works);
}

TEST_CASE("CVeltHTTPClient: eight threads at once get one table", "[server]")
{
    const Apartment apartment;
    for (int round = 0; round < 20; ++round)
    {
        CVeltHTTPClient module;
        std::array<IGlobalInterfaceTable*, 8> tables{};
        RunTogether(8, [&](unsigned thread) { module.GetGITPtr(&tables[thread]); });
        for (IGlobalInterfaceTable* table : tables)
        {
            REQUIRE(table != nullptr);
            CHECK(table == tables[0]);
            table->Release();
        }
    }
}

TEST_CASE("CVeltHTTPClient: termination callbacks run in order at its end", "[server]")
{
    g_called.clear();
    {
        CVeltHTTPClient module;
        CHECK(module.AddTermFunc(&Append, Text("a")) == S_OK);
        CHECK(module.AddTermFunc(&Append, Text("b")) == S_OK);
        CHECK(module.AddTermFunc(&Append, Text("a")) == S_OK); // the same twice is two
        CHECK(g_called.empty());
    }
    CHECK(g_called == "aba");
}

TEST_CASE("CVeltHTTPClient: no termination callback runs when the process ends", "[server]")
{
    g_called.clear();
    {
        CVeltHTTPClient module;
        CHECK(module.AddTermFunc(&Append, Text("a")) == S_OK);
        module.OnProcessEnd();
    }
    CHECK(g_called.empty());
}

TEST_CASE("CVeltHTTPClient: eight threads lose no termination callback", "[server]")
{
    g_called.clear();
    {
        CVeltHTTPClient module;
        RunTogether(8, [&](unsigned) {
            for (int i = 0; i < 100; ++i)
            {
                module.AddTermFunc(&Append, Text("x"));
            }
        });
    }
    CHECK(g_called == std::string(800, 'x'));
}

TEST_CASE("CVeltHTTPClient: the common replacement is the application's identity", "[server]")
{
    const CVeltHTTPClient module;
    velt::RegistrarReplacements replacements{{L"OTHER", L"kept"}, {L"APPID", L"replaced"}};
    module.AddCommonRGSReplacements(replacements);
    CHECK((replacements ==
           velt::RegistrarReplacements{{L"OTHER", L"kept"},
                                       {L"APPID", L"{0808C913-0251-4F8F-9EB2-5EF1D9FFD5DC}"}}));
}

TEST_CASE("CVeltHTTPClient: GetTypeLibrary gives the module's own", "[server]")
{
    CVeltHTTPClient module;
    REQUIRE(module.Initialise(::GetModuleHandleW(nullptr)));
    ComPtr<ITypeLib> library;
    REQUIRE(module.GetTypeLibrary(&library) == S_OK);
    TLIBATTR* attributes = nullptr;
    REQUIRE(library->GetLibAttr(&attributes) == S_OK);
    CHECK(::IsEqualGUID(attributes->guid, LIBID_ProviderLib));
    library->ReleaseTLibAttr(attributes);
}

TEST_CASE("CVeltHTTPClient: the registration hook runs after success, and its result counts",
          "[server]")
{
    CVeltHTTPClient module;
    REQUIRE(module.Initialise(::GetModuleHandleW(nullptr)));
    CHECK(module.RegisterServer() == S_OK); // none is no failure
    module.SetRegistrationHook(&CountingHook);
    velt::test::DeleteComponentKeys(HKEY_CLASSES_ROOT);

    g_hookCalls = 0;
    g_wasRegistered = false;
    g_hookResult = GENERATE(as<HRESULT>{}, S_OK, E_ABORT);
    CHECK(module.RegisterServer() == g_hookResult);
    CHECK(g_hookCalls == 1);
    CHECK(g_wasRegistered); // it is the last, after the type library
    {
        const DeniedKey denied(HKEY_CLASSES_ROOT, L"VeltHTTPClientX.VeltEulaDlg12OEM");
        CHECK_THROWS_AS(module.RegisterServer(), SystemException::Win32);
    }
    CHECK(g_hookCalls == 1);
    velt::test::DeleteComponentKeys(HKEY_CLASSES_ROOT);
}
