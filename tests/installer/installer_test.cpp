// The packages as an administrator's tool runs them: silently, for all users and for the current
// one, repaired, and away again.

#include "foundation/wide_text.h"
#include "tests/installer/installation.h"
#include "tests/support/registry_views.h"

#include <shlobj.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <catch.hpp>

using namespace velt::test;

namespace
{
/// The classes as programs of both kinds see them.
RegistryTree Classes(const Scope& scope)
{
    return SnapshotRegistry(scope.root, L"Software\\Classes");
}

/// What is in one and not in the other, without what the system's installer has of its own there.
/// The keys are in small letters: how the registry spells one depends on who made it first.
RegistryTree Added(const RegistryTree& before, const RegistryTree& after)
{
    RegistryTree added;
    for (const auto& [key, values] : after)
    {
        const auto found = before.find(key);
        if (!key.starts_with(L"Installer") && (found == before.end() || found->second != values))
        {
            std::wstring small = key;
            ::CharLowerW(small.data());
            added.emplace(small, values);
        }
    }
    return added;
}

/// Moves what the programs of both kinds share out of the view of 32-bit ones. Where some system
/// has it there, it says so.
void JoinViews(RegistryTree& tree)
{
    const std::wstring view = L"wow6432node\\";
    RegistryTree joined;
    bool moved = false;
    for (auto& [key, values] : tree)
    {
        std::wstring place = key;
        if (key.starts_with(view) && !key.starts_with(view + L"clsid") &&
            !key.starts_with(view + L"interface"))
        {
            place.erase(0, view.size());
            moved = true;
        }
        joined[place].insert(values.begin(), values.end());
    }
    tree = std::move(joined);
    if (moved)
    {
        WARN("shared keys are in the view of 32-bit programs");
    }
}

/// The text of a key's default value; the key is taken out.
std::wstring TakeValue(RegistryTree& tree, const std::wstring& key)
{
    const auto values = tree.extract(key);
    REQUIRE(!values.empty());
    const std::vector<BYTE>& data = values.mapped().at(L"").data;
    const std::wstring text(reinterpret_cast<const wchar_t*>(data.data()),
                            data.size() / sizeof(wchar_t));
    return text.substr(0, text.find(L'\0'));
}

std::wstring PathVariable(const Scope& scope)
{
    return scope.root == HKEY_LOCAL_MACHINE
               ? Value(scope.root,
                       L"System\\CurrentControlSet\\Control\\Session Manager\\Environment", L"PATH")
               : Value(scope.root, L"Environment", L"PATH");
}

std::wstring UserPrograms()
{
    return KnownFolder(CSIDL_LOCAL_APPDATA) + L"\\Programs\\";
}
} // namespace

TEST_CASE("The installer: puts the component there, mends it, and removes all of it", "[installer]")
{
    const Scope& scope = GENERATE(0, 1) == 0 ? kAllUsers : kCurrentUser;
    INFO(scope.name);
    const Package& package = OwnPackage();
    REQUIRE(Install(package, scope) == ERROR_SUCCESS);
    CheckRuntime(package, scope);
    CheckTools(package, scope, true);
    CheckDeveloper(scope, false);
    CheckWorks(package, scope);
    const std::wstring icon = ListedValue(package, L"DisplayIcon");
    CHECK((icon.empty() || std::filesystem::exists(icon)));
    if (icon.empty())
    {
        WARN("the installer does not enter the icon in the list of programs");
    }
    if (scope.root == HKEY_CURRENT_USER &&
        InstalledFolder(scope) != UserPrograms() + L"VeltHTTPClient\\")
    {
        WARN("the installer puts a user's programs where those of all users are: "
             << velt::Utf8FromWide(InstalledFolder(scope)));
    }

    const std::filesystem::path folder = InstalledFolder(scope);
    const std::filesystem::path library = folder / package.editions[0].folder / kLibrary;
    std::filesystem::remove(library);
    std::ofstream(folder / L"LICENSE.md") << "changed";
    ::RegDeleteTreeW(scope.root, L"Software\\Classes\\VeltHTTPClient.EnumVariantCol12OEM");
    REQUIRE(Repair(package, scope) == ERROR_SUCCESS);
    CheckRuntime(package, scope);
    CheckWorks(package, scope);
    CHECK(std::filesystem::file_size(folder / L"LICENSE.md") > 100);
    CHECK((Value(scope.root, L"Software\\Classes\\VeltHTTPClient.EnumVariantCol12OEM", nullptr) ==
           L"EnumVariantCol Class"));

    CHECK(Remove(package, scope) == ERROR_SUCCESS);
    CHECK(ChangesOfTheMachine(Extent::everything) == "");
}

