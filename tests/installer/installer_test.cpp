// The installer as an administrator's tool runs it: silently, for all users and for the current
// one, over itself, and away again.

#include "foundation/reg_key.h"
#include "foundation/unique_handle.h"
#include "foundation/wide_text.h"
#include "tests/support/com_apartment.h"
#include "tests/support/component_library.h"
#include "tests/support/registry_snapshot.h"

#include <provider_lib.h>

#include <objbase.h>
#include <shlobj.h>
#include <wrl/client.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>
#include <string>

#include <catch.hpp>

using Microsoft::WRL::ComPtr;
using velt::UniqueKernelObject;
using velt::test::ComApartment;
using velt::test::RegistryDifference;
using velt::test::RegistryTree;
using velt::test::SnapshotRegistry;

namespace
{
constexpr DWORD kLimitMs = 60'000;
constexpr DWORD kNotCompleted = 2; // what the installer ends with
constexpr DWORD kNotRegistered = 3;
constexpr wchar_t kLibrary[] = L"VeltHTTPClient12OEM.dll";
constexpr wchar_t kProductKey[] =
    L"Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\VeltHTTPClient12OEM";
constexpr wchar_t kServerKey[] =
    L"Software\\Classes\\CLSID\\{5A6B579B-3C37-4A16-A3A5-F6C72FA15C40}\\InprocServer32";
constexpr wchar_t kTypeLibraryKey[] =
    L"Software\\Classes\\TypeLib\\{AB6A43CE-5CEE-40EE-9AD0-A7AA608DBB6C}\\1.0\\0\\win32";

/// Runs a program and waits until it and all that it started have ended: an uninstaller goes on in
/// a copy of itself. Returns the program's own exit code.
DWORD RunToItsEnd(std::wstring commandLine)
{
    // Where the first window of a session starts the desktop's own process, it is not to be one
    // that the program started.
    ::GetWindowThreadProcessId(::GetDesktopWindow(), nullptr);
    const UniqueKernelObject job(::CreateJobObjectW(nullptr, nullptr));
    const UniqueKernelObject port(::CreateIoCompletionPort(INVALID_HANDLE_VALUE, nullptr, 0, 1));
    JOBOBJECT_ASSOCIATE_COMPLETION_PORT association{job.Get(), port.Get()};
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process{};
    if (!::SetInformationJobObject(job.Get(), JobObjectAssociateCompletionPortInformation,
                                   &association, sizeof(association)) ||
        !::CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, CREATE_SUSPENDED,
                          nullptr, nullptr, &startup, &process))
    {
        throw std::runtime_error("a program cannot be started");
    }
    const UniqueKernelObject handle(process.hProcess);
    const UniqueKernelObject thread(process.hThread);
    if (!::AssignProcessToJobObject(job.Get(), handle.Get()))
    {
        ::TerminateProcess(handle.Get(), 98);
        throw std::runtime_error("a program cannot be watched");
    }
    ::ResumeThread(thread.Get());
    DWORD message = 0;
    ULONG_PTR key = 0;
    OVERLAPPED* ignored = nullptr;
    while (message != JOB_OBJECT_MSG_ACTIVE_PROCESS_ZERO)
    {
        if (!::GetQueuedCompletionStatus(port.Get(), &message, &key, &ignored, kLimitMs))
        {
            ::TerminateJobObject(job.Get(), 98);
            throw std::runtime_error("a program does not end");
        }
    }
    DWORD exitCode = 0;
    ::GetExitCodeProcess(handle.Get(), &exitCode);
    return exitCode;
}

/// The machine's software keys, of Microsoft's those of Windows only: below the others there are
/// some that are no keys but a way to read performance data.
RegistryTree SnapshotSoftware()
{
    RegistryTree software;
    const auto add = [&](const std::wstring& path) {
        for (auto& [key, values] : SnapshotRegistry(HKEY_LOCAL_MACHINE, path))
        {
            software.emplace(path + L'\\' + key, std::move(values));
        }
    };
    CRegKeyW parent;
    REQUIRE(parent.Open(HKEY_LOCAL_MACHINE, L"Software", KEY_READ) == ERROR_SUCCESS);
    std::array<wchar_t, 256> name{};
    for (DWORD index = 0; ::RegEnumKeyW(parent.GetKey(), index, name.data(), 256) == ERROR_SUCCESS;
         ++index)
    {
        if (::lstrcmpiW(name.data(), L"Microsoft") != 0)
        {
            add(std::wstring(L"Software\\") + name.data());
        }
    }
    add(L"Software\\Microsoft\\Windows");
    return software;
}

