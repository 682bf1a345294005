// How a component is registered: in which order, for whom, and by which handles. Systems whose
// HKEY_CLASSES_ROOT is the machine's alone do not show a write that goes by it, so the handles are
// looked at.

#include "foundation/system_exception.h"
#include "server/registration.h"
#include "tests/server/module_test_resources.h"
#include "tests/support/component_registration.h"
#include "tests/support/edition.h"
#include "tests/support/import_patch.h"
#include "tests/support/registry_snapshot.h"
#include "tests/support/thread_group.h"

#include <oleauto.h>
#include <winternl.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include <catch.hpp>

using velt::CategoryRow;
using velt::RegistrationScope;
using velt::test::DeleteComponentKeys;
using velt::test::ImportPatch;
using velt::test::kUserClasses;
using velt::test::RegistryTree;
using velt::test::SnapshotRegistry;
using velt::test::TextValue;

namespace
{
using OpenPatch = ImportPatch<"RegOpenKeyExW", decltype(::RegOpenKeyExW)>;
using CreatePatch = ImportPatch<"RegCreateKeyExW", decltype(::RegCreateKeyExW)>;
using DeleteKeyPatch = ImportPatch<"RegDeleteKeyExW", decltype(::RegDeleteKeyExW)>;
using DeleteTreePatch = ImportPatch<"RegDeleteTreeW", decltype(::RegDeleteTreeW)>;
using SetValuePatch = ImportPatch<"RegSetValueExW", decltype(::RegSetValueExW)>;
using OverridePatch = ImportPatch<"RegOverridePredefKey", decltype(::RegOverridePredefKey)>;
using RegisterTypeLibPatch = ImportPatch<"RegisterTypeLib", decltype(::RegisterTypeLib)>;
using FindPatch = ImportPatch<"GetProcAddress", decltype(::GetProcAddress)>;

constexpr wchar_t kMachine[] = L"machine:";
constexpr wchar_t kUser[] = L"user:";
constexpr wchar_t kClassesRoot[] = L"classes root:";

/// A key by the one of the two that it belongs to, below its classes; others as the system names
/// them.
std::wstring NameOf(HKEY root, const wchar_t* path)
{
    std::wstring name;
    if (root == HKEY_CLASSES_ROOT)
    {
        return std::wstring(kClassesRoot) + (path ? path : L"");
    }
    if (root == HKEY_LOCAL_MACHINE || root == HKEY_CURRENT_USER)
    {
        name = root == HKEY_LOCAL_MACHINE ? L"\\Machine" : L"\\User";
    }
    else
    {
        constexpr auto kNameInformation = static_cast<OBJECT_INFORMATION_CLASS>(1);
        alignas(UNICODE_STRING) std::array<std::byte, 1024> buffer{};
        ULONG size = 0;
        ::NtQueryObject(root, kNameInformation, buffer.data(), static_cast<ULONG>(buffer.size()),
                        &size);
        const auto& text = *reinterpret_cast<const UNICODE_STRING*>(buffer.data());
        name.assign(text.Buffer, text.Length / sizeof(wchar_t));
    }
    if (path && *path)
    {
        name.append(1, L'\\').append(path);
    }
    const std::wstring classes = L"\\Software\\Classes";
    const auto found = name.find(classes);
    if (found == name.npos)
    {
        return name;
    }
    const bool machine = name.find(L"\\Machine") < found;
    const std::wstring below = name.substr(found + classes.size());
    return (machine ? kMachine : kUser) + (below.empty() ? below : below.substr(1));
}

/// What a registration does in the registry by this program's own calls, in its order.
class RegistryLog
{
public:
    struct Entry
    {
        std::string what;
        std::wstring key;
    };

    static auto Starts(const std::wstring& start)
    {
        return [&start](const Entry& e) { return e.key.starts_with(start); };
    }

    const std::vector<Entry>& Entries() const noexcept
    {
        return m_entries;
    }