TEST_CASE("The installer: writes what the component itself registers", "[installer]")
{
    const Scope& scope = GENERATE(0, 1) == 0 ? kAllUsers : kCurrentUser;
    INFO(scope.name);
    const Package& package = OwnPackage();
    if (scope.root == HKEY_CURRENT_USER && package.editions.size() > 1 && !HasUserViews())
    {
        WARN("not looked at: the user's classes have one view for both kinds of programs here");
        return;
    }
    const RegistryTree before = Classes(scope);
    REQUIRE(Install(package, scope) == ERROR_SUCCESS);
    RegistryTree installed = Added(before, Classes(scope));
    const std::wstring folder = InstalledFolder(scope);
    const std::filesystem::path place = std::filesystem::path(folder).parent_path();
    const std::filesystem::path copy = std::filesystem::temp_directory_path() / L"velt copy";
    std::filesystem::remove_all(copy);
    std::filesystem::copy(place, copy, std::filesystem::copy_options::recursive);
    REQUIRE(Remove(package, scope) == ERROR_SUCCESS);
    CHECK(Added(before, Classes(scope)).empty());

    // The same files in the same place, registered by themselves.
    std::filesystem::copy(copy, place, std::filesystem::copy_options::recursive);
    const auto tool = [&](const InstalledEdition& edition, const wchar_t* command) {
        return RunToItsEnd(L'"' + folder + edition.folder + L"\\velt.exe\" " + command +
                           (scope.root == HKEY_CURRENT_USER ? L" --user" : L""));
    };
    for (const InstalledEdition& edition : package.editions)
    {
        if (scope.root == HKEY_CURRENT_USER)
        {
            CHECK(tool(edition, L"register") == 0);
        }
        else
        {
            CHECK(RunToItsEnd(L'"' + folder.substr(0, 2) +
                              (kIs64Bit && edition.view == KEY_WOW64_32KEY
                                   ? L"\\windows\\syswow64\\"
                                   : L"\\windows\\system32\\") +
                              L"regsvr32.exe\" /s \"" + folder + edition.folder + L'\\' + kLibrary +
                              L'"') == 0);
        }
    }
    RegistryTree registered = Added(before, Classes(scope));
    for (const InstalledEdition& edition : package.editions)
    {
        CHECK(tool(edition, L"unregister") == 0);
    }
    std::filesystem::remove_all(place);
    std::filesystem::remove_all(copy);
    JoinViews(installed);
    JoinViews(registered);

    // The installer's name of a folder has a backslash at its end.
    const std::wstring help = L"typelib\\{ab6a43ce-5cee-40ee-9ad0-a7aa608dbb6c}\\1.0\\helpdir";
    const std::wstring edition = package.editions.back().folder;
    CHECK((TakeValue(installed, help) == folder + edition + L'\\'));
    CHECK((TakeValue(registered, help) == folder + edition));
    const std::wstring flags = L"typelib\\{ab6a43ce-5cee-40ee-9ad0-a7aa608dbb6c}\\1.0\\flags";
    CHECK((TakeValue(installed, flags) == L"0"));
    if (const std::wstring found = TakeValue(registered, flags); found != L"0")
    {
        WARN("the system enters the flag of a library on a disk");
        CHECK((found == L"8"));
    }
    if (std::erase_if(registered, [](const auto& entry) {
            return entry.first.ends_with(L"\\proxystubclsid");
        }) > 0)
    {
        WARN("the system registers interfaces for 16-bit programs, too");
    }
    CHECK(RegistryDifference(registered, installed) == "");
    CHECK(ChangesOfTheMachine() == "");
}

