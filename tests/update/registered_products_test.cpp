#include "update/registered_products.h"

#include "tests/support/import_patch.h"
#include "tests/support/trace_recorder.h"
#include "tests/update/products_key.h"

#include <catch.hpp>

#include <string>

using namespace velt;
using namespace velt::test;

namespace
{
/// A value as it lies in the registry.
struct Record
{
    DWORD type;
    const void* data;
    DWORD sizeBytes;
};
} // namespace

TEST_CASE("registered products: one that was recorded is known by GUID and version", "[update]")
{
    const ProductsKey key;
    CHECK_FALSE(IsUpdateGUIDRegistered(kProduct, L"3.0"));
    CHECK(SnapshotRegistry(HKEY_CURRENT_USER, ProductsKey::kPath).empty()); // asking makes no key
    SetRegisteredUpdateGUIDIntoRegistry(kProduct, L"3.0");
    CHECK(IsUpdateGUIDRegistered(kProduct, L"3.0"));
    CHECK_FALSE(IsUpdateGUIDRegistered(kProduct, L"3.1"));
    CHECK_FALSE(IsUpdateGUIDRegistered(kProduct, L""));
    CHECK_FALSE(IsUpdateGUIDRegistered(L"{0}", L"3.0"));
    CHECK(ProductsKey::Values() == RegistryValues{{kProduct, TextValue(L"3.0")}});
}

TEST_CASE("registered products: another version takes the place of the first", "[update]")
{
    const ProductsKey key;
    SetRegisteredUpdateGUIDIntoRegistry(kProduct, L"3.0");
    SetRegisteredUpdateGUIDIntoRegistry(L"{other}", L"1");
    SetRegisteredUpdateGUIDIntoRegistry(kProduct, L"3.1");
    CHECK_FALSE(IsUpdateGUIDRegistered(kProduct, L"3.0"));
    CHECK(IsUpdateGUIDRegistered(kProduct, L"3.1"));
    CHECK(ProductsKey::Values() ==
          RegistryValues{{kProduct, TextValue(L"3.1")}, {L"{other}", TextValue(L"1")}});
}

TEST_CASE("registered products: a product without a name or version is one as well", "[update]")
{
    const ProductsKey key;
    SetRegisteredUpdateGUIDIntoRegistry(L"", L"");
    CHECK(IsUpdateGUIDRegistered(L"", L""));
    CHECK_FALSE(IsUpdateGUIDRegistered(L"", L"1"));
    CHECK(ProductsKey::Values() == RegistryValues{{L"", TextValue(L"")}});
}

TEST_CASE("registered products: a record of another kind is none", "[update]")
{
    const ProductsKey key;
    const DWORD number = 3;
    const Record row = GENERATE_COPY(values<Record>({{REG_DWORD, &number, sizeof(number)},
                                                     {REG_BINARY, L"3.0", 8},
                                                     {REG_SZ, L"", 0},
                                                     {REG_SZ, L"3.0 and more", 26},
                                                     {REG_MULTI_SZ, L"3.0\0", 10}}));
    ProductsKey::Write(kProduct.c_str(), row.type, row.data, row.sizeBytes);
    REQUIRE(ProductsKey::Values().size() == 1);
    CHECK_FALSE(IsUpdateGUIDRegistered(kProduct, L"3.0"));
    SetRegisteredUpdateGUIDIntoRegistry(kProduct, L"3.0");
    CHECK(IsUpdateGUIDRegistered(kProduct, L"3.0"));
}

TEST_CASE("registered products: a name that narrow text cannot spell is never on record",
          "[update]")
{
    const ProductsKey key;
    const std::wstring name =
        GENERATE(values<std::wstring>({L"\x65E5\x672C", L"\xD800", std::wstring(L"{1}\0{2}", 7)}));
    TraceRecorder trace;
    SetRegisteredUpdateGUIDIntoRegistry(name, L"3.0");
    CHECK_FALSE(IsUpdateGUIDRegistered(name, L"3.0"));
    CHECK(ProductsKey::Values().empty());
    CHECK(trace.Count("the product's registration cannot be recorded: " +
                          std::to_string(ERROR_NO_UNICODE_TRANSLATION),
                      1) == 1);
}

TEST_CASE("registered products: a version that narrow text cannot spell is registered each time",
          "[update]")
{
    const ProductsKey key;
    SetRegisteredUpdateGUIDIntoRegistry(kProduct, L"\x65E5");
    CHECK_FALSE(IsUpdateGUIDRegistered(kProduct, L"\x65E5"));
    CHECK_FALSE(IsUpdateGUIDRegistered(kProduct, L"\x672C"));
}

TEST_CASE("registered products: a registry that refuses is traced and harms nobody", "[update]")
{
    const ProductsKey key;
    TraceRecorder trace;
    SECTION("to make the key")
    {
        const ImportPatch<"RegCreateKeyExW", decltype(::RegCreateKeyExW)> patch(
            "advapi32.dll", [](auto...) -> LSTATUS { return ERROR_ACCESS_DENIED; });
        SetRegisteredUpdateGUIDIntoRegistry(kProduct, L"3.0");
        CHECK(patch.Calls() == 1);
    }
    SECTION("to write the value")
    {
        const ImportPatch<"RegSetValueExA", decltype(::RegSetValueExA)> patch(
            "advapi32.dll", [](auto...) -> LSTATUS { return ERROR_ACCESS_DENIED; });
        SetRegisteredUpdateGUIDIntoRegistry(kProduct, L"3.0");
        CHECK(patch.Calls() == 1);
    }
    CHECK(trace.Count("the product's registration cannot be recorded: 5", 1) == 1);
    CHECK_FALSE(IsUpdateGUIDRegistered(kProduct, L"3.0"));
}

TEST_CASE("registered products: a record that cannot be read is none", "[update]")
{
    const ProductsKey key;
    SetRegisteredUpdateGUIDIntoRegistry(kProduct, L"3.0");
    SECTION("the key")
    {
        const ImportPatch<"RegOpenKeyExW", decltype(::RegOpenKeyExW)> patch(
            "advapi32.dll", [](auto...) -> LSTATUS { return ERROR_ACCESS_DENIED; });
        CHECK_FALSE(IsUpdateGUIDRegistered(kProduct, L"3.0"));
    }
    SECTION("the value, at the first or the second question")
    {
        const int failing = GENERATE(1, 2);
        int calls = 0;
        using Patch = ImportPatch<"RegQueryValueExA", decltype(::RegQueryValueExA)>;
        const Patch patch("advapi32.dll", [&](auto... arguments) -> LSTATUS {
            return ++calls == failing ? ERROR_ACCESS_DENIED : Patch::Original(arguments...);
        });
        CHECK_FALSE(IsUpdateGUIDRegistered(kProduct, L"3.0"));
        CHECK(calls == failing);
    }
    CHECK(IsUpdateGUIDRegistered(kProduct, L"3.0"));
}