    std::size_t Count(const std::string& what, const std::wstring& key) const
    {
        return static_cast<std::size_t>(
            std::count_if(m_entries.begin(), m_entries.end(),
                          [&](const Entry& e) { return e.what == what && e.key == key; }));
    }

    /// Where the first, or the last, key stands that begins so; -1 for none.
    std::ptrdiff_t First(const std::wstring& start) const
    {
        const auto found = std::find_if(m_entries.begin(), m_entries.end(), Starts(start));
        return found == m_entries.end() ? -1 : found - m_entries.begin();
    }

    std::ptrdiff_t Last(const std::wstring& start) const
    {
        const auto found = std::find_if(m_entries.rbegin(), m_entries.rend(), Starts(start));
        return m_entries.rend() - found - 1;
    }

private:
    void Add(const char* what, HKEY root, const wchar_t* path)
    {
        m_entries.push_back({what, NameOf(root, path)});
    }

    std::vector<Entry> m_entries;

    const OpenPatch m_open{"advapi32.dll", [this](HKEY root, const wchar_t* path, auto... rest) {
                               Add("open", root, path);
                               return OpenPatch::Original(root, path, rest...);
                           }};
    const CreatePatch m_create{"advapi32.dll",
                               [this](HKEY root, const wchar_t* path, auto... rest) {
                                   Add("create", root, path);
                                   return CreatePatch::Original(root, path, rest...);
                               }};
    const DeleteKeyPatch m_deleteKey{"advapi32.dll",
                                     [this](HKEY root, const wchar_t* path, auto... rest) {
                                         Add("delete", root, path);
                                         return DeleteKeyPatch::Original(root, path, rest...);
                                     }};
    const DeleteTreePatch m_deleteTree{"advapi32.dll", [this](HKEY root, const wchar_t* path) {
                                           Add("delete tree", root, path);
                                           return DeleteTreePatch::Original(root, path);
                                       }};
    const OverridePatch m_override{
        "advapi32.dll", [this](HKEY root, HKEY meaning) {
            m_entries.push_back(
                {"override", NameOf(root, nullptr) + L" " +
                                 (meaning ? NameOf(meaning, nullptr) : std::wstring(L"itself"))});
            return OverridePatch::Original(root, meaning);
        }};
    const RegisterTypeLibPatch m_register{
        // Headers differ in whether the texts are constant.
        "oleaut32.dll", [this](ITypeLib* library, auto* path, auto* folder) {
            m_entries.push_back({"register type library", path});
            return RegisterTypeLibPatch::Original(library, path, folder);
        }};
};

/// Begins and ends without a key of the component's, or of a test's own class.
class CleanClasses
{
public:
    static constexpr wchar_t kOwnClassKey[] = L"CLSID\\{5C9B1A70-3E24-4D0F-9A66-B1D27C50E8F4}";

    CleanClasses()
    {
        Clean();
    }

    CleanClasses(const CleanClasses&) = delete;
    CleanClasses& operator=(const CleanClasses&) = delete;

    ~CleanClasses()
    {
        Clean();
    }

