// What registration leaves in the registry, of which this program has one of its own.

#include "tests/support/child_process.h"
#include "tests/support/component_library.h"
#include "tests/support/component_registration.h"
#include "tests/support/edition.h"
#include "tests/support/thread_group.h"

#include <objbase.h>

#include <cwchar>

#include <catch.hpp>

using velt::test::AllClassesKeys;
using velt::test::ComponentKeys;
using velt::test::ComponentLibrary;
using velt::test::DeleteComponentKeys;
using velt::test::DeniedKey;
using velt::test::ExpectedClassKeys;
using velt::test::ExpectedTypeLibraryKeys;
using velt::test::kEdition;
using velt::test::kUserClasses;
using velt::test::Merge;
using velt::test::RegistryDifference;
using velt::test::RegistryTree;
using velt::test::RunOnNewThread;
using velt::test::RunProcess;
using velt::test::TextValue;

namespace
{
std::wstring LibraryPath()
{
    return velt::test::ShippedFile(L"VeltHTTPClient12OEM.dll");
}

RegistryTree Expected()
{
    return Merge(ExpectedClassKeys(LibraryPath()), ExpectedTypeLibraryKeys(LibraryPath()));
}

/// Begins and ends a test without a key of the component.
class CleanRegistry
{
public:
    CleanRegistry()
    {
        Clean();
    }

    CleanRegistry(const CleanRegistry&) = delete;
    CleanRegistry& operator=(const CleanRegistry&) = delete;

    ~CleanRegistry()
    {
        Clean();
    }

private:
    static void Clean()
    {
        DeleteComponentKeys(HKEY_LOCAL_MACHINE, kUserClasses);
        DeleteComponentKeys(HKEY_CURRENT_USER, kUserClasses);
    }
};

DWORD RunRegsvr32()
{
    return RunProcess(L"regsvr32.exe /s \"" + LibraryPath() + L"\"");
}

HRESULT Register()
{
    const ComponentLibrary library;
    return library.RegisterServer();
}

/// A key that is there before, with a name that registration writes.
void WriteText(const std::wstring& path, const wchar_t* name, const std::wstring& text)
{
    REQUIRE(::RegSetKeyValueW(HKEY_CLASSES_ROOT, path.c_str(), name, REG_SZ, text.c_str(),
                              static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t))) == 0);
}

#define CHECK_TREE(actual, expected)                        \
    do                                                      \
    {                                                       \
        const RegistryTree actualTree = (actual);           \
        const RegistryTree expectedTree = (expected);       \
        INFO(RegistryDifference(expectedTree, actualTree)); \
        CHECK((actualTree == expectedTree));                \
    } while (false)
} // namespace

TEST_CASE("DllRegisterServer: regsvr32 writes every key, and no other", "[server]")
{
    const CleanRegistry clean;
    const RegistryTree before = AllClassesKeys(HKEY_CLASSES_ROOT);
    const RegistryTree userBefore = velt::test::SnapshotRegistry(HKEY_CURRENT_USER, kUserClasses);
    REQUIRE(before.size() > 100); // the system's own classes
    REQUIRE(ComponentKeys(HKEY_CLASSES_ROOT).empty());

    REQUIRE(RunRegsvr32() == 0);
    RegistryTree expected = Merge(before, Expected());
    for (const wchar_t* shared : {L"AppID", L"CLSID", L"Interface", L"TypeLib"})
    {
        expected.emplace(shared, velt::test::RegistryValues{});
    }
    CHECK_TREE(AllClassesKeys(HKEY_CLASSES_ROOT), expected);
    CHECK_TREE(velt::test::SnapshotRegistry(HKEY_CURRENT_USER, kUserClasses), userBefore);
}

TEST_CASE("DllRegisterServer: works on a thread without COM, and leaves it so", "[server]")
{
    const CleanRegistry clean;
    HRESULT result = E_FAIL;
    HRESULT apartment = E_FAIL;
    RunOnNewThread([&] {
        result = Register();
        APTTYPE type{};
        APTTYPEQUALIFIER qualifier{};
        apartment = ::CoGetApartmentType(&type, &qualifier);
    });
    CHECK(result == S_OK);
    CHECK(apartment == CO_E_NOTINITIALIZED);
    CHECK_TREE(ComponentKeys(HKEY_CLASSES_ROOT), Expected());
}

