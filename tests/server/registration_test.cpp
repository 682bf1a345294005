#include "server/registration.h"

#include "foundation/com_method.h"
#include "foundation/system_exception.h"
#include "server/class_table.h"
#include "tests/server/module_test_resources.h"
#include "tests/support/component_library.h"
#include "tests/support/import_patch.h"
#include "tests/support/registry_snapshot.h"
#include "tests/support/thread_group.h"

#include <objbase.h>

#include <array>
#include <cstddef>
#include <string>

#include <catch.hpp>

using velt::CategoryRow;
using velt::RegistrationScope;
using velt::test::DeniedKey;
using velt::test::RegistryTree;
using velt::test::RegistryValue;
using velt::test::RunOnNewThread;
using velt::test::SnapshotRegistry;
using velt::test::TextValue;

namespace
{
constexpr wchar_t kClassKey[] = L"VeltTest.Script";
constexpr wchar_t kUserKey[] = L"Software\\VeltTestScript";
constexpr wchar_t kUserClassKey[] = L"Software\\Classes\\VeltTest.Script";

void RemoveKeys()
{
    ::RegDeleteTreeW(HKEY_CLASSES_ROOT, kClassKey);
    ::RegDeleteTreeW(HKEY_CURRENT_USER, kUserClassKey);
    ::RegDeleteTreeW(HKEY_CURRENT_USER, kUserKey);
}

DWORD ErrorOf(UINT script, const velt::RegistrarReplacements& replacements)
{
    try
    {
        velt::RunRegistrarScript(::GetModuleHandleW(nullptr), script, replacements,
                                 RegistrationScope::machine);
    }
    catch (const SystemException::Win32& e)
    {
        return e.GetCode();
    }
    return ERROR_SUCCESS;
}

// A class and categories of the test's own.
constexpr CLSID kCategorizedClass = {
    0x7A1E4C52, 0x0D93, 0x4F6B, {0x8C, 0x21, 0x5E, 0xB8, 0x90, 0x3A, 0x6D, 0x17}};
constexpr wchar_t kCategorizedClassKey[] = L"CLSID\\{7A1E4C52-0D93-4F6B-8C21-5EB8903A6D17}";
constexpr CATID kFirstCategory = {
    0x2B60F9D1, 0x7C04, 0x45A8, {0xB3, 0x5D, 0x1F, 0x42, 0xE6, 0x80, 0xC9, 0x01}};
constexpr CATID kSecondCategory = {
    0x2B60F9D1, 0x7C04, 0x45A8, {0xB3, 0x5D, 0x1F, 0x42, 0xE6, 0x80, 0xC9, 0x02}};
constexpr std::array<CategoryRow, 3> kCategories = {{
    {CategoryRow::Kind::implemented, kFirstCategory},
    {CategoryRow::Kind::required, kSecondCategory},
    {CategoryRow::Kind::implemented, kSecondCategory},
}};
} // namespace

TEST_CASE("RunRegistrarScript: runs the script that the module holds, in UTF-8", "[server]")
{
    RemoveKeys();
    const RegistrationScope scope = GENERATE(RegistrationScope::machine, RegistrationScope::user);
    velt::RunRegistrarScript(::GetModuleHandleW(nullptr), TEST_SCRIPT_WORKS,
                             {{L"MODULE", L"C:\\it's {here}\\x.dll"}}, scope);
    const RegistryTree classes = {{L"",
                                   {{L"", TextValue(L"Pr\u00fcfung %")},
                                    {L"Module", TextValue(L"C:\\it's {here}\\x.dll")},
                                    {L"Number", {REG_DWORD, {0xFF, 0xFF, 0xFF, 0xFF}}}}},
                                  {L"Fresh", {{L"", TextValue(L"new")}}}};
    const bool forUser = scope == RegistrationScope::user;
    CHECK((SnapshotRegistry(HKEY_CURRENT_USER, kUserClassKey) ==
           (forUser ? classes : RegistryTree{})));
    CHECK((SnapshotRegistry(HKEY_LOCAL_MACHINE, kUserClassKey) ==
           (forUser ? RegistryTree{} : classes)));
    CHECK(
        (SnapshotRegistry(HKEY_CURRENT_USER, kUserKey) ==
         RegistryTree{{L"",
                       {{L"Bytes", {REG_BINARY, {0, 0xFF, 0x10}}},
                        {L"Texts",
                         {REG_MULTI_SZ,
                          {'o', 0, 'n', 0, 'e', 0, 0, 0, 't', 0, 'w', 0, 'o', 0, 0, 0, 0, 0}}}}}}));
    RemoveKeys();
}

