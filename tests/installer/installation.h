#pragma once

#include "foundation/unique_handle.h"
#include "tests/support/edition.h"
#include "tests/support/registry_snapshot.h"

#include <windows.h>

#include <filesystem>
#include <set>
#include <string>

namespace velt::test
{
/// What the installer and the uninstaller end with.
inline constexpr DWORD kNotCompleted = 2;
inline constexpr DWORD kNotRegistered = 3;
inline constexpr DWORD kLeftInUse = 4;
inline constexpr DWORD kNotAllowed = 5;

/// Where the installations of the two editions differ, and what the same user has of both.
struct EditionNames
{
    const wchar_t* name;
    const wchar_t* productKey;
    const wchar_t* folder;
    REGSAM otherView; // of the registry, for the other one's programs
};
inline constexpr EditionNames k32BitNames = {
    L"32-bit", L"Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\VeltHTTPClient12OEM",
    L"VeltHTTPClient", KEY_WOW64_64KEY};
inline constexpr EditionNames k64BitNames = {
    L"64-bit", L"Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\VeltHTTPClient12OEM64",
    L"VeltHTTPClient64", KEY_WOW64_32KEY};
inline constexpr const EditionNames& kOwnNames = kIs64Bit ? k64BitNames : k32BitNames;

inline constexpr wchar_t kLibrary[] = L"VeltHTTPClient12OEM.dll";
inline constexpr wchar_t kNewFiles[] = L"VeltHTTPClient12OEM.new";
inline constexpr wchar_t kFormerFiles[] = L"VeltHTTPClient12OEM.old";
inline constexpr wchar_t kViewer[] = L"velt-trace.exe";
inline constexpr const wchar_t* kProductKey = kOwnNames.productKey;
inline constexpr wchar_t kServerKey[] =
    L"Software\\Classes\\CLSID\\{5A6B579B-3C37-4A16-A3A5-F6C72FA15C40}\\InprocServer32";
/// Its subkeys are named for the kinds of systems.
inline constexpr wchar_t kTypeLibraryKey[] =
    L"Software\\Classes\\TypeLib\\{AB6A43CE-5CEE-40EE-9AD0-A7AA608DBB6C}\\1.0\\0";

/// Where an installation goes by itself, how one asks for it, and the root of its entries.
struct Scope
{
    const char* name;
    const wchar_t* argument;
    std::wstring folder;
    HKEY root;
    HKEY otherRoot;

    std::wstring File(const wchar_t* file) const
    {
        return folder + L'\\' + file;
    }
};

Scope AllUsers();
Scope CurrentUser();
std::wstring KnownFolder(int id);

/// Runs a program and waits until it and all that it started have ended: an uninstaller goes on in
/// a copy of itself. Returns the program's own exit code. With a token, it runs with that one's
/// rights.
DWORD RunToItsEnd(std::wstring commandLine, HANDLE token = nullptr);

DWORD Install(const std::wstring& arguments, HANDLE token = nullptr,
              const EditionNames& edition = kOwnNames);
DWORD InstallEarlier(const std::wstring& arguments, const EditionNames& edition = kOwnNames);

/// The uninstaller as the list of programs calls it. What it ends with is not seen: the part that
/// does the work goes on in a copy.
DWORD Uninstall(const std::wstring& folder);

/// The uninstaller where it lies, which then cannot remove itself. Returns what it ends with, and
/// removes the program, and the folder when nothing else is in it, as its caller has to.
DWORD UninstallInPlace(const std::wstring& folder, HANDLE token = nullptr);

/// The user's own rights without those of an administrator.
UniqueKernelObject OrdinaryRights();

/// What an installation may change.
struct Machine
{
    Machine();

    RegistryTree machine;
    RegistryTree user;
};

/// What differs from how the machine was before the first test; each one leaves it so.
std::string ChangesOfTheMachine();

std::wstring Value(HKEY root, const wchar_t* key, const wchar_t* name);

/// The files below a folder, by their paths relative to it; none when it is not there.
std::set<std::wstring> FilesBelow(const std::filesystem::path& folder);

/// The entries and the files of an installation: what was built and nothing else but the documents
/// and samples, each named in the list of what is installed.
void CheckInstalled(const Scope& scope);

/// The component as it is installed: by its ProgID where COM finds it, and loaded from the folder.
void CheckWorks(const Scope& scope);

/// A trace viewer that runs until the end of the scope, so that its file is in use.
class RunningViewer
{
public:
    explicit RunningViewer(const std::wstring& path);

    RunningViewer(const RunningViewer&) = delete;
    RunningViewer& operator=(const RunningViewer&) = delete;

    ~RunningViewer();

    bool Runs() const;

private:
    void End();

    UniqueKernelObject m_process;
};

/// What Windows has been asked to remove at its next start since this was made.
class PendingRemovals
{
public:
    PendingRemovals();

    PendingRemovals(const PendingRemovals&) = delete;
    PendingRemovals& operator=(const PendingRemovals&) = delete;

    /// Takes it back.
    ~PendingRemovals();

    /// Whether a folder is to be removed, and how many files below it.
    bool Has(const std::wstring& folder) const;
    std::size_t Below(const std::wstring& folder) const;

private:
    std::wstring m_before; // as the registry has it
};

/// A library that this process has loaded until the end of the scope.
class LoadedLibrary
{
public:
    explicit LoadedLibrary(const std::wstring& path);

    LoadedLibrary(const LoadedLibrary&) = delete;
    LoadedLibrary& operator=(const LoadedLibrary&) = delete;

    ~LoadedLibrary();

private:
    HMODULE m_module;
};
} // namespace velt::test