TEST_CASE("DllRegisterServer: works in each kind of apartment", "[server]")
{
    const CleanRegistry clean;
    const DWORD kind = GENERATE(COINIT_APARTMENTTHREADED, COINIT_MULTITHREADED);
    HRESULT result = E_FAIL;
    RunOnNewThread([&] {
        if (SUCCEEDED(::CoInitializeEx(nullptr, kind)))
        {
            result = Register();
            ::CoUninitialize();
        }
    });
    CHECK(result == S_OK);
    CHECK_TREE(ComponentKeys(HKEY_CLASSES_ROOT), Expected());
}

TEST_CASE("DllRegisterServer: a second registration changes nothing", "[server]")
{
    const CleanRegistry clean;
    const ComponentLibrary library;
    REQUIRE(library.RegisterServer() == S_OK);
    const RegistryTree first = velt::test::SnapshotRegistry(HKEY_CLASSES_ROOT, L"CLSID");
    CHECK(library.RegisterServer() == S_OK);
    CHECK_TREE(velt::test::SnapshotRegistry(HKEY_CLASSES_ROOT, L"CLSID"), first);
    CHECK_TREE(ComponentKeys(HKEY_CLASSES_ROOT), Expected());
}

TEST_CASE("DllRegisterServer: what lay below a class key goes, other keys keep theirs", "[server]")
{
    const CleanRegistry clean;
    const std::wstring classKey = L"CLSID\\{5A6B579B-3C37-4A16-A3A5-F6C72FA15C40}";
    WriteText(classKey + L"\\Old\\Deep", nullptr, L"old");
    WriteText(classKey + L"\\InprocServer32", L"ThreadingModel", L"Old");
    WriteText(classKey + L"\\InprocServer32", L"Other", L"Old");
    const std::wstring progId = L"VeltHTTPClient.VeltHTTPService12OEM";
    WriteText(progId + L"\\Mine", nullptr, L"kept");
    WriteText(progId, nullptr, L"replaced");

    REQUIRE(Register() == S_OK);
    RegistryTree expected = Expected();
    expected[progId + L"\\Mine"][L""] = TextValue(L"kept");
    CHECK_TREE(ComponentKeys(HKEY_CLASSES_ROOT), expected);
}

TEST_CASE("DllRegisterServer: writes the same on every locale and gives the thread its own back",
          "[server]")
{
    const CleanRegistry clean;
    const LCID locale = GENERATE(as<LCID>{}, 0x0407, 0x0411, 0x041F, 0x0409);
    LCID after = 0;
    HRESULT result = E_FAIL;
    RunOnNewThread([&] {
        ::SetThreadLocale(locale);
        result = Register();
        after = ::GetThreadLocale();
    });
    CHECK(result == S_OK);
    CHECK(after == locale);
    CHECK_TREE(ComponentKeys(HKEY_CLASSES_ROOT), Expected());
}

TEST_CASE("DllRegisterServer: a write that is refused is reported, what was before stays",
          "[server]")
{
    const CleanRegistry clean;
    const std::wstring refused =
        L"VeltHTTPClient.EnumVariantCol12OEM.2"; // the second class's first
    WriteText(refused, nullptr, L"not mine");
    HRESULT result = S_OK;
    LCID after = 0;
    DWORD exitCode = 0;
    {
        const DeniedKey denied(HKEY_CLASSES_ROOT, refused.c_str());
        RunOnNewThread([&] {
            ::SetThreadLocale(0x0407);
            result = Register();
            after = ::GetThreadLocale();
        });
        exitCode = RunRegsvr32();
    }
    CHECK(result == HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED));
    CHECK(after == 0x0407); // also after a failure
    CHECK(exitCode != 0);

    // The application and the first class are there, the others and the type library are not.
    RegistryTree expected;
    for (const auto& [path, values] : ExpectedClassKeys(LibraryPath()))
    {
        if (path.starts_with(L"AppID") || path.find(L"VeltHTTPService12OEM") != path.npos ||
            path.find(L"{5A6B579B-3C37-4A16-A3A5-F6C72FA15C40}") != path.npos)
        {
            expected.emplace(path, values);
        }
    }
    expected[refused][L""] = TextValue(L"not mine");
    CHECK_TREE(ComponentKeys(HKEY_CLASSES_ROOT), expected);

    // Registration is complete as soon as nothing is in the way.
    CHECK(Register() == S_OK);
    CHECK_TREE(ComponentKeys(HKEY_CLASSES_ROOT), Expected());
}

TEST_CASE("DllRegisterServer: the application's script is the first, its failure ends all",
          "[server]")
{
    const CleanRegistry clean;
    const std::wstring refused = L"AppID\\{0808C913-0251-4F8F-9EB2-5EF1D9FFD5DC}";
    WriteText(refused, nullptr, L"not mine");
    HRESULT result = S_OK;
    {
        const DeniedKey denied(HKEY_CLASSES_ROOT, refused.c_str());
        result = Register();
    }
    CHECK(result == HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED));
    RegistryTree expected;
    expected[refused][L""] = TextValue(L"not mine");
    CHECK_TREE(ComponentKeys(HKEY_CLASSES_ROOT), expected);
}