    static std::wstring Below(const std::wstring& key)
    {
        return std::wstring(kUserClasses) + L'\\' + key;
    }

private:
    static void Clean()
    {
        for (const HKEY root : {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER})
        {
            DeleteComponentKeys(root, kUserClasses);
            ::RegDeleteTreeW(root, Below(kOwnClassKey).c_str());
            ::RegDeleteTreeW(root, Below(L"VeltTest.Script").c_str());
        }
        ::RegDeleteTreeW(HKEY_CURRENT_USER, L"Software\\VeltTestScript");
    }
};

HMODULE Program()
{
    return ::GetModuleHandleW(nullptr);
}

void Register(RegistrationScope scope)
{
    velt::RegistrarReplacements replacements;
    velt::AddCommonReplacements(replacements);
    velt::RegisterComponent(Program(), scope, replacements, velt::kClassRegistrations);
}

/// What the system's function for users was called with, in whose place this one stands.
struct
{
    int calls = 0;
    std::wstring file;
    std::wstring folder;
} g_forUser;

HRESULT WINAPI RegisterForUser(ITypeLib*, OLECHAR* file, OLECHAR* folder)
{
    ++g_forUser.calls;
    g_forUser.file = file;
    g_forUser.folder = folder;
    return S_OK;
}

constexpr CLSID kOwnClass = {
    0x5C9B1A70, 0x3E24, 0x4D0F, {0x9A, 0x66, 0xB1, 0xD2, 0x7C, 0x50, 0xE8, 0xF4}};
constexpr CATID kCategory = {
    0x2B60F9D1, 0x7C04, 0x45A8, {0xB3, 0x5D, 0x1F, 0x42, 0xE6, 0x80, 0xC9, 0x03}};
constexpr std::array<CategoryRow, 2> kOwnCategories = {{
    {CategoryRow::Kind::implemented, kCategory},
    {CategoryRow::Kind::required, kCategory},
}};
} // namespace

TEST_CASE("RegisterComponent: for the machine, erases by the user's keys and then writes by the "
          "machine's",
          "[server]")
{
    const CleanClasses clean;
    Register(RegistrationScope::user);
    std::vector<RegistryLog::Entry> entries;
    {
        const RegistryLog log;
        Register(RegistrationScope::machine);
        const std::ptrdiff_t lastOfUser = log.Last(kUser);
        const std::ptrdiff_t firstOfMachine = log.First(kMachine);
        CHECK(lastOfUser > 0);
        CHECK(lastOfUser < firstOfMachine);
        for (const RegistryLog::Entry& entry : log.Entries())
        {
            const bool isOverride = entry.what == "override";
            const bool byClassesRoot = entry.key.starts_with(kClassesRoot);
            CHECK(byClassesRoot == isOverride); // never a key
            CHECK_FALSE((entry.what == "create" && entry.key.starts_with(kUser)));
            CHECK_FALSE((entry.what.starts_with("delete") && entry.key.starts_with(kMachine) &&
                         entry.what != "delete tree")); // those that a script begins anew
        }
        // What would hide the machine's goes.
        for (const wchar_t* const tree : {L"CLSID\\{5A6B579B-3C37-4A16-A3A5-F6C72FA15C40}",
                                          L"CLSID\\{{344E0DAC-547C-47B5-A1A0-FF9A9C193352}}",
                                          L"CLSID\\{E9F9957F-AE23-4BBC-A97D-9815EA6E4C83}"})
        {
            CHECK(log.Count("delete tree", std::wstring(kUser) + tree) == 1);
        }
        for (const wchar_t* const key :
             {L"VeltHTTPClient.VeltHTTPService12OEM.2", L"VeltHTTPClient.VeltHTTPService12OEM",
              L"VeltHTTPClient.EnumVariantCol12OEM.2", L"VeltHTTPClient.EnumVariantCol12OEM",
              L"VeltHTTPClientX.VeltEulaDlg12OEM.1", L"VeltHTTPClientX.VeltEulaDlg12OEM",
              L"AppID\\{0808C913-0251-4F8F-9EB2-5EF1D9FFD5DC}", L"AppID\\VeltHTTPClient12OEM.DLL",
              velt::test::kIs64Bit
                  ? L"TypeLib\\{AB6A43CE-5CEE-40EE-9AD0-A7AA608DBB6C}\\1.0\\0\\win64"
                  : L"TypeLib\\{AB6A43CE-5CEE-40EE-9AD0-A7AA608DBB6C}\\1.0\\0\\win32",
              L"TypeLib\\{AB6A43CE-5CEE-40EE-9AD0-A7AA608DBB6C}\\1.0",
              L"TypeLib\\{AB6A43CE-5CEE-40EE-9AD0-A7AA608DBB6C}",
              L"Interface\\{E80BEAE1-D86E-4EF7-9780-53657BFF68C6}",
              L"Interface\\{7CCEC608-9BBD-42AC-BD9C-DD84955B61FF}",
              L"Interface\\{3F5FB31D-9A73-4C69-BC12-5544993222AA}",
              L"Interface\\{BB98678D-21E9-478C-9103-B163FFE269E5}"})
        {
            CHECK(log.Count("delete", std::wstring(kUser) + key) == 1);
        }
        // The system's own writes go to the machine as well, and its root is itself again.
        entries = log.Entries();
    }
    const auto place = [&](const char* what, const wchar_t* key) {
        return std::find_if(entries.begin(), entries.end(),
                            [&](const RegistryLog::Entry& e) {
                                return e.what == what && (!key || e.key == key);
                            }) -
               entries.begin();
    };
    const auto begins = place("override", L"classes root: machine:");
    const auto registers = place("register type library", nullptr);
    const auto ends = place("override", L"classes root: itself");
    CHECK(begins < registers);
    CHECK(registers < ends);
    CHECK(ends < static_cast<std::ptrdiff_t>(entries.size()));
    CHECK(velt::test::ComponentKeys(HKEY_CURRENT_USER, kUserClasses).empty());
}