/// The user's keys, without those that Wine writes for itself: its own, and the looks of a console
/// when the first one is made.
RegistryTree SnapshotUser()
{
    RegistryTree user = SnapshotRegistry(HKEY_CURRENT_USER);
    std::erase_if(user, [](const auto& entry) {
        return entry.first.starts_with(L"Software\\Wine\\") || entry.first == L"Console";
    });
    return user;
}

/// What an installation may change.
struct Machine
{
    RegistryTree machine = SnapshotSoftware();
    RegistryTree user = SnapshotUser();

    std::string Since(const Machine& before) const
    {
        return RegistryDifference(before.machine, machine) + RegistryDifference(before.user, user);
    }
};

/// The registry before an installation. A fresh user has no classes or programs of his own under
/// Wine; on Windows every user has the keys for them.
Machine Before()
{
    for (const wchar_t* path :
         {L"Software\\Classes", L"Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall"})
    {
        CRegKeyW key;
        REQUIRE(key.Create(HKEY_CURRENT_USER, path) == ERROR_SUCCESS);
    }
    return {};
}

std::wstring Value(HKEY root, const wchar_t* key, const wchar_t* name)
{
    std::array<wchar_t, 1024> text{};
    DWORD size = sizeof(text);
    return ::RegGetValueW(root, key, name, RRF_RT_REG_SZ, nullptr, text.data(), &size) ==
                   ERROR_SUCCESS
               ? std::wstring(text.data())
               : std::wstring();
}

std::wstring KnownFolder(int id)
{
    std::array<wchar_t, MAX_PATH> path{};
    REQUIRE(::SHGetFolderPathW(nullptr, id, nullptr, 0, path.data()) == S_OK);
    return path.data();
}

/// Where an installation goes by itself, how one asks for it, and the root of its entries.
struct Scope
{
    const char* name;
    const wchar_t* argument;
    std::wstring folder;
    HKEY root;
    HKEY otherRoot;
};

Scope AllUsers()
{
    return {"all users", L" /AllUsers", KnownFolder(CSIDL_PROGRAM_FILES) + L"\\VeltHTTPClient",
            HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER};
}

Scope CurrentUser()
{
    return {"the current user", L" /CurrentUser",
            KnownFolder(CSIDL_LOCAL_APPDATA) + L"\\Programs\\VeltHTTPClient", HKEY_CURRENT_USER,
            HKEY_LOCAL_MACHINE};
}

DWORD Install(const std::wstring& arguments)
{
    return RunToItsEnd(L"\"" VELT_SETUP L"\" /S" + arguments);
}

DWORD Uninstall(const std::wstring& folder)
{
    return RunToItsEnd(L"\"" + folder + L"\\Uninstall.exe\" /S");
}

/// The files below a folder, by their paths relative to it.
std::set<std::wstring> FilesBelow(const std::filesystem::path& folder)
{
    std::set<std::wstring> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder))
    {
        if (entry.is_regular_file())
        {
            files.insert(entry.path().lexically_relative(folder).wstring());
        }
    }
    return files;
}

void CheckInstalled(const Scope& scope)
{
    const std::wstring library = scope.folder + L'\\' + kLibrary;
    CHECK((Value(scope.root, kProductKey, L"InstallLocation") == scope.folder));
    CHECK((Value(scope.root, kProductKey, L"QuietUninstallString") ==
           L"\"" + scope.folder + L"\\Uninstall.exe\" /S"));
    CHECK(Value(scope.otherRoot, kProductKey, L"InstallLocation").empty());
    CHECK((Value(scope.root, kServerKey, nullptr) == library));
    CHECK(Value(scope.otherRoot, kServerKey, nullptr).empty());

    // The same files as the build's own, and no more than what goes with them.
    const auto installed = FilesBelow(scope.folder);
    for (const auto& file : FilesBelow(velt::test::ShippedFile(L"")))
    {
        INFO(velt::Utf8FromWide(file));
        CHECK(installed.contains(file));
    }
    CHECK(installed.contains(L"Uninstall.exe"));
    CHECK(installed.contains(L"README.md"));
    CHECK(installed.contains(L"docs\\host-guide.md"));
    CHECK(installed.contains(L"samples\\collection_host.cpp"));
}

