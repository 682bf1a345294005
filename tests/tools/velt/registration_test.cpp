// velt register and unregister in a registry of their own: afterwards it is as before.

#include "foundation/wide_text.h"
#include "tests/support/component_library.h"
#include "tests/support/component_registration.h"
#include "tests/support/edition.h"
#include "tests/support/registry_snapshot.h"
#include "tests/support/registry_views.h"
#include "tests/support/temp_folder.h"
#include "tests/tools/velt/velt_program.h"

#include <catch.hpp>

#include <string>

using namespace velt::test;

namespace
{
constexpr wchar_t kClassKey[] = L"Software\\Classes\\CLSID\\{5A6B579B-3C37-4A16-A3A5-F6C72FA15C40}";

/// The tree of a classes key, which every user has; some systems make it with the first entry.
RegistryTree TreeOf(HKEY root)
{
    HKEY classes = nullptr;
    REQUIRE(::RegCreateKeyW(root, kUserClasses, &classes) == 0);
    ::RegCloseKey(classes);
    return SnapshotRegistry(root, kUserClasses);
}

/// Both places that registration writes to, whole.
struct Classes
{
    RegistryTree machine = TreeOf(HKEY_LOCAL_MACHINE);
    RegistryTree user = TreeOf(HKEY_CURRENT_USER);
};

void CheckSame(const RegistryTree& before, const RegistryTree& after)
{
    INFO(RegistryDifference(before, after));
    CHECK((before == after));
}

void CheckSame(const Classes& before)
{
    const Classes after;
    CheckSame(before.machine, after.machine);
    CheckSame(before.user, after.user);
}

constexpr const char* kUnseenByElevated =
    "velt: programs that run elevated do not see a user's registration; velt register by an "
    "administrator registers for the machine\n";

/// A file that says that it is a library for the other kind of processor.
void WriteOtherEdition(const TempFolder& folder, const wchar_t* name)
{
    constexpr WORD kMachine = kIs64Bit ? IMAGE_FILE_MACHINE_I386 : IMAGE_FILE_MACHINE_AMD64;
    struct
    {
        IMAGE_DOS_HEADER start;
        DWORD signature;
        IMAGE_FILE_HEADER header;
    } image{};
    image.start.e_magic = IMAGE_DOS_SIGNATURE;
    image.start.e_lfanew = sizeof(image.start);
    image.signature = IMAGE_NT_SIGNATURE;
    image.header.Machine = kMachine;
    image.header.Characteristics = IMAGE_FILE_EXECUTABLE_IMAGE | IMAGE_FILE_DLL;
    folder.Write(name, {reinterpret_cast<const char*>(&image), sizeof(image)});
}

/// velt register where it registers for the user.
ProgramResult RegisterForUser(const std::vector<std::wstring>& arguments)
{
    const StrayInterfaces stray(kEdition.otherView);
    return RunVelt(arguments);
}

void WriteText(HKEY root, const std::wstring& path, const wchar_t* name, const std::wstring& text)
{
    REQUIRE(::RegSetKeyValueW(root, path.c_str(), name, REG_SZ, text.c_str(),
                              static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t))) == 0);
}
} // namespace

TEST_CASE("velt unregister: the registry is as it was before register", "[tools]")
{
    const bool user = GENERATE(false, true);
    const std::vector<std::wstring> option =
        user ? std::vector<std::wstring>{L"--user"} : std::vector<std::wstring>{};
    const auto with = [&](const wchar_t* command) {
        std::vector<std::wstring> arguments{command};
        arguments.insert(arguments.end(), option.begin(), option.end());
        return arguments;
    };
    const Classes before;

    ProgramResult result = user ? RegisterForUser(with(L"register")) : RunVelt(with(L"register"));
    REQUIRE(result.exitCode == 0);
    CHECK(result.output.starts_with(user ? "scope: user\n" : "scope: machine\n"));
    CHECK(result.output.find(user ? "\nelevatedSees: no\n" : "\nelevatedSees: yes\n") !=
          std::string::npos);
    CHECK(result.messages == (user ? kUnseenByElevated : ""));
    const std::wstring library = ShippedFile(L"VeltHTTPClient12OEM.dll");
    const HKEY root = user ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE;
    CheckSame(Merge(ExpectedClassKeys(library), ExpectedTypeLibraryKeys(library)),
              ComponentKeys(root, kUserClasses));
    CHECK(ComponentKeys(user ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER, kUserClasses).empty());

    result = RunVelt(with(L"unregister"));
    CHECK(result.exitCode == 0);
    CHECK(result.output.find("unregistered: yes\n") != std::string::npos);
    CheckSame(before);

    result = RunVelt(with(L"unregister"));
    CHECK(result.exitCode == 1);
    CHECK(result.output.find("unregistered: no\n") != std::string::npos);
    CHECK(result.messages == "velt: the component is not registered\n");
    CheckSame(before);
}