TEST_CASE(
    "RegisterComponent: for the user, writes by the user's keys and the system's function for "
    "that",
    "[server]")
{
    const CleanClasses clean;
    g_forUser = {};
    HMODULE asked = nullptr;
    const FindPatch find("kernel32.dll", [&](HMODULE module, const char* name) -> FARPROC {
        if (std::string(name) != "RegisterTypeLibForUser")
        {
            return FindPatch::Original(module, name);
        }
        asked = module;
        return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&RegisterForUser));
    });
    {
        const RegistryLog log;
        Register(RegistrationScope::user);
        CHECK(log.First(kMachine) == -1);
        CHECK(log.First(kUser) >= 0);
        CHECK(std::none_of(log.Entries().begin(), log.Entries().end(), [](const auto& entry) {
            return entry.what == "register type library" || entry.what == "delete";
        }));
    }
    CHECK(g_forUser.calls == 1);
    CHECK(asked == ::GetModuleHandleW(L"oleaut32.dll"));
    const std::wstring path = velt::ModulePath(Program());
    CHECK((g_forUser.file == path));
    CHECK((g_forUser.folder == path.substr(0, path.rfind(L'\\'))));
    CHECK(velt::test::ComponentKeys(HKEY_LOCAL_MACHINE, kUserClasses).empty());
}

TEST_CASE("RegisterComponent: without the system's function for users it fails at the type library",
          "[server]")
{
    const CleanClasses clean;
    const FindPatch find("kernel32.dll", [](HMODULE module, const char* name) -> FARPROC {
        if (std::string(name) != "RegisterTypeLibForUser")
        {
            return FindPatch::Original(module, name);
        }
        ::SetLastError(ERROR_PROC_NOT_FOUND);
        return nullptr;
    });
    DWORD error = ERROR_SUCCESS;
    try
    {
        Register(RegistrationScope::user);
    }
    catch (const SystemException::Win32& e)
    {
        error = e.GetCode();
    }
    CHECK(error == ERROR_PROC_NOT_FOUND);
    CHECK(velt::test::ComponentKeys(HKEY_LOCAL_MACHINE, kUserClasses).empty());
}