TEST_CASE("DllRegisterServer: for the machine, no entry of the caller's own is left to hide it",
          "[server]")
{
    const CleanRegistry clean;
    const std::wstring classes = std::wstring(kUserClasses) + L'\\';
    const std::wstring classKey = L"CLSID\\{5A6B579B-3C37-4A16-A3A5-F6C72FA15C40}";
    const std::wstring progId = L"VeltHTTPClient.VeltHTTPService12OEM";
    const std::wstring interfaceKey = L"Interface\\{E80BEAE1-D86E-4EF7-9780-53657BFF68C6}";
    const std::wstring libraryKey = L"TypeLib\\{AB6A43CE-5CEE-40EE-9AD0-A7AA608DBB6C}";
    // Not the component's, and so not its business.
    const RegistryTree others = {
        {progId + L"\\Mine", {{L"", TextValue(L"kept")}}},
        {interfaceKey + L"\\Mine", {{L"", TextValue(L"kept")}}},
        {libraryKey + L"\\9.0\\0\\win32", {{L"", TextValue(L"C:\\other.tlb")}}},
        {L"CLSID\\{7A1E4C52-0D93-4F6B-8C21-5EB8903A6D17}", {{L"", TextValue(L"kept")}}},
        {L"Interface\\{7A1E4C52-0D93-4F6B-8C21-5EB8903A6D17}", {{L"", TextValue(L"kept")}}},
    };
    const auto write = [&](const std::wstring& path, const wchar_t* name, const wchar_t* text) {
        REQUIRE(::RegSetKeyValueW(HKEY_CURRENT_USER, (classes + path).c_str(), name, REG_SZ, text,
                                  static_cast<DWORD>((std::wcslen(text) + 1) * 2)) == 0);
    };
    for (const auto& [path, values] : others)
    {
        write(path, nullptr, reinterpret_cast<const wchar_t*>(values.at(L"").data.data()));
    }
    RegistryTree left = velt::test::SnapshotRegistry(HKEY_CURRENT_USER, kUserClasses);
    {
        const DeniedKey denied(HKEY_LOCAL_MACHINE, kUserClasses);
        REQUIRE(Register() == S_OK); // for the user
    }
    REQUIRE(ComponentKeys(HKEY_CURRENT_USER, kUserClasses).size() > others.size() + 20);
    // As another copy, or another version, would have left them.
    write(classKey + L"\\InprocServer32", nullptr, L"C:\\other\\VeltHTTPClient12OEM.dll");
    write(classKey + L"\\Old", nullptr, L"old");
    write(progId + L"\\CurVer", nullptr, L"VeltHTTPClient.VeltHTTPService12OEM.1");
    write(libraryKey + L"\\1.0\\0\\" + kEdition.system, nullptr,
          L"C:\\other\\VeltHTTPClient12OEM.dll");
    write(interfaceKey + L"\\ProxyStubClsid", nullptr, L"{00020424-0000-0000-C000-000000000046}");

    CHECK((GENERATE(true, false) ? static_cast<HRESULT>(RunRegsvr32()) : Register()) == S_OK);
    CHECK_TREE(velt::test::SnapshotRegistry(HKEY_CURRENT_USER, kUserClasses), left);
    CHECK_TREE(ComponentKeys(HKEY_LOCAL_MACHINE, kUserClasses), Expected());
    for (const auto& [path, values] : others)
    {
        ::RegDeleteTreeW(HKEY_CURRENT_USER, (classes + path).c_str());
    }
}

TEST_CASE("DllRegisterServer: for the machine, keys that become empty at the caller go, too",
          "[server]")
{
    const CleanRegistry clean;
    for (const wchar_t* const name : {L"AppID", L"CLSID", L"Interface", L"TypeLib"})
    {
        const std::wstring key = std::wstring(kUserClasses) + L'\\' + name;
        ::RegDeleteKeyW(HKEY_CURRENT_USER, key.c_str()); // if nothing is below it
    }
    const RegistryTree before = velt::test::SnapshotRegistry(HKEY_CURRENT_USER, kUserClasses);
    {
        const DeniedKey denied(HKEY_LOCAL_MACHINE, kUserClasses);
        REQUIRE(Register() == S_OK); // for the user
    }
    CHECK(Register() == S_OK);
    CHECK_TREE(velt::test::SnapshotRegistry(HKEY_CURRENT_USER, kUserClasses), before);
}