TEST_CASE("velt unregister: takes back what regsvr32 has registered", "[tools]")
{
    const Classes before;
    const ComponentLibrary library;
    REQUIRE(library.RegisterServer() == S_OK);
    CHECK(RunVelt({L"unregister"}).exitCode == 0);
    CheckSame(before);
}

TEST_CASE("velt unregister: leaves what other programs put there", "[tools]")
{
    const Classes before;
    REQUIRE(RunVelt({L"register"}).exitCode == 0);
    const std::wstring progId = L"Software\\Classes\\VeltHTTPClient.VeltHTTPService12OEM";
    WriteText(HKEY_LOCAL_MACHINE, std::wstring(kClassKey) + L"\\TreatAs", nullptr, L"{other}");
    WriteText(HKEY_LOCAL_MACHINE, progId, L"Other", L"value");
    WriteText(HKEY_LOCAL_MACHINE, progId + L"\\CurVer", nullptr, L"Other.Version.9");
    CHECK(RunVelt({L"unregister"}).exitCode == 0);

    RegistryTree left = SnapshotRegistry(HKEY_LOCAL_MACHINE, kUserClasses);
    RegistryTree expected = before.machine;
    const std::wstring classKey = std::wstring(kClassKey).substr(17);
    expected[classKey];
    expected[classKey + L"\\TreatAs"][L""] = TextValue(L"{other}");
    expected[L"VeltHTTPClient.VeltHTTPService12OEM"][L"Other"] = TextValue(L"value");
    expected[L"VeltHTTPClient.VeltHTTPService12OEM\\CurVer"][L""] = TextValue(L"Other.Version.9");
    CheckSame(expected, left);
    DeleteComponentKeys(HKEY_LOCAL_MACHINE, kUserClasses);
    CheckSame(before);
}

TEST_CASE("velt unregister: leaves what others put into the type library's keys", "[tools]")
{
    const Classes before;
    REQUIRE(RunVelt({L"register"}).exitCode == 0);
    const std::wstring interfaceKey = L"Interface\\{3F5FB31D-9A73-4C69-BC12-5544993222AA}";
    // Systems spell the name of the key that holds all type libraries in their own ways.
    const std::wstring libraries = before.machine.contains(L"Typelib") ? L"Typelib" : L"TypeLib";
    const std::wstring libraryKey = libraries + L"\\{AB6A43CE-5CEE-40EE-9AD0-A7AA608DBB6C}";
    const std::wstring classes = L"Software\\Classes\\";
    WriteText(HKEY_LOCAL_MACHINE, classes + interfaceKey + L"\\Other", nullptr, L"1");
    WriteText(HKEY_LOCAL_MACHINE, classes + libraryKey + L"\\9.0", nullptr, L"2");
    WriteText(HKEY_LOCAL_MACHINE, classes + libraryKey + L"\\9.0\\0\\win32", nullptr, L"C:\\x.tlb");
    CHECK(RunVelt({L"unregister"}).exitCode == 0);

    RegistryTree expected = ViewsOnce(before.machine);
    expected[interfaceKey];
    expected[interfaceKey + L"\\Other"][L""] = TextValue(L"1");
    expected[libraries];
    expected[libraryKey];
    expected[libraryKey + L"\\9.0"][L""] = TextValue(L"2");
    expected[libraryKey + L"\\9.0\\0"];
    expected[libraryKey + L"\\9.0\\0\\win32"][L""] = TextValue(L"C:\\x.tlb");
    const RegistryTree left = TreeOf(HKEY_LOCAL_MACHINE);
    CheckSame(expected, ViewsOnce(left));
    CHECK_FALSE(left.contains(L"Wow6432Node\\" + interfaceKey)); // nobody's
    DeleteComponentKeys(HKEY_LOCAL_MACHINE, kUserClasses);
    CheckSame(before);
}