TEST_CASE("RegisterComponent: everything is written on the system's locale", "[server]")
{
    const CleanClasses clean;
    const RegistrationScope scope = GENERATE(RegistrationScope::machine, RegistrationScope::user);
    std::vector<LCID> locales;
    LCID after = 0;
    // Neither the system's nor the tests' own.
    constexpr LCID kLatvian = 0x0426;
    REQUIRE(::ConvertDefaultLocale(LOCALE_SYSTEM_DEFAULT) != kLatvian);
    velt::test::RunOnNewThread([&] {
        ::SetThreadLocale(kLatvian);
        const SetValuePatch set("advapi32.dll", [&](auto... arguments) {
            locales.push_back(::GetThreadLocale());
            return SetValuePatch::Original(arguments...);
        });
        const RegisterTypeLibPatch library("oleaut32.dll", [&](auto... arguments) {
            locales.push_back(::GetThreadLocale());
            return RegisterTypeLibPatch::Original(arguments...);
        });
        Register(scope);
        after = ::GetThreadLocale();
    });
    CHECK(after == kLatvian);
    REQUIRE(locales.size() > 20);
    for (const LCID locale : locales)
    {
        CHECK(::ConvertDefaultLocale(locale) == ::ConvertDefaultLocale(LOCALE_SYSTEM_DEFAULT));
    }
}

TEST_CASE("RegisterComponent: a class's categories are written in its scope", "[server]")
{
    const CleanClasses clean;
    const RegistrationScope scope = GENERATE(RegistrationScope::machine, RegistrationScope::user);
    const std::array<velt::ClassRegistration, 1> classes = {
        {{&kOwnClass, TEST_SCRIPT_WORKS, L"Both", kOwnCategories}}};
    velt::RegistrarReplacements replacements;
    velt::AddCommonReplacements(replacements);
    velt::RegisterComponent(Program(), scope, replacements, classes);
    const std::wstring category = L"\\{2B60F9D1-7C04-45A8-B35D-1F42E680C903}";
    const RegistryTree expected = {{L"", {}},
                                   {L"Implemented Categories", {}},
                                   {L"Implemented Categories" + category, {}},
                                   {L"Required Categories", {}},
                                   {L"Required Categories" + category, {}}};
    const bool forUser = scope == RegistrationScope::user;
    const std::wstring key = CleanClasses::Below(CleanClasses::kOwnClassKey);
    const RegistryTree ofUser = SnapshotRegistry(HKEY_CURRENT_USER, key);
    const RegistryTree ofMachine = SnapshotRegistry(HKEY_LOCAL_MACHINE, key);
    if (forUser && ofUser.empty())
    {
        WARN("this system's category manager writes for the machine whatever its root means");
        CHECK((ofMachine == expected));
    }
    else
    {
        CHECK((ofUser == (forUser ? expected : RegistryTree{})));
        CHECK((ofMachine == (forUser ? RegistryTree{} : expected)));
    }
    // And its script has run, in the same scope.
    const std::wstring script = CleanClasses::Below(L"VeltTest.Script");
    CHECK(SnapshotRegistry(HKEY_CURRENT_USER, script).empty() != forUser);
    CHECK(SnapshotRegistry(HKEY_LOCAL_MACHINE, script).empty() == forUser);
}

TEST_CASE("RegisterComponent: the order is the application, the classes, the type library",
          "[server]")
{
    const CleanClasses clean;
    const RegistryLog log;
    Register(RegistrationScope::machine);
    const std::wstring machine = kMachine;
    std::ptrdiff_t before = -1;
    for (const wchar_t* const key :
         {L"AppID", L"VeltHTTPClient.VeltHTTPService12OEM.2",
          L"VeltHTTPClient.EnumVariantCol12OEM.2", L"VeltHTTPClientX.VeltEulaDlg12OEM.1"})
    {
        const std::ptrdiff_t at = log.First(machine + key);
        CHECK(before < at);
        before = at;
    }
    const auto library =
        std::find_if(log.Entries().begin(), log.Entries().end(),
                     [](const auto& entry) { return entry.what == "register type library"; }) -
        log.Entries().begin();
    CHECK(log.Last(machine + L"CLSID") < library);
    CHECK(library < static_cast<std::ptrdiff_t>(log.Entries().size()));
}