TEST_CASE("RunRegistrarScript: a script that does not parse writes nothing", "[server]")
{
    RemoveKeys();
    CHECK(ErrorOf(TEST_SCRIPT_UNCLOSED, {{L"MODULE", L"x"}}) == ERROR_INVALID_DATA);
    CHECK(ErrorOf(TEST_SCRIPT_WORKS, {}) == ERROR_INVALID_DATA); // %MODULE% is unknown
    CHECK(SnapshotRegistry(HKEY_CLASSES_ROOT, kClassKey).empty());
    CHECK(SnapshotRegistry(HKEY_CURRENT_USER, kUserKey).empty());
    // As the caller of an entry point gets it.
    CHECK(velt::ComMethod("test", [] {
              velt::RunRegistrarScript(::GetModuleHandleW(nullptr), TEST_SCRIPT_UNCLOSED, {},
                                       RegistrationScope::machine);
              return S_OK;
          }) == HRESULT_FROM_WIN32(ERROR_INVALID_DATA));
}

TEST_CASE("RunRegistrarScript: a script that is not there is told", "[server]")
{
    const DWORD error = ErrorOf(TEST_SCRIPT_MISSING, {});
    const bool known =
        error == ERROR_RESOURCE_NAME_NOT_FOUND || error == ERROR_RESOURCE_TYPE_NOT_FOUND;
    INFO(error);
    CHECK(known);
}

TEST_CASE("RegisterCategories: writes each category below the class", "[server]")
{
    ::RegDeleteTreeW(HKEY_CLASSES_ROOT, kCategorizedClassKey);
    // COM may be there or not, in any apartment.
    const int apartment = GENERATE(0, 1, 2);
    bool failed = false;
    HRESULT comAfter = E_FAIL;
    RunOnNewThread([&] {
        if (apartment != 0)
        {
            ::CoInitializeEx(nullptr,
                             apartment == 1 ? COINIT_APARTMENTTHREADED : COINIT_MULTITHREADED);
        }
        try
        {
            velt::RegisterCategories(kCategorizedClass, kCategories);
        }
        catch (const SystemException::HRESULT&)
        {
            failed = true;
        }
        APTTYPE type{};
        APTTYPEQUALIFIER qualifier{};
        comAfter = ::CoGetApartmentType(&type, &qualifier);
        if (apartment != 0)
        {
            ::CoUninitialize();
        }
    });
    CHECK_FALSE(failed);
    CHECK(comAfter == (apartment == 0 ? CO_E_NOTINITIALIZED : S_OK)); // as it was
    const RegistryTree written = SnapshotRegistry(HKEY_CLASSES_ROOT, kCategorizedClassKey);
    const std::wstring first = L"\\{2B60F9D1-7C04-45A8-B35D-1F42E680C901}";
    const std::wstring second = L"\\{2B60F9D1-7C04-45A8-B35D-1F42E680C902}";
    CHECK((written == RegistryTree{{L"", {}},
                                   {L"Implemented Categories", {}},
                                   {L"Implemented Categories" + first, {}},
                                   {L"Implemented Categories" + second, {}},
                                   {L"Required Categories", {}},
                                   {L"Required Categories" + second, {}}}));
    ::RegDeleteTreeW(HKEY_CLASSES_ROOT, kCategorizedClassKey);
}