TEST_CASE("The installer: features by their names", "[installer]")
{
    const Scope& scope = kAllUsers;
    const Package& package = OwnPackage();
    SECTION("the component alone, and more later")
    {
        REQUIRE(Install(package, scope, L"ADDLOCAL=Runtime") == ERROR_SUCCESS);
        CheckRuntime(package, scope);
        CheckWorks(package, scope);
        CheckTools(package, scope, false);
        CheckDeveloper(scope, false);

        REQUIRE(Install(package, scope, L"ADDLOCAL=Tools") == ERROR_SUCCESS);
        CheckTools(package, scope, true);
        REQUIRE(Install(package, scope, L"REMOVE=Tools") == ERROR_SUCCESS);
        CheckTools(package, scope, false);
        CheckRuntime(package, scope);
    }
    SECTION("a feature brings what it needs")
    {
        REQUIRE(Install(package, scope, L"ADDLOCAL=Developer") == ERROR_SUCCESS);
        if (InstalledFolder(scope).empty())
        {
            WARN("the installer does not bring the feature that another one needs");
            REQUIRE(Install(package, scope, L"ADDLOCAL=Runtime") == ERROR_SUCCESS);
        }
        CheckRuntime(package, scope);
        CheckDeveloper(scope, true);
        CheckTools(package, scope, false);
    }
    SECTION("everything")
    {
        REQUIRE(Install(package, scope, L"ADDLOCAL=ALL") == ERROR_SUCCESS);
        CheckRuntime(package, scope);
        CheckTools(package, scope, true);
        CheckDeveloper(scope, true);
    }
    CHECK(Remove(package, scope) == ERROR_SUCCESS);
    CHECK(ChangesOfTheMachine() == "");
}

TEST_CASE("The installer: the search path, when it is asked for", "[installer]")
{
    const Scope& scope = GENERATE(0, 1) == 0 ? kAllUsers : kCurrentUser;
    INFO(scope.name);
    const Package& package = OwnPackage();
    const std::wstring before = PathVariable(scope);
    REQUIRE(Install(package, scope) == ERROR_SUCCESS);
    CHECK((PathVariable(scope) == before));
    REQUIRE(Install(package, scope, L"ADDLOCAL=Path") == ERROR_SUCCESS);
    const std::wstring tools = InstalledFolder(scope) + package.editions.back().folder + L'\\';
    CHECK((PathVariable(scope) == (before.empty() ? tools : before + L';' + tools)));
    CHECK(Remove(package, scope) == ERROR_SUCCESS);
    if (PathVariable(scope) == before + L';')
    {
        WARN("the installer leaves a semicolon at the end of the search path");
    }
    else
    {
        CHECK((PathVariable(scope) == before));
    }
    CHECK(ChangesOfTheMachine() == "");
}

TEST_CASE("The installer: a folder of one's own is remembered", "[installer]")
{
    const Scope& scope = GENERATE(0, 1) == 0 ? kAllUsers : kCurrentUser;
    INFO(scope.name);
    const Package& package = OwnPackage();
    const std::wstring folder = UserPrograms() + L"Velt \u00E4 own\\";
    REQUIRE(InstallEarlier(package, scope,
                           L"INSTALLDIR=\"" + folder.substr(0, folder.size() - 1) + L'"') ==
            ERROR_SUCCESS);
    CHECK((InstalledFolder(scope) == folder));
    CheckTools(package, scope, true);

    REQUIRE(Install(package, scope) == ERROR_SUCCESS); // an upgrade
    CHECK((InstalledFolder(scope) == folder));
    CheckRuntime(package, scope);
    CheckTools(package, scope, true);
    CheckWorks(package, scope);
    if (std::filesystem::remove(folder + kWithdrawn))
    {
        WARN("the installer forgets the scope, and so does not find the earlier version's files");
        CHECK(scope.root == HKEY_CURRENT_USER);
    }

    std::filesystem::remove(folder + package.editions[0].folder + L'\\' + kLibrary);
    REQUIRE(Repair(package, scope) == ERROR_SUCCESS);
    CHECK((InstalledFolder(scope) == folder));
    CheckRuntime(package, scope);
    REQUIRE(Install(package, scope, L"ADDLOCAL=Developer") == ERROR_SUCCESS);
    CheckDeveloper(scope, true);
    CHECK(Remove(package, scope) == ERROR_SUCCESS);
    CHECK(ChangesOfTheMachine() == "");
}