TEST_CASE("velt unregister: a class that another copy has taken over stays whole", "[tools]")
{
    const Classes before;
    REQUIRE(RunVelt({L"register"}).exitCode == 0);
    const RegistryTree registered = TreeOf(HKEY_LOCAL_MACHINE);
    const std::wstring classKey = std::wstring(kClassKey).substr(17);
    const std::wstring other = L"C:\\other\\VeltHTTPClient12OEM.dll";
    WriteText(HKEY_LOCAL_MACHINE, std::wstring(kClassKey) + L"\\InprocServer32", nullptr, other);
    const ProgramResult result = RunVelt({L"unregister"});
    CHECK(result.exitCode == 0);
    CHECK(result.output.find("unregistered: yes\n") != std::string::npos);

    RegistryTree expected = ViewsOnce(before.machine);
    for (const auto& [key, values] : registered)
    {
        if (key.starts_with(classKey) || key.starts_with(L"AppID\\VeltHTTPClient12OEM.DLL") ||
            key.starts_with(L"AppID\\{0808C913-0251-4F8F-9EB2-5EF1D9FFD5DC}") ||
            key.starts_with(L"VeltHTTPClient.VeltHTTPService12OEM"))
        {
            expected[key] = values;
        }
    }
    expected[classKey + L"\\InprocServer32"][L""] = TextValue(other.c_str());
    CheckSame(expected, ViewsOnce(TreeOf(HKEY_LOCAL_MACHINE)));
    CHECK(RunVelt({L"unregister"}).exitCode == 1);
    DeleteComponentKeys(HKEY_LOCAL_MACHINE, kUserClasses);
    CheckSame(before);
}

TEST_CASE("velt unregister: another copy's registration stays", "[tools]")
{
    const Classes before;
    const TempFolder folder(L"copy");
    const std::wstring program = folder.File(L"velt.exe");
    REQUIRE(::CopyFileW(VeltProgram().c_str(), program.c_str(), FALSE));
    REQUIRE(::CopyFileW(ShippedFile(L"VeltHTTPClient12OEM.dll").c_str(),
                        folder.File(L"VeltHTTPClient12OEM.dll").c_str(), FALSE));
    REQUIRE(RunVelt({L"register"}, program).exitCode == 0);
    const Classes registered;
    const std::string library = velt::Utf8FromWide(folder.File(L"VeltHTTPClient12OEM.dll"));
    ProgramResult result = RunVelt({L"unregister"});
    CHECK(result.exitCode == 1);
    CHECK(result.output.find("unregistered: no\n") != std::string::npos);
    CHECK(result.messages == "velt: another copy is registered, and stays so: " + library + "\n");
    CheckSame(registered);
    result = RunVelt({L"status"});
    CHECK(result.exitCode == 0);
    CHECK(result.output.find("registeredForMachine: " + library + "\n") != std::string::npos);
    CHECK(result.output.find("\nwarning  " + velt::Utf8FromWide(kEdition.name) +
                             ", machine: another copy than the one beside this program is used; "
                             "register the copy that is to be used: velt register\n") !=
          std::string::npos);
    CHECK(RunVelt({L"status", L"--json"}).output.find("\"creatable\":true") != std::string::npos);
    CHECK(RunVelt({L"unregister"}, program).exitCode == 0);
    CheckSame(before);
}

TEST_CASE("velt register: without the right to the machine's classes, for the user", "[tools]")
{
    const Classes before;
    {
        const DeniedKey denied(HKEY_LOCAL_MACHINE, kUserClasses);
        const ProgramResult result = RegisterForUser({L"register"});
        CHECK(result.exitCode == 0);
        CHECK(result.output.starts_with("scope: user\n"));
        CHECK(result.messages == kUnseenByElevated);
        CHECK_FALSE(ComponentKeys(HKEY_CURRENT_USER, kUserClasses).empty());
        CHECK(RunVelt({L"unregister"}).exitCode == 0);
    }
    CheckSame(before);
}

TEST_CASE("velt unregister: a key that must not be changed is a failure", "[tools]")
{
    REQUIRE(RunVelt({L"register"}).exitCode == 0);
    {
        const DeniedKey denied(HKEY_LOCAL_MACHINE, kClassKey);
        const ProgramResult result = RunVelt({L"unregister"});
        CHECK(result.exitCode == 3);
        CHECK(result.messages.find("(0x80070005)") != std::string::npos);
    }
    DeleteComponentKeys(HKEY_LOCAL_MACHINE, kUserClasses);
}

TEST_CASE("velt status: a library is named by whatever path, and only by a text", "[tools]")
{
    const Classes before;
    const std::wstring key = std::wstring(kClassKey) + L"\\InprocServer32";
    const std::wstring path = L"C:\\" + std::wstring(2000, L'a') + L".dll";
    WriteText(HKEY_LOCAL_MACHINE, key, nullptr, path);
    ProgramResult result = RunVelt({L"status"});
    CHECK(result.output.find("registeredForMachine: " + velt::Utf8FromWide(path) + "\n") !=
          std::string::npos);

    const DWORD number = 1;
    ::RegSetKeyValueW(HKEY_LOCAL_MACHINE, key.c_str(), nullptr, REG_DWORD, &number, sizeof(number));
    result = RunVelt({L"status"});
    CHECK(result.output.find("registeredForMachine: none\n") != std::string::npos);
    ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, kClassKey);
    CheckSame(before);
}