TEST_CASE("RegisterCategories: a class without categories writes nothing", "[server]")
{
    velt::RegisterCategories(kCategorizedClass, {});
    CHECK(SnapshotRegistry(HKEY_CLASSES_ROOT, kCategorizedClassKey).empty());
}

TEST_CASE("RegisterCategories: a category that cannot be written is a failure", "[server]")
{
    HKEY key = nullptr;
    REQUIRE(::RegCreateKeyW(HKEY_CLASSES_ROOT, kCategorizedClassKey, &key) == ERROR_SUCCESS);
    ::RegCloseKey(key);
    {
        const DeniedKey denied(HKEY_CLASSES_ROOT, kCategorizedClassKey);
        CHECK_THROWS_AS(velt::RegisterCategories(kCategorizedClass, kCategories),
                        SystemException::HRESULT);
    }
    CHECK((SnapshotRegistry(HKEY_CLASSES_ROOT, kCategorizedClassKey) == RegistryTree{{L"", {}}}));
    ::RegDeleteTreeW(HKEY_CLASSES_ROOT, kCategorizedClassKey);
}

TEST_CASE("kClassTable: no class has categories, and each script is there", "[server]")
{
    for (const velt::ClassRow& row : velt::kClassTable)
    {
        CHECK(row.registration.categories.empty());
        CHECK(::FindResourceW(::GetModuleHandleW(nullptr),
                              MAKEINTRESOURCEW(row.registration.script), L"REGISTRY") != nullptr);
    }
}

TEST_CASE("CurrentRegistrationScope: depends on the access to the machine's classes", "[server]")
{
    CHECK(velt::CurrentRegistrationScope() == RegistrationScope::machine);
    // Each part of the right to write is needed.
    for (const REGSAM missing : std::to_array<REGSAM>({KEY_SET_VALUE, KEY_CREATE_SUB_KEY}))
    {
        const DeniedKey denied(HKEY_LOCAL_MACHINE, L"Software\\Classes", missing);
        CHECK(velt::CurrentRegistrationScope() == RegistrationScope::user);
    }
    CHECK(velt::CurrentRegistrationScope() == RegistrationScope::machine);
}

TEST_CASE("ModulePath: is whole, however long", "[server]")
{
    const auto length = GENERATE(as<std::size_t>{}, 1, 259, 260, 261, 519, 520, 32'767);
    const std::wstring path(length, L'p');
    const velt::test::ImportPatch<"GetModuleFileNameW", decltype(::GetModuleFileNameW)> patch(
        "kernel32.dll", [&](HMODULE, wchar_t* room, DWORD size) {
            const auto copied = static_cast<DWORD>(path.copy(room, size - 1));
            room[copied] = L'\0';
            return copied < path.size() ? size : copied;
        });
    CHECK((velt::ModulePath(nullptr) == path));
}

TEST_CASE("ModulePath: is the full path of a module", "[server]")
{
    std::array<wchar_t, MAX_PATH> path{};
    ::GetModuleFileNameW(nullptr, path.data(), MAX_PATH);
    CHECK((velt::ModulePath(nullptr) == path.data()));
    const velt::test::ComponentLibrary library;
    CHECK((velt::ModulePath(library.Module()) ==
           velt::test::ShippedFile(L"VeltHTTPClient12OEM.dll")));
    CHECK_THROWS_AS(velt::ModulePath(reinterpret_cast<HMODULE>(0x10)), SystemException::Win32);
}

TEST_CASE("RegisterModuleTypeLibrary: a module without a type library is a failure", "[server]")
{
    CHECK_THROWS_AS(velt::RegisterModuleTypeLibrary(::GetModuleHandleW(L"kernel32.dll"),
                                                    RegistrationScope::machine),
                    SystemException::HRESULT);
}