TEST_CASE("The installer: for all users, a folder that the user's registry names is not taken",
          "[installer]")
{
    const Package& package = OwnPackage();
    const std::wstring trap = UserPrograms() + L"trap\\";
    for (const wchar_t* key :
         {L"Software\\Velt\\VeltHTTPClient", L"Software\\Velt\\VeltHTTPClient\\PerUser1",
          L"Software\\Velt\\VeltHTTPClient\\PerUser"})
    {
        REQUIRE(::RegSetKeyValueW(HKEY_CURRENT_USER, key, L"InstallDir", REG_SZ, trap.c_str(),
                                  static_cast<DWORD>((trap.size() + 1) * sizeof(wchar_t))) ==
                ERROR_SUCCESS);
    }
    REQUIRE(Install(package, kAllUsers) == ERROR_SUCCESS);
    CHECK((InstalledFolder(kAllUsers) != trap));
    CHECK_FALSE(std::filesystem::exists(trap));
    CheckRuntime(package, kAllUsers);
    CHECK(Remove(package, kAllUsers) == ERROR_SUCCESS);
    ::RegDeleteTreeW(HKEY_CURRENT_USER, L"Software\\Velt");
    CHECK(ChangesOfTheMachine() == "");
}

TEST_CASE("The installer: a file that cannot be written", "[installer]")
{
    const Package& package = OwnPackage();
    const std::wstring folder = UserPrograms() + L"Velt full\\";
    const std::filesystem::path inTheWay =
        std::filesystem::path(folder) / package.editions[0].folder / kLibrary / L"in the way";
    std::filesystem::create_directories(inTheWay);
    const DWORD result =
        Install(package, kAllUsers, L"INSTALLDIR=\"" + folder.substr(0, folder.size() - 1) + L'"');
    CHECK(result == kFailed);
    CHECK(RegisteredLibrary(HKEY_LOCAL_MACHINE, package.editions[0]).empty());
    CHECK(ListedValue(package, L"DisplayVersion").empty());
    std::filesystem::remove_all(folder);
    if (const std::string left = ChangesOfTheMachine(); !left.empty())
    {
        // Only entries about itself, which the next removal takes along.
        WARN("the installer does not take everything back:\n" << left);
        std::istringstream lines(left);
        for (std::string line; std::getline(lines, line);)
        {
            CHECK(line.find("\\currentversion\\installer\\userdata\\") != std::string::npos);
        }
        REQUIRE(Install(package, kAllUsers) == ERROR_SUCCESS);
        CHECK(Remove(package, kAllUsers) == ERROR_SUCCESS);
    }
    CHECK(ChangesOfTheMachine() == "");
}

TEST_CASE("The installer: two at once", "[installer]")
{
    // What the system's installer holds while it runs.
    constexpr wchar_t kRunning[] = L"Global\\_MSIExecute";
    const Package& package = OwnPackage();
    CHECK(ChangesOfTheMachine() == ""); // looks at the machine before the other one
    const ChildProcess other = StartProcess(L"msiexec /i \"" + package.File() + L"\" /qn");
    const auto hasEnded = [&] {
        return ::WaitForSingleObject(other.process.Get(), 0) == WAIT_OBJECT_0;
    };
    bool isKnown = false;
    while (!isKnown && !hasEnded())
    {
        const velt::UniqueKernelObject running(::OpenMutexW(SYNCHRONIZE, FALSE, kRunning));
        isKnown = static_cast<bool>(running);
        ::Sleep(1);
    }
    if (!isKnown)
    {
        WARN("the installer lets others run at the same time, which disturbs both; so the second "
             "one came after the first");
    }
    const DWORD own = Install(package, kAllUsers);
    REQUIRE(::WaitForSingleObject(other.process.Get(), kWaitLimitMs) == WAIT_OBJECT_0);
    DWORD others = STILL_ACTIVE;
    ::GetExitCodeProcess(other.process.Get(), &others);
    CHECK(others == ERROR_SUCCESS);
    CHECK((own == ERROR_SUCCESS || (isKnown && own == ERROR_INSTALL_ALREADY_RUNNING)));
    REQUIRE(Repair(package, kAllUsers) == ERROR_SUCCESS);
    CheckRuntime(package, kAllUsers);
    CheckWorks(package, kAllUsers);
    CHECK(Remove(package, kAllUsers) == ERROR_SUCCESS);
    CHECK(ChangesOfTheMachine() == "");
}