/// A registered class, by its ProgID. In the multithreaded apartment, which its threading model
/// asks for: so the library is gone when this returns, and its file can be deleted.
void CheckServiceWorks(const Scope& scope)
{
    REQUIRE(SUCCEEDED(::CoInitializeEx(nullptr, COINIT_MULTITHREADED)));
    {
        // Wine looks among the machine's classes only.
        CLSID clsid{};
        const HRESULT known = ::CLSIDFromProgID(L"VeltHTTPClient.VeltHTTPService12OEM", &clsid);
        CHECK((known == S_OK || scope.root == HKEY_CURRENT_USER));
        ComPtr<IVeltHTTPService> service;
        const HRESULT made = ::CoCreateInstance(CLSID_CVeltHTTPService, nullptr,
                                                CLSCTX_INPROC_SERVER, IID_PPV_ARGS(&service));
        CHECK((made == S_OK || (scope.root == HKEY_CURRENT_USER && made == REGDB_E_CLASSNOTREG)));
        if (service)
        {
            VARIANT_BOOL connected = VARIANT_TRUE;
            CHECK(service->get_IsConnected(&connected) == S_OK);
            CHECK(connected == VARIANT_FALSE);
        }
    }
    ::CoUninitialize();
}

/// The component as it is installed: by its ProgID where COM finds it, and loaded from the folder.
void CheckWorks(const Scope& scope)
{
    CheckServiceWorks(scope);
    const ComApartment apartment;
    // By design registration does not make the collection creatable: its manifest does.
    ACTCTXW description{};
    description.cbSize = sizeof(description);
    const std::wstring manifest = scope.folder + L"\\VeltHTTPClient12OEM.Assembly.manifest";
    description.lpSource = manifest.c_str();
    const HANDLE context = ::CreateActCtxW(&description);
    REQUIRE(context != INVALID_HANDLE_VALUE);
    ULONG_PTR cookie = 0;
    REQUIRE(::ActivateActCtx(context, &cookie));
    {
        CLSID clsid{};
        CHECK(::CLSIDFromProgID(L"VeltHTTPClient.EnumVariantCol12OEM", &clsid) == S_OK);
        ComPtr<IEnumVariantCol> collection;
        REQUIRE(::CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER,
                                   IID_PPV_ARGS(&collection)) == S_OK);
        LONG count = -1;
        CHECK(collection->get_Count(&count) == S_OK);
        CHECK(count == 0);
        std::array<wchar_t, MAX_PATH> loaded{};
        ::GetModuleFileNameW(::GetModuleHandleW(kLibrary), loaded.data(), MAX_PATH);
        CHECK(::lstrcmpiW(loaded.data(), (scope.folder + L'\\' + kLibrary).c_str()) == 0);
    }
    ::DeactivateActCtx(0, cookie);
    ::ReleaseActCtx(context);

    // The type library is found by its registration; a user's one only where the system looks for
    // it among the user's classes, as Wine does not.
    CHECK((Value(scope.root, kTypeLibraryKey, nullptr) == scope.folder + L'\\' + kLibrary));
    CHECK(Value(scope.otherRoot, kTypeLibraryKey, nullptr).empty());
    ComPtr<ITypeLib> library;
    const HRESULT hr = ::LoadRegTypeLib(LIBID_ProviderLib, 1, 0, 0, &library);
    CHECK((hr == S_OK || (scope.root == HKEY_CURRENT_USER && hr == TYPE_E_LIBNOTREGISTERED)));
}
} // namespace

TEST_CASE("The installer: puts the component there, and the uninstaller leaves nothing",
          "[installer]")
{
    const Scope scope = GENERATE(0, 1) == 0 ? AllUsers() : CurrentUser();
    INFO(scope.name);
    const Machine before = Before();
    REQUIRE(Install(scope.argument) == 0);
    CheckInstalled(scope);
    CheckWorks(scope);

    SECTION("at once") {}
    SECTION("after an upgrade of a damaged installation")
    {
        std::filesystem::remove(scope.folder + L'\\' + kLibrary);
        std::ofstream(std::filesystem::path(scope.folder) / L"README.md") << "changed";
        ::RegDeleteTreeW(scope.root, L"Software\\Classes\\VeltHTTPClient.EnumVariantCol12OEM");
        REQUIRE(Install(scope.argument) == 0);
        CheckInstalled(scope);
        CheckWorks(scope);
    }
    CHECK(Uninstall(scope.folder) == 0);
    CHECK_FALSE(std::filesystem::exists(scope.folder));
    CHECK(Machine().Since(before) == "");
}

