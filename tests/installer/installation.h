#pragma once

#include "foundation/unique_handle.h"
#include "tests/support/edition.h"
#include "tests/support/registry_snapshot.h"

#include <windows.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace velt::test
{
inline constexpr wchar_t kLibrary[] = L"VeltHTTPClient12OEM.dll";
inline constexpr wchar_t kTool[] = L"velt.exe";
inline constexpr wchar_t kViewer[] = L"velt-trace.exe";
inline constexpr wchar_t kWithdrawn[] = L"x86\\withdrawn.txt"; // only the earlier version has it

/// The folder of an edition in an installation, and its view of the registry.
struct InstalledEdition
{
    const wchar_t* folder;
    REGSAM view;
    const wchar_t* system; // of its entry for the type library
};
inline constexpr InstalledEdition k32BitEdition = {L"x86", KEY_WOW64_32KEY, L"win32"};
inline constexpr InstalledEdition k64BitEdition = {L"x64", KEY_WOW64_64KEY, L"win64"};

/// A package: its kind, as in its name, what the list of programs calls it, and the editions in it.
struct Package
{
    const wchar_t* kind;
    const wchar_t* productName;
    std::vector<InstalledEdition> editions;

    /// The file, of this version or of the one before it.
    std::wstring File(bool earlier = false) const;
};
const Package& PackageOf32BitWindows();
const Package& PackageOf64BitWindows();

/// The one that has the edition of this test.
const Package& OwnPackage();

/// For whom one installs, and the root of what is written.
struct Scope
{
    const char* name;
    const wchar_t* arguments;
    HKEY root;
    HKEY otherRoot;
};
inline const Scope kAllUsers = {"all users", L"", HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER};
/// Windows needs the first one only, Wine the second one, which must be the last of all.
inline const Scope kCurrentUser = {"the current user", L" MSIINSTALLPERUSER=1 ALLUSERS=\"\"",
                                   HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE};

/// What the installer ends with when an installation fails or is refused by the package.
inline constexpr DWORD kFailed = ERROR_INSTALL_FAILURE;

/// A folder of the system's, a CSIDL.
std::wstring KnownFolder(int id);

/// Runs a program and waits until it and all that it started have ended. Returns the program's own
/// exit code.
DWORD RunToItsEnd(std::wstring commandLine);

/// Has the system's installer do something silently; `action` is "/i", for example. Returns what it
/// ends with.
DWORD RunInstaller(const std::wstring& action, const std::wstring& package,
                   const std::wstring& arguments = {});

/// The same for a package in a scope. Windows remembers the scope of an installation, Wine does
/// not.
DWORD Install(const Package& package, const Scope& scope, const std::wstring& arguments = {});
DWORD InstallEarlier(const Package& package, const Scope& scope,
                     const std::wstring& arguments = {});
DWORD Remove(const Package& package, const Scope& scope);

/// Mends what is missing or damaged: the files, the keys, the entries in the menu.
DWORD Repair(const Package& package, const Scope& scope);

/// Tries to install for all users, which the package must refuse with a text.
void CheckRefused(const Package& package, bool earlier, const std::string& text);

/// The folder where something of a scope is installed, with a backslash at the end, as the packages
/// remember it; empty when nothing is.
std::wstring InstalledFolder(const Scope& scope);

/// How much of the machine's registry is looked at: all of its software, or what the packages have
/// to do with, which takes a tenth of the time.
enum class Extent
{
    everything,
    ours,
};

/// What an installation may change. The system's installer keeps empty keys of its own when the
/// last product is removed; they are left out. Keys are in small letters: how the registry spells
/// one depends on who made it first.
struct Machine
{
    explicit Machine(Extent extent);

    RegistryTree machine;
    RegistryTree user;
    std::set<std::wstring> files; // in the folders for programs, the Start menus, the installer's
};

/// What differs from how the machine was before the first test; each one leaves it so.
std::string ChangesOfTheMachine(Extent extent = Extent::ours);

std::wstring Value(HKEY root, const std::wstring& key, const wchar_t* name, REGSAM view = 0);

/// The library that the class of the HTTP service is registered with for an edition.
std::wstring RegisteredLibrary(HKEY root, const InstalledEdition& edition);

/// The value of the product's entry in the list of programs; empty without one.
std::wstring ListedValue(const Package& package, const wchar_t* name);

/// The files below a folder, by their paths relative to it; none when it is not there.
std::set<std::wstring> FilesBelow(const std::filesystem::path& folder);

/// The files of a feature and its entries, of the whole package.
void CheckRuntime(const Package& package, const Scope& scope);
void CheckTools(const Package& package, const Scope& scope, bool installed);
void CheckDeveloper(const Scope& scope, bool installed);

/// The component of this edition as it is installed: by its ProgID where COM finds it, and by the
/// manifest; that of the other one by its own command-line program.
void CheckWorks(const Package& package, const Scope& scope);
} // namespace velt::test
