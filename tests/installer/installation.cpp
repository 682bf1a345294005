#include "tests/installer/installation.h"

#include "foundation/reg_key.h"
#include "foundation/wide_text.h"
#include "tests/support/activation_context.h"
#include "tests/support/com_apartment.h"
#include "tests/support/component_library.h"
#include "tests/support/registry_views.h"
#include "tests/support/viewer_process.h"

#include <provider_lib.h>

#include <objbase.h>
#include <shlobj.h>
#include <wrl/client.h>

#include <array>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <utility>

#include <catch.hpp>

using Microsoft::WRL::ComPtr;

namespace velt::test
{
namespace
{
constexpr DWORD kLimitMs = 60'000;

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

RegistryTree SnapshotSoftware()
{
    RegistryTree software;
    AddSoftware(L"Software", software);
    return software;
}

/// The user's keys, without those that Wine writes for itself: its own, and the looks of a console
/// when the first one is made. A fresh user has no classes or programs of his own under Wine; on
/// Windows every user has the keys for them.
RegistryTree SnapshotUser()
{
    for (const wchar_t* path :
         {L"Software\\Classes", L"Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall"})
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

const Machine& MachineBefore()
{
    static const Machine before;
    return before;
}

/// What the installer says that it installed.
std::set<std::wstring> ListedFiles(const Scope& scope)
{
    std::ifstream list(std::filesystem::path(scope.File(L"Uninstall.txt")));
    std::set<std::wstring> files;
    for (std::string line; std::getline(list, line);)
    {
        files.insert(WideFromUtf8(line.substr(0, line.find('\r'))));
    }
    return files;
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

/// By design registration does not make the collection creatable: its manifest does.
void CheckCollectionWorks(const Scope& scope)
{
    const ComApartment apartment;
    const ActivationContext context(scope.File(L"VeltHTTPClient12OEM.Assembly.manifest"));
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
    CHECK(::lstrcmpiW(loaded.data(), scope.File(kLibrary).c_str()) == 0);
}

constexpr wchar_t kForCurrentUser[] = L" /CurrentUser";

/// Installs a version silently.
DWORD RunSetup(const wchar_t* folder, const wchar_t* version, const std::wstring& arguments,
               HANDLE token, const EditionNames& edition)
{
    std::optional<StrayInterfaces> stray;
    if (arguments.starts_with(kForCurrentUser))
    {
        stray.emplace(edition.otherView);
    }
    return RunToItsEnd(std::wstring(L"\"" VELT_PACKAGES L"\\") + folder + L"VeltHTTPClient12OEM-" +
                           version + L"-" + edition.name + L"-setup.exe\" /S" + arguments,
                       token);
}

constexpr wchar_t kSessionManager[] = L"System\\CurrentControlSet\\Control\\Session Manager";
constexpr wchar_t kPending[] = L"PendingFileRenameOperations";

/// What is to be renamed at the next start: pairs of paths, each with its NUL; what is to be
/// removed has an empty second one.
std::wstring PendingText()
{
    CRegKeyW key;
    REQUIRE(key.Open(HKEY_LOCAL_MACHINE, kSessionManager, KEY_READ) == ERROR_SUCCESS);
    DWORD size = 0;
    if (::RegQueryValueExW(key.GetKey(), kPending, nullptr, nullptr, nullptr, &size) !=
        ERROR_SUCCESS)
    {
        return {};
    }
    std::wstring text(size / sizeof(wchar_t), L'\0');
    REQUIRE(::RegQueryValueExW(key.GetKey(), kPending, nullptr, nullptr,
                               reinterpret_cast<BYTE*>(text.data()), &size) == ERROR_SUCCESS);
    return text;
}
} // namespace

Scope AllUsers()
{
    return {"all users", L" /AllUsers", KnownFolder(CSIDL_PROGRAM_FILES) + L"\\" + kOwnNames.folder,
            HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER};
}

Scope CurrentUser()
{
    return {"the current user", kForCurrentUser,
            KnownFolder(CSIDL_LOCAL_APPDATA) + L"\\Programs\\" + kOwnNames.folder,
            HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE};
}

std::wstring KnownFolder(int id)
{
    std::array<wchar_t, MAX_PATH> path{};
    REQUIRE(::SHGetFolderPathW(nullptr, id, nullptr, 0, path.data()) == S_OK);
    return path.data();
}

DWORD RunToItsEnd(std::wstring commandLine, HANDLE token)
{
    MachineBefore();
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
        !::CreateProcessAsUserW(token, nullptr, commandLine.data(), nullptr, nullptr, FALSE,
                                CREATE_SUSPENDED, nullptr, nullptr, &startup, &process))
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

DWORD Install(const std::wstring& arguments, HANDLE token, const EditionNames& edition)
{
    return RunSetup(L"", VELT_VERSION, arguments, token, edition);
}

DWORD InstallEarlier(const std::wstring& arguments, const EditionNames& edition)
{
    return RunSetup(L"earlier\\", L"11.9.0.0", arguments, nullptr, edition);
}

DWORD Uninstall(const std::wstring& folder)
{
    return RunToItsEnd(L"\"" + folder + L"\\Uninstall.exe\" /S");
}

DWORD UninstallInPlace(const std::wstring& folder, HANDLE token)
{
    const std::wstring program = folder + L"\\Uninstall.exe";
    const DWORD exitCode = RunToItsEnd(L"\"" + program + L"\" /S _?=" + folder, token);
    if (exitCode != kNotAllowed)
    {
        ::DeleteFileW(program.c_str());
        ::RemoveDirectoryW(folder.c_str());
    }
    return exitCode;
}

UniqueKernelObject OrdinaryRights()
{
    UniqueKernelObject own;
    REQUIRE(::OpenProcessToken(::GetCurrentProcess(), TOKEN_ALL_ACCESS, own.Put()));
    DWORD written = 0;
    TOKEN_ELEVATION_TYPE elevation{};
    REQUIRE(::GetTokenInformation(own.Get(), TokenElevationType, &elevation, sizeof(elevation),
                                  &written));
    if (elevation == TokenElevationTypeLimited)
    {
        // Wine alone runs tests so, as an administrator: to a program that wants the highest rights
        // it gives those that belong to such a token, whatever else that one lacks.
        TOKEN_LINKED_TOKEN full{};
        REQUIRE(::GetTokenInformation(own.Get(), TokenLinkedToken, &full, sizeof(full), &written));
        const UniqueKernelObject linked(full.LinkedToken);
        own.Reset();
        REQUIRE(::DuplicateTokenEx(linked.Get(), TOKEN_ALL_ACCESS, nullptr, SecurityImpersonation,
                                   TokenPrimary, own.Put()));
    }
    std::array<BYTE, SECURITY_MAX_SID_SIZE> administrators{};
    DWORD size = SECURITY_MAX_SID_SIZE;
    REQUIRE(
        ::CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, administrators.data(), &size));
    SID_AND_ATTRIBUTES disabled{administrators.data(), 0};
    UniqueKernelObject ordinary;
    REQUIRE(::CreateRestrictedToken(own.Get(), 0, 1, &disabled, 0, nullptr, 0, nullptr,
                                    ordinary.Put()));
    return ordinary;
}

Machine::Machine() : machine(SnapshotSoftware()), user(SnapshotUser()) {}

std::string ChangesOfTheMachine()
{
    const Machine now;
    return RegistryDifference(MachineBefore().machine, now.machine) +
           RegistryDifference(MachineBefore().user, now.user);
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

void CheckInstalled(const Scope& scope)
{
    CHECK((Value(scope.root, kProductKey, L"InstallLocation") == scope.folder));
    CHECK((Value(scope.root, kProductKey, L"DisplayVersion") == VELT_VERSION));
    CHECK((Value(scope.root, kProductKey, L"QuietUninstallString") ==
           L"\"" + scope.File(L"Uninstall.exe") + L"\" /S"));
    CHECK(Value(scope.otherRoot, kProductKey, L"InstallLocation").empty());
    CHECK((Value(scope.root, kServerKey, nullptr) == scope.File(kLibrary)));
    CHECK(Value(scope.otherRoot, kServerKey, nullptr).empty());

    // The same files as the build's own, what goes with them, and nothing that the list lacks.
    const auto installed = FilesBelow(scope.folder);
    for (const auto& file : FilesBelow(ShippedFile(L"")))
    {
        INFO(Utf8FromWide(file));
        CHECK(installed.contains(file));
    }
    CHECK(installed.contains(L"Uninstall.exe"));
    CHECK(installed.contains(L"README.md"));
    CHECK(installed.contains(L"docs\\host-guide.md"));
    CHECK(installed.contains(L"samples\\collection_host.cpp"));
    CHECK((installed == ListedFiles(scope)));
}

void CheckWorks(const Scope& scope)
{
    CheckServiceWorks(scope);
    CheckCollectionWorks(scope);

    // The type library is found by its registration; a user's one only where the system looks for
    // it among the user's classes, as Wine does not.
    const std::wstring typeLibrary = std::wstring(kTypeLibraryKey) + L"\\" + kEdition.system;
    CHECK((Value(scope.root, typeLibrary.c_str(), nullptr) == scope.File(kLibrary)));
    CHECK(Value(scope.otherRoot, typeLibrary.c_str(), nullptr).empty());
    ComPtr<ITypeLib> library;
    const HRESULT hr = ::LoadRegTypeLib(LIBID_ProviderLib, 1, 0, 0, &library);
    CHECK((hr == S_OK || (scope.root == HKEY_CURRENT_USER && hr == TYPE_E_LIBNOTREGISTERED)));
}

RunningViewer::RunningViewer(const std::wstring& path)
{
    std::wstring commandLine = L"\"" + path + L"\"";
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process{};
    REQUIRE(::CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr,
                             nullptr, &startup, &process));
    const UniqueKernelObject thread(process.hThread);
    m_process.Reset(process.hProcess);
    if (!Eventually([] { return ::FindWindowW(L"VeltTraceViewer", nullptr) != nullptr; }))
    {
        End();
        throw std::runtime_error("the viewer does not start");
    }
}

RunningViewer::~RunningViewer()
{
    End();
}

void RunningViewer::End()
{
    ::TerminateProcess(m_process.Get(), 98);
    ::WaitForSingleObject(m_process.Get(), kLimitMs);
}

bool RunningViewer::Runs() const
{
    return ::WaitForSingleObject(m_process.Get(), 0) == WAIT_TIMEOUT;
}

PendingRemovals::PendingRemovals() : m_before(PendingText()) {}

PendingRemovals::~PendingRemovals()
{
    if (m_before.empty())
    {
        ::RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kSessionManager, kPending);
    }
    else
    {
        ::RegSetKeyValueW(HKEY_LOCAL_MACHINE, kSessionManager, kPending, REG_MULTI_SZ,
                          m_before.data(), static_cast<DWORD>(m_before.size() * sizeof(wchar_t)));
    }
}

bool PendingRemovals::Has(const std::wstring& folder) const
{
    return PendingText().find(L"\\??\\" + folder + L'\\' + L'\0', m_before.size()) !=
           std::wstring::npos;
}

std::size_t PendingRemovals::Below(const std::wstring& folder) const
{
    const std::wstring text = PendingText();
    const std::wstring start = L"\\??\\" + folder + L'\\';
    std::size_t count = 0;
    for (std::size_t at = text.find(start); at != std::wstring::npos; at = text.find(start, at + 1))
    {
        ++count;
    }
    return count;
}

LoadedLibrary::LoadedLibrary(const std::wstring& path) : m_module(::LoadLibraryW(path.c_str()))
{
    REQUIRE(m_module);
}

LoadedLibrary::~LoadedLibrary()
{
    ::FreeLibrary(m_module);
}
} // namespace velt::test