TEST_CASE("velt status: a registered copy that makes no objects is an error", "[tools]")
{
    const Classes before;
    const TempFolder folder(L"copy");
    const std::wstring program = folder.File(L"velt.exe");
    const std::wstring library = folder.File(L"VeltHTTPClient12OEM.dll");
    REQUIRE(::CopyFileW(VeltProgram().c_str(), program.c_str(), FALSE));
    REQUIRE(::CopyFileW(ShippedFile(L"VeltHTTPClient12OEM.dll").c_str(), library.c_str(), FALSE));
    REQUIRE(RunVelt({L"register"}, program).exitCode == 0);
    const std::string name = velt::Utf8FromWide(kEdition.name) + ", machine: ";
    const std::string named = "\nerror    " + name + velt::Utf8FromWide(library);

    WriteText(HKEY_LOCAL_MACHINE, std::wstring(kClassKey) + L"\\InprocServer32", nullptr,
              L"C:\\other.dll");
    ProgramResult result = RunVelt({L"status"});
    CHECK(result.output.find("\nerror    " + name + "C:\\other.dll: there is no such file; ") !=
          std::string::npos);
    CHECK(result.exitCode == 1);
    WriteText(HKEY_LOCAL_MACHINE, std::wstring(kClassKey) + L"\\InprocServer32", nullptr, library);

    folder.Write(L"VeltHTTPClient12OEM.dll", "text");
    result = RunVelt({L"status", L"--json"});
    CHECK(result.exitCode == 1);
    CHECK(result.output.find("\"present\":true,\"version\":null,\"own\":false,"
                             "\"creatable\":false,\"failed\":\"") != std::string::npos);
    CHECK(result.output.find("\"code\":\"0x800700C1\"") != std::string::npos);
    CHECK(RunVelt({L"status"}).output.find(named + ": makes no objects: ") != std::string::npos);

    REQUIRE(::DeleteFileW(library.c_str()));
    result = RunVelt({L"status"});
    CHECK(result.exitCode == 1);
    CHECK(result.output.find(named + ": there is no such file; register the copy that is to be "
                                     "used: velt register\n") != std::string::npos);
    DeleteComponentKeys(HKEY_LOCAL_MACHINE, kUserClasses);
    CheckSame(before);
}

TEST_CASE("velt status: what is registered for the other edition is told, and not tried", "[tools]")
{
    BOOL wow = FALSE;
    if (!kIs64Bit && !(::IsWow64Process(::GetCurrentProcess(), &wow) && wow))
    {
        WARN("this system runs programs of one kind only");
        return;
    }
    HKEY key = nullptr;
    REQUIRE(::RegCreateKeyExW(HKEY_LOCAL_MACHINE,
                              (std::wstring(kClassKey) + L"\\InprocServer32").c_str(), 0, nullptr,
                              0, KEY_ALL_ACCESS | kEdition.otherView, nullptr, &key,
                              nullptr) == ERROR_SUCCESS);
    const auto write = [&](const std::wstring& text) {
        REQUIRE(::RegSetValueExW(
                    key, nullptr, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                    static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t))) == ERROR_SUCCESS);
    };
    const std::string other = kIs64Bit ? "32-bit, machine: " : "64-bit, machine: ";
    write(L"C:\\nowhere.dll");
    ProgramResult result = RunVelt({L"status"});
    CHECK(result.exitCode == 1);
    CHECK(result.output.find("\nerror    " + other + "C:\\nowhere.dll: there is no such file") !=
          std::string::npos);
    write(ShippedFile(L"VeltHTTPClient12OEM.dll")); // of this edition
    result = RunVelt({L"status"});
    CHECK(result.exitCode == 1);
    CHECK(result.output.find("(0x800700C1); register the copy") != std::string::npos);
    const TempFolder folder(L"status");
    WriteOtherEdition(folder, L"other.dll");
    write(folder.File(L"other.dll"));
    result = RunVelt({L"status"});
    CHECK(result.output.find("\nok       " + other +
                             velt::Utf8FromWide(folder.File(L"other.dll"))) != std::string::npos);
    CHECK(result.output.find(std::string(": not tried; ") + (kIs64Bit ? "32" : "64") +
                             "-bit velt status does\n") != std::string::npos);
    result = RunVelt({L"status", L"--json"});
    CHECK(result.output.find("\"own\":false,\"creatable\":null") != std::string::npos);
    ::RegCloseKey(key);
    ::RegDeleteKeyExW(HKEY_LOCAL_MACHINE, (std::wstring(kClassKey) + L"\\InprocServer32").c_str(),
                      kEdition.otherView, 0);
    ::RegDeleteKeyExW(HKEY_LOCAL_MACHINE, kClassKey, kEdition.otherView, 0);
}