TEST_CASE("The installer: an upgrade in place takes the earlier version's files away",
          "[installer]")
{
    const Scope scope = GENERATE(0, 1) == 0 ? AllUsers() : CurrentUser();
    INFO(scope.name);
    const Machine before = Before();
    REQUIRE(RunToItsEnd(L"\"" VELT_EARLIER_SETUP L"\" /S" + std::wstring(scope.argument)) == 0);
    CHECK((Value(scope.root, kProductKey, L"DisplayVersion") == L"11.9.0.0"));
    const std::filesystem::path folder = scope.folder;
    CHECK(std::filesystem::exists(folder / L"withdrawn" / L"withdrawn.txt"));

    REQUIRE(Install(scope.argument) == 0);
    CHECK((Value(scope.root, kProductKey, L"DisplayVersion") == VELT_VERSION));
    CHECK_FALSE(std::filesystem::exists(folder / L"withdrawn"));
    CheckInstalled(scope);
    CheckWorks(scope);
    CHECK(Uninstall(scope.folder) == 0);
    CHECK(Machine().Since(before) == "");
}

TEST_CASE("The installer: takes a folder of one's own, and moves to another one", "[installer]")
{
    const Machine before = Before();
    Scope scope = CurrentUser();
    const std::wstring first = KnownFolder(CSIDL_LOCAL_APPDATA) + L"\\Velt \u00E4 first";
    const std::wstring second = KnownFolder(CSIDL_LOCAL_APPDATA) + L"\\Velt second";
    scope.folder = first;
    REQUIRE(Install(scope.argument + (L" /D=" + first)) == 0);
    CheckInstalled(scope);
    CheckWorks(scope);

    scope.folder = second;
    REQUIRE(Install(scope.argument + (L" /D=" + second)) == 0);
    CheckInstalled(scope);
    CHECK_FALSE(std::filesystem::exists(first));

    // Without a folder on the command line, the one in use is used again.
    REQUIRE(Install(scope.argument) == 0);
    CheckInstalled(scope);
    CHECK(Uninstall(second) == 0);
    CHECK_FALSE(std::filesystem::exists(second));
    CHECK(Machine().Since(before) == "");
}

TEST_CASE("The installer: takes everything back when a file cannot be written", "[installer]")
{
    const Machine before = Before();
    const Scope scope = CurrentUser();
    const std::filesystem::path folder = scope.folder;
    std::filesystem::create_directories(folder / L"README.md"); // a folder where the file goes
    CHECK(Install(scope.argument) == kNotCompleted);
    CHECK(FilesBelow(folder).empty());
    CHECK(Machine().Since(before) == "");
    std::filesystem::remove_all(folder);
}

TEST_CASE("The installer: says that the component could not be registered", "[installer]")
{
    // The first key that the component writes to, with something of somebody else's in it.
    constexpr wchar_t kRefused[] = L"Software\\Classes\\AppID";
    REQUIRE(::RegSetKeyValueW(HKEY_CURRENT_USER, kRefused, L"kept", REG_SZ, L"x", 4) ==
            ERROR_SUCCESS);
    const Machine before = Before();
    const Scope scope = CurrentUser();
    {
        const velt::test::DeniedKey denied(HKEY_CURRENT_USER, kRefused);
        CHECK(Install(scope.argument) == kNotRegistered);
    }
    CHECK(std::filesystem::exists(scope.folder + L'\\' + kLibrary));
    CHECK(Value(HKEY_CURRENT_USER, kServerKey, nullptr).empty());
    CHECK((Value(HKEY_CURRENT_USER, kProductKey, L"InstallLocation") == scope.folder));

    CHECK(Uninstall(scope.folder) == 0);
    CHECK_FALSE(std::filesystem::exists(scope.folder));
    CHECK(Machine().Since(before) == "");
    ::RegDeleteTreeW(HKEY_CURRENT_USER, kRefused);
}