TEST_CASE("DllRegisterServer: for the machine, the other edition's entries of the caller stay",
          "[server]")
{
    const CleanRegistry clean;
    const std::wstring version = L"TypeLib\\{AB6A43CE-5CEE-40EE-9AD0-A7AA608DBB6C}\\1.0";
    const std::wstring path = std::wstring(kUserClasses) + L'\\' + version;
    const auto write = [&](const std::wstring& key, const std::wstring& text, bool isEnded = true) {
        const std::size_t size = (text.size() + (isEnded ? 1 : 0)) * sizeof(wchar_t);
        REQUIRE(::RegSetKeyValueW(HKEY_CURRENT_USER, (path + key).c_str(), nullptr, REG_SZ,
                                  text.c_str(), static_cast<DWORD>(size)) == 0);
    };
    write(L"", L"VeltHTTPClient 1.0 Type Library");
    write(L"\\FLAGS", L"0");
    write(L"\\HELPDIR", L"C:\\other");
    write(std::wstring(L"\\0\\") + kEdition.otherSystem, L"C:\\other\\VeltHTTPClient12OEM.dll");
    // On 64-bit Windows both editions have these in common.
    for (const auto& [key, values] : velt::test::ExpectedClassKeys(L"C:\\other.dll"))
    {
        if (!key.starts_with(L"CLSID\\") && !values.empty())
        {
            const auto& [name, value] = *values.begin();
            const std::wstring full = std::wstring(kUserClasses) + L'\\' + key;
            REQUIRE(::RegSetKeyValueW(HKEY_CURRENT_USER, full.c_str(), name.c_str(), value.type,
                                      value.data.data(),
                                      static_cast<DWORD>(value.data.size())) == 0);
        }
    }
    const RegistryTree before = ComponentKeys(HKEY_CURRENT_USER, kUserClasses);
    write(std::wstring(L"\\0\\") + kEdition.system, L"C:\\own\\VeltHTTPClient12OEM.dll");
    // One that is this edition's is handed over, whether or not its text ends with a NUL.
    const auto [helpIsOwn, isEnded] =
        GENERATE(table<bool, bool>({{false, true}, {true, true}, {true, false}}));
    CAPTURE(helpIsOwn, isEnded);
    if (helpIsOwn)
    {
        write(L"\\HELPDIR", L"C:\\own", isEnded);
    }
    CHECK(Register() == S_OK);
    CHECK_TREE(ComponentKeys(HKEY_CURRENT_USER, kUserClasses), before);
    CHECK_TREE(ComponentKeys(HKEY_LOCAL_MACHINE, kUserClasses), Expected());
}

TEST_CASE("DllRegisterServer: for the machine, an entry that cannot be erased ends it before it "
          "writes",
          "[server]")
{
    const CleanRegistry clean;
    const std::wstring key = std::wstring(kUserClasses) + L"\\VeltHTTPClient.VeltHTTPService12OEM";
    REQUIRE(::RegSetKeyValueW(HKEY_CURRENT_USER, key.c_str(), nullptr, REG_SZ, L"x", 4) == 0);
    {
        const DeniedKey denied(HKEY_CURRENT_USER, key.c_str());
        CHECK(Register() == HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED));
        CHECK(ComponentKeys(HKEY_LOCAL_MACHINE, kUserClasses).empty());
    }
    CHECK(Register() == S_OK);
    CHECK(ComponentKeys(HKEY_CURRENT_USER, kUserClasses).empty());
}

TEST_CASE("DllRegisterServer: registers for the user when the machine's classes are closed",
          "[server]")
{
    const CleanRegistry clean;
    const bool asProcess = GENERATE(true, false);
    {
        // A restricted token would be the usual way; this works where keys have no access list.
        const DeniedKey denied(HKEY_LOCAL_MACHINE, kUserClasses);
        HKEY key = nullptr;
        REQUIRE(::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kUserClasses, 0, KEY_WRITE, &key) ==
                ERROR_ACCESS_DENIED);
        CHECK((asProcess ? static_cast<HRESULT>(RunRegsvr32()) : Register()) == S_OK);
    }
    const RegistryTree classes = ExpectedClassKeys(LibraryPath());
    const RegistryTree typeLibrary = ExpectedTypeLibraryKeys(LibraryPath());
    CHECK_TREE(ComponentKeys(HKEY_CURRENT_USER, kUserClasses), Merge(classes, typeLibrary));
    CHECK_TREE(ComponentKeys(HKEY_LOCAL_MACHINE, kUserClasses), RegistryTree{});
}
