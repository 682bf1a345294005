#include "tests/installer/installation.h"

#include "foundation/reg_key.h"
#include "foundation/wide_text.h"
#include "tests/support/activation_context.h"
#include "tests/support/child_process.h"
#include "tests/support/com_apartment.h"
#include "tests/support/component_library.h"
#include "tests/support/registry_views.h"

#include <provider_lib.h>

#include <objbase.h>
#include <shlobj.h>
#include <wrl/client.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <utility>

#include <catch.hpp>

using Microsoft::WRL::ComPtr;

namespace velt::test
{
namespace
{
constexpr DWORD kLimitMs = 120'000;
constexpr wchar_t kProgramList[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall";
constexpr wchar_t kOwnKey[] = L"Software\\Velt\\VeltHTTPClient";
constexpr wchar_t kMenuEntry[] = L"Velt trace viewer";

/// Where the packages write: below the software of the machine, and below its classes. Each has a
/// view for 32-bit programs.
constexpr const wchar_t* kSoftware[] = {L"software\\", L"software\\wow6432node\\"};
constexpr const wchar_t* kOurSoftware[] = {L"velt",
                                           L"microsoft\\windows\\currentversion\\installer",
                                           L"microsoft\\windows\\currentversion\\uninstall"};
constexpr const wchar_t* kClasses[] = {L"software\\classes\\", L"software\\classes\\wow6432node\\",
                                       L"software\\wow6432node\\classes\\"};
constexpr const wchar_t* kOurClasses[] = {L"appid",
                                          L"typelib",
                                          L"installer",
                                          L"velthttpclient.enumvariantcol12oem",
                                          L"velthttpclient.enumvariantcol12oem.2",
                                          L"velthttpclient.velthttpservice12oem",
                                          L"velthttpclient.velthttpservice12oem.2",
                                          L"velthttpclientx.velteuladlg12oem",
                                          L"velthttpclientx.velteuladlg12oem.1",
                                          L"clsid\\{5a6b579b-3c37-4a16-a3a5-f6c72fa15c40}",
                                          L"clsid\\{e9f9957f-ae23-4bbc-a97d-9815ea6e4c83}",
                                          L"clsid\\{{344e0dac-547c-47b5-a1a0-ff9a9c193352}}",
                                          L"interface\\{e80beae1-d86e-4ef7-9780-53657bff68c6}",
                                          L"interface\\{3f5fb31d-9a73-4c69-bc12-5544993222aa}",
                                          L"interface\\{bb98678d-21e9-478c-9103-b163ffe269e5}",
                                          L"interface\\{7ccec608-9bbd-42ac-bd9c-dd84955b61ff}"};

std::vector<std::wstring> OurPaths()
{
    std::vector<std::wstring> paths;
    for (const wchar_t* software : kSoftware)
    {
        for (const wchar_t* path : kOurSoftware)
        {
            paths.push_back(std::wstring(software) + path);
        }
    }
    for (const wchar_t* classes : kClasses)
    {
        for (const wchar_t* path : kOurClasses)
        {
            paths.push_back(std::wstring(classes) + path);
        }
    }
    return paths;
}

RegistryTree InSmallLetters(RegistryTree tree)
{
    RegistryTree small;
    for (auto& [key, values] : tree)
    {
        std::wstring name = key;
        ::CharLowerW(name.data());
        small.emplace(std::move(name), std::move(values));
    }
    return small;
}

RegistryTree SnapshotOurs()
{
    RegistryTree ours;
    for (const std::wstring& path : OurPaths())
    {
        for (auto& [key, values] : SnapshotRegistry(HKEY_LOCAL_MACHINE, path))
        {
            ours.emplace(key.empty() ? path : path + L'\\' + key, std::move(values));
        }
    }
    return ours;
}

/// Whether a key, in small letters, is one of those that SnapshotOurs looks at.
bool IsOurs(const std::wstring& key)
{
    static const std::vector<std::wstring> paths = OurPaths();
    return std::ranges::any_of(paths, [&](const std::wstring& path) {
        return key == path || key.starts_with(path + L'\\');
    });
}

/// Whether a key is one of those that the system's installer makes for itself, and is empty.
bool IsInstallersOwn(const RegistryTree::value_type& entry)
{
    static const std::wregex own(L".*\\\\installer(\\\\(features|products|upgradecodes|folders|"
                                 L"userdata(\\\\s-[-0-9]+(\\\\(components|products))?)?))?");
    return entry.second.empty() && std::regex_match(entry.first, own);
}

/// Adds the keys below one of the machine's that has software, of Microsoft's those of Windows
/// only: below the others there are some that are no keys but a way to read performance data. What
/// 32-bit programs have of 64-bit Windows is another such key.
void AddSoftware(const std::wstring& parentPath, RegistryTree& software)
{
    const auto add = [&](const std::wstring& path) {
        for (auto& [key, values] : SnapshotRegistry(HKEY_LOCAL_MACHINE, path))
        {
            software.emplace(path + L'\\' + key, std::move(values));
        }
    };
    CRegKeyW parent;
    REQUIRE(parent.Open(HKEY_LOCAL_MACHINE, parentPath.c_str(), KEY_READ) == ERROR_SUCCESS);
    std::array<wchar_t, 256> name{};
    for (DWORD index = 0; ::RegEnumKeyW(parent.GetKey(), index, name.data(), 256) == ERROR_SUCCESS;
         ++index)
    {
        const std::wstring path = parentPath + L'\\' + name.data();
        if (::lstrcmpiW(name.data(), L"Wow6432Node") == 0)
        {
            AddSoftware(path, software);
        }
        else if (::lstrcmpiW(name.data(), L"Microsoft") != 0)
        {
            add(path);
        }
    }
    add(parentPath + L"\\Microsoft\\Windows");
}

/// The user's keys, without those that Wine writes for itself: its own, and the looks of a console
/// when the first one is made. A fresh user has no classes or programs of his own under Wine; on
/// Windows every user has the keys for them.
RegistryTree SnapshotUser()
{
    for (const wchar_t* path : {L"Software\\Classes", kProgramList})
    {
        CRegKeyW key;
        REQUIRE(key.Create(HKEY_CURRENT_USER, path) == ERROR_SUCCESS);
    }
    RegistryTree user = SnapshotRegistry(HKEY_CURRENT_USER);
    std::erase_if(user, [](const auto& entry) {
        return entry.first.starts_with(L"Software\\Wine\\") || entry.first == L"Console";
    });
    return user;
}

/// Runs a program until it and all that it started have ended.
DWORD RunProgram(std::wstring commandLine)
{
    // Where the first window of a session starts the desktop's own process, it is not to be one
    // that the program started.
    ::GetWindowThreadProcessId(::GetDesktopWindow(), nullptr);
    const UniqueKernelObject job(::CreateJobObjectW(nullptr, nullptr));
    const UniqueKernelObject port(::CreateIoCompletionPort(INVALID_HANDLE_VALUE, nullptr, 0, 1));
    JOBOBJECT_ASSOCIATE_COMPLETION_PORT association{job.Get(), port.Get()};
    const auto [handle, thread, id] = StartProcess(std::move(commandLine), CREATE_SUSPENDED);
    if (!::SetInformationJobObject(job.Get(), JobObjectAssociateCompletionPortInformation,
                                   &association, sizeof(association)) ||
        !::AssignProcessToJobObject(job.Get(), handle.Get()))
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

/// Runs a script in the script host for 32-bit programs; what it quits with.
DWORD RunScript(const char* text)
{
    const auto script = std::filesystem::temp_directory_path() / L"velt script.js";
    std::ofstream(script) << text;
    const DWORD exitCode = RunProgram(L'"' + KnownFolder(CSIDL_SYSTEMX86) +
                                      L"\\cscript.exe\" //nologo \"" + script.wstring() + L'"');
    std::filesystem::remove(script);
    return exitCode;
}

const Machine& MachineBefore()
{
    static const Machine before = [] {
        RunScript(""); // its host may enter a type library of its own, the first time
        return Machine(Extent::everything);
    }();
    return before;
}

bool IsInMenu(const Package& package, const Scope& scope)
{
    const int menu = scope.root == HKEY_LOCAL_MACHINE ? CSIDL_COMMON_PROGRAMS : CSIDL_PROGRAMS;
    std::wstring name = kMenuEntry;
    if (&package == &PackageOf32BitWindows())
    {
        name += L" (32-bit)";
    }
    // Wine puts what is for all users among the user's own entries.
    return std::filesystem::exists(KnownFolder(menu) + L'\\' + name + L".lnk") ||
           std::filesystem::exists(KnownFolder(CSIDL_PROGRAMS) + L'\\' + name + L".lnk");
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

/// The same class from a script, in the script host of the other kind of programs. Some systems
/// look for its ProgID among the machine's classes only.
void CheckScriptWorks(const Scope& scope)
{
    if (scope.root == HKEY_LOCAL_MACHINE)
    {
        CHECK(RunScript("WScript.Quit(new ActiveXObject("
                        "'VeltHTTPClient.VeltHTTPService12OEM').IsConnected ? 3 : 7);") == 7);
    }
}

/// By design registration does not make the collection creatable: its manifest does.
void CheckCollectionWorks(const std::wstring& folder)
{
    const ComApartment apartment;
    const ActivationContext context(folder + L"\\VeltHTTPClient12OEM.Assembly.manifest");
    CLSID clsid{};
    CHECK(::CLSIDFromProgID(L"VeltHTTPClient.EnumVariantCol12OEM", &clsid) == S_OK);
    ComPtr<IEnumVariantCol> collection;
    REQUIRE(::CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(&collection)) ==
            S_OK);
    LONG count = -1;
    CHECK(collection->get_Count(&count) == S_OK);
    CHECK(count == 0);
    std::array<wchar_t, MAX_PATH> loaded{};
    ::GetModuleFileNameW(::GetModuleHandleW(kLibrary), loaded.data(), MAX_PATH);
    CHECK(::lstrcmpiW(loaded.data(), (folder + L'\\' + kLibrary).c_str()) == 0);
}
/// A file's text as far as its letters are those of ASCII, whatever they are encoded in.
std::string AsciiText(const std::filesystem::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    std::string ascii = text.str();
    std::erase(ascii, '\0');
    return ascii;
}

} // namespace

std::wstring Package::File(bool earlier) const
{
    return std::wstring(VELT_PACKAGES L"\\") + (earlier ? L"earlier\\" : L"") + L"VeltHTTPClient-" +
           (earlier ? L"11.9.0.0" : VELT_VERSION) + L'-' + kind + L".msi";
}

const Package& PackageOf32BitWindows()
{
    static const Package package = {L"x86", L"VeltHTTPClient (32-bit)", {k32BitEdition}};
    return package;
}

const Package& PackageOf64BitWindows()
{
    static const Package package = {L"x64", L"VeltHTTPClient", {k32BitEdition, k64BitEdition}};
    return package;
}

const Package& OwnPackage()
{
    return kIs64Bit ? PackageOf64BitWindows() : PackageOf32BitWindows();
}

std::wstring KnownFolder(int id)
{
    std::array<wchar_t, MAX_PATH> path{};
    REQUIRE(::SHGetFolderPathW(nullptr, id, nullptr, 0, path.data()) == S_OK);
    return path.data();
}

DWORD RunToItsEnd(std::wstring commandLine)
{
    MachineBefore();
    return RunProgram(std::move(commandLine));
}

DWORD RunInstaller(const std::wstring& action, const std::wstring& package,
                   const std::wstring& arguments)
{
    return RunToItsEnd(L"msiexec " + action + L" \"" + package + L"\" /qn " + arguments);
}

DWORD Install(const Package& package, const Scope& scope, const std::wstring& arguments)
{
    return RunInstaller(L"/i", package.File(), arguments + scope.arguments);
}

DWORD InstallEarlier(const Package& package, const Scope& scope, const std::wstring& arguments)
{
    return RunInstaller(L"/i", package.File(true), arguments + scope.arguments);
}

DWORD Remove(const Package& package, const Scope& scope)
{
    return RunInstaller(L"/x", package.File(), scope.arguments);
}

DWORD Repair(const Package& package, const Scope& scope)
{
    // What "/famus" is short for, which Wine does not know.
    return Install(package, scope, L"REINSTALL=ALL REINSTALLMODE=amus");
}

std::wstring InstalledFolder(const Scope& scope)
{
    std::wstring key = kOwnKey;
    if (scope.root == HKEY_CURRENT_USER)
    {
        key += L"\\PerUser1";
    }
    const std::wstring folder = Value(scope.root, key, L"InstallDir", KEY_WOW64_64KEY);
    return folder.empty() ? Value(scope.root, key, L"InstallDir", KEY_WOW64_32KEY) : folder;
}

Machine::Machine(Extent extent) : user(InSmallLetters(SnapshotUser()))
{
    if (extent == Extent::everything)
    {
        AddSoftware(L"Software", machine);
    }
    else
    {
        machine = SnapshotOurs();
    }
    machine = InSmallLetters(std::move(machine));
    std::erase_if(machine, IsInstallersOwn);
    std::erase_if(user, IsInstallersOwn);
    for (const int id : {CSIDL_PROGRAM_FILES, CSIDL_PROGRAM_FILESX86, CSIDL_COMMON_PROGRAMS,
                         CSIDL_PROGRAMS, CSIDL_LOCAL_APPDATA})
    {
        std::array<wchar_t, MAX_PATH> path{};
        if (::SHGetFolderPathW(nullptr, id, nullptr, 0, path.data()) == S_OK)
        {
            files.merge(FilesBelow(path.data()));
        }
    }
    files.merge(FilesBelow(KnownFolder(CSIDL_WINDOWS) + L"\\Installer"));
}

std::string ChangesOfTheMachine(Extent extent)
{
    const Machine now(extent);
    RegistryTree before = MachineBefore().machine;
    if (extent == Extent::ours)
    {
        std::erase_if(before, [](const auto& entry) { return !IsOurs(entry.first); });
    }
    std::string changes = RegistryDifference(before, now.machine) +
                          RegistryDifference(MachineBefore().user, now.user);
    for (const auto& file : now.files)
    {
        if (!MachineBefore().files.contains(file))
        {
            changes += "+ " + Utf8FromWide(file) + '\n';
        }
    }
    for (const auto& file : MachineBefore().files)
    {
        if (!now.files.contains(file))
        {
            changes += "- " + Utf8FromWide(file) + '\n';
        }
    }
    return changes;
}

std::wstring Value(HKEY root, const std::wstring& key, const wchar_t* name, REGSAM view)
{
    CRegKeyW opened;
    std::array<wchar_t, 1024> text{};
    DWORD size = sizeof(text);
    if (opened.Open(root, key.c_str(), KEY_READ | view) != ERROR_SUCCESS ||
        ::RegGetValueW(opened.GetKey(), nullptr, name, RRF_RT_REG_SZ, nullptr, text.data(),
                       &size) != ERROR_SUCCESS)
    {
        return {};
    }
    return text.data();
}

std::wstring RegisteredLibrary(HKEY root, const InstalledEdition& edition)
{
    return Value(
        root, L"Software\\Classes\\CLSID\\{5A6B579B-3C37-4A16-A3A5-F6C72FA15C40}\\InprocServer32",
        nullptr, edition.view);
}

std::wstring ListedValue(const Package& package, const wchar_t* name)
{
    for (const HKEY root : {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER})
    {
        const REGSAM view = package.editions.back().view;
        CRegKeyW list;
        if (list.Open(root, kProgramList, KEY_READ | view) != ERROR_SUCCESS)
        {
            continue;
        }
        std::array<wchar_t, 256> key{};
        for (DWORD index = 0; ::RegEnumKeyW(list.GetKey(), index, key.data(), 256) == ERROR_SUCCESS;
             ++index)
        {
            const std::wstring path = std::wstring(kProgramList) + L'\\' + key.data();
            if (Value(root, path, L"DisplayName", view) == package.productName)
            {
                return Value(root, path, name, view);
            }
        }
    }
    return {};
}

std::set<std::wstring> FilesBelow(const std::filesystem::path& folder)
{
    std::set<std::wstring> files;
    if (!std::filesystem::exists(folder))
    {
        return files;
    }
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder))
    {
        if (entry.is_regular_file())
        {
            files.insert(entry.path().lexically_relative(folder).wstring());
        }
    }
    return files;
}

void CheckRuntime(const Package& package, const Scope& scope)
{
    const std::wstring folder = InstalledFolder(scope);
    REQUIRE(!folder.empty());
    for (const InstalledEdition& edition : package.editions)
    {
        const std::wstring library = folder + edition.folder + L'\\' + kLibrary;
        CHECK(std::filesystem::exists(library));
        CHECK(std::filesystem::exists(folder + edition.folder +
                                      L"\\VeltHTTPClient12OEM.Assembly.manifest"));
        if (scope.root == HKEY_LOCAL_MACHINE || package.editions.size() == 1 || HasUserViews())
        {
            CHECK((RegisteredLibrary(scope.root, edition) == library));
        }
        CHECK(RegisteredLibrary(scope.otherRoot, edition).empty());
        CHECK((Value(scope.root,
                     std::wstring(L"Software\\Classes\\TypeLib\\"
                                  L"{AB6A43CE-5CEE-40EE-9AD0-A7AA608DBB6C}\\1.0\\0\\") +
                         edition.system,
                     nullptr) == library));
    }
    CHECK(std::filesystem::exists(folder + L"LICENSE.md"));
    CHECK(std::filesystem::exists(folder + L"NOTICES.md"));
    CHECK((ListedValue(package, L"DisplayVersion") == L"12.0.0"));
    CHECK((ListedValue(package, L"Publisher") == L"Velt"));
    CHECK(ListedValue(package, L"HelpLink").starts_with(L"https://"));
    CHECK(ListedValue(package, L"URLInfoAbout").starts_with(L"https://"));
}

void CheckTools(const Package& package, const Scope& scope, bool installed)
{
    for (const InstalledEdition& edition : package.editions)
    {
        for (const wchar_t* program : {kTool, kViewer})
        {
            CHECK(std::filesystem::exists(InstalledFolder(scope) + edition.folder + L'\\' +
                                          program) == installed);
        }
    }
    CHECK(IsInMenu(package, scope) == installed);
}

void CheckDeveloper(const Scope& scope, bool installed)
{
    for (const wchar_t* file :
         {L"README.md", L"CHANGELOG.md", L"docs\\host-guide.md", L"include\\provider_lib.h",
          L"idl\\provider_lib.idl", L"cmake\\VeltHTTPClientConfig.cmake",
          L"samples\\collection_host.cpp", L"samples\\update_agent\\sample_agent.exe"})
    {
        INFO(Utf8FromWide(file));
        CHECK(std::filesystem::exists(InstalledFolder(scope) + file) == installed);
    }
}

void CheckWorks(const Package& package, const Scope& scope)
{
    const std::wstring folder = InstalledFolder(scope);
    for (const InstalledEdition& edition : package.editions)
    {
        const bool own = edition.view == (kIs64Bit ? KEY_WOW64_64KEY : KEY_WOW64_32KEY);
        if (own)
        {
            CheckServiceWorks(scope);
            CheckCollectionWorks(folder + edition.folder);
        }
        else if (std::filesystem::exists(folder + edition.folder + L"\\velt.exe"))
        {
            CheckScriptWorks(scope);
            CHECK(RunToItsEnd(L'"' + folder + edition.folder + L"\\velt.exe\" status") == 0);
        }
    }
    ComPtr<ITypeLib> library;
    const HRESULT hr = ::LoadRegTypeLib(LIBID_ProviderLib, 1, 0, 0, &library);
    CHECK((hr == S_OK || (scope.root == HKEY_CURRENT_USER && hr == TYPE_E_LIBNOTREGISTERED)));
}

void CheckRefused(const Package& package, bool earlier, const std::string& text)
{
    const auto log = std::filesystem::temp_directory_path() / L"velt refused.txt";
    CHECK(RunInstaller(L"/i", package.File(earlier), L"/l* \"" + log.wstring() + L'"') == kFailed);
    if (AsciiText(log).find(text) == std::string::npos)
    {
        WARN("the installer does not log why: " << text);
    }
    std::filesystem::remove(log);
}
} // namespace velt::test