TEST_CASE("The uninstaller: removes the files also when it cannot take the registration back",
          "[installer]")
{
    const Machine before = Before();
    const Scope scope = AllUsers();
    REQUIRE(Install(scope.argument) == 0);
    std::filesystem::remove(scope.folder + L"\\velt.exe");
    CHECK(Uninstall(scope.folder) ==
          0); // the answer of the part that goes on in a copy is not seen
    CHECK_FALSE(std::filesystem::exists(scope.folder));
    CHECK((Value(HKEY_LOCAL_MACHINE, kServerKey, nullptr) == scope.folder + L'\\' + kLibrary));

    // Installing once more mends it.
    REQUIRE(Install(scope.argument) == 0);
    CHECK(Uninstall(scope.folder) == 0);
    CHECK(Machine().Since(before) == "");
}

TEST_CASE("The uninstaller: leaves what others put there", "[installer]")
{
    const Machine before = Before();
    const Scope scope = AllUsers();
    REQUIRE(Install(scope.argument) == 0);
    const std::filesystem::path note =
        std::filesystem::path(scope.folder) / L"samples" / L"mine.js";
    std::ofstream(note) << "// somebody else's";
    constexpr wchar_t kForeign[] =
        L"Software\\Classes\\CLSID\\{E9F9957F-AE23-4BBC-A97D-9815EA6E4C83}\\Foreign";
    REQUIRE(::RegSetKeyValueW(HKEY_LOCAL_MACHINE, kForeign, L"kept", REG_SZ, L"x", 4) ==
            ERROR_SUCCESS);

    CHECK(Uninstall(scope.folder) == 0);
    CHECK((FilesBelow(scope.folder) == std::set<std::wstring>{L"samples\\mine.js"}));
    CHECK((Value(HKEY_LOCAL_MACHINE, kForeign, L"kept") == L"x"));
    CHECK(Value(HKEY_LOCAL_MACHINE, kServerKey, nullptr).empty());

    std::filesystem::remove_all(scope.folder);
    ::RegDeleteTreeW(HKEY_LOCAL_MACHINE,
                     L"Software\\Classes\\CLSID\\{E9F9957F-AE23-4BBC-A97D-9815EA6E4C83}");
    CHECK(Machine().Since(before) == "");
}

TEST_CASE("The uninstaller: leaves the registration of another copy", "[installer]")
{
    const Machine before = Before();
    const Scope scope = AllUsers();
    REQUIRE(Install(scope.argument) == 0);
    {
        const velt::test::ComponentLibrary other; // the build's own
        REQUIRE(other.RegisterServer() == S_OK);
    }
    CHECK(Uninstall(scope.folder) == 0);
    CHECK_FALSE(std::filesystem::exists(scope.folder));
    CHECK((Value(HKEY_LOCAL_MACHINE, kServerKey, nullptr) == velt::test::ShippedFile(kLibrary)));

    // Installed over it and removed again, nothing is left of either.
    REQUIRE(Install(scope.argument) == 0);
    CHECK(Uninstall(scope.folder) == 0);
    CHECK(Machine().Since(before) == "");
}

TEST_CASE("The installer: for all users and for one, beside each other", "[installer]")
{
    const Machine before = Before();
    const Scope all = AllUsers();
    const Scope user = CurrentUser();
    REQUIRE(Install(all.argument) == 0);
    REQUIRE(Install(user.argument) == 0);
    CHECK((Value(HKEY_LOCAL_MACHINE, kProductKey, L"InstallLocation") == all.folder));
    CHECK((Value(HKEY_CURRENT_USER, kProductKey, L"InstallLocation") == user.folder));
    CHECK((Value(HKEY_LOCAL_MACHINE, kServerKey, nullptr) == all.folder + L'\\' + kLibrary));
    CHECK((Value(HKEY_CURRENT_USER, kServerKey, nullptr) == user.folder + L'\\' + kLibrary));
    CHECK(Uninstall(user.folder) == 0);
    CHECK((Value(HKEY_LOCAL_MACHINE, kServerKey, nullptr) == all.folder + L'\\' + kLibrary));
    CHECK(Uninstall(all.folder) == 0);
    CHECK(Machine().Since(before) == "");
}
