// The installer as an administrator's tool runs it: silently, for all users and for the current
// one, and away again.

#include "tests/installer/installation.h"

#include <shlobj.h>

#include <filesystem>
#include <fstream>
#include <string>

#include <catch.hpp>

using namespace velt::test;

TEST_CASE("The installer: puts the component there, mends it, and the uninstaller leaves nothing",
          "[installer]")
{
    const Scope scope = GENERATE(0, 1) == 0 ? AllUsers() : CurrentUser();
    INFO(scope.name);
    REQUIRE(Install(scope.argument) == 0);
    CheckInstalled(scope);
    CheckWorks(scope);

    // Once more over what has been damaged.
    std::filesystem::remove(scope.File(kLibrary));
    std::ofstream(std::filesystem::path(scope.File(L"README.md"))) << "changed";
    ::RegDeleteTreeW(scope.root, L"Software\\Classes\\VeltHTTPClient.EnumVariantCol12OEM");
    REQUIRE(Install(scope.argument) == 0);
    CheckInstalled(scope);
    CheckWorks(scope);
    CHECK(std::filesystem::file_size(scope.File(L"README.md")) > 1000);

    CHECK(Uninstall(scope.folder) == 0);
    CHECK_FALSE(std::filesystem::exists(scope.folder));
    CHECK(ChangesOfTheMachine() == "");
}

TEST_CASE("The installer: takes a folder of one's own, and moves to another one", "[installer]")
{
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
    CHECK(ChangesOfTheMachine() == "");
}

TEST_CASE("The installer: for all users and for one, beside each other", "[installer]")
{
    const Scope all = AllUsers();
    const Scope user = CurrentUser();
    REQUIRE(Install(all.argument) == 0);
    REQUIRE(Install(user.argument) == 0);
    CHECK((Value(HKEY_LOCAL_MACHINE, kProductKey, L"InstallLocation") == all.folder));
    CHECK((Value(HKEY_CURRENT_USER, kProductKey, L"InstallLocation") == user.folder));
    CHECK((Value(HKEY_LOCAL_MACHINE, kServerKey, nullptr) == all.File(kLibrary)));
    CHECK((Value(HKEY_CURRENT_USER, kServerKey, nullptr) == user.File(kLibrary)));
    CHECK(Uninstall(user.folder) == 0);
    CHECK((Value(HKEY_LOCAL_MACHINE, kServerKey, nullptr) == all.File(kLibrary)));
    CHECK(Uninstall(all.folder) == 0);
    CHECK(ChangesOfTheMachine() == "");
}

TEST_CASE("The installer: only an administrator installs and removes for all users", "[installer]")
{
    const Scope scope = AllUsers();
    const auto ordinary = OrdinaryRights();
    CHECK(Install(scope.argument, ordinary.Get()) == kNotAllowed);
    CHECK_FALSE(std::filesystem::exists(scope.folder));

    REQUIRE(Install(scope.argument) == 0);
    CHECK(UninstallInPlace(scope.folder, ordinary.Get()) == kNotAllowed);
    CheckInstalled(scope);
    CHECK(Uninstall(scope.folder) == 0);
    CHECK(ChangesOfTheMachine() == "");
}

TEST_CASE("The installer: takes everything back when a file cannot be written", "[installer]")
{
    const Scope scope = CurrentUser();
    const std::filesystem::path folder = scope.folder;
    std::filesystem::create_directories(folder / L"README.md"); // a folder where the file goes
    CHECK(Install(scope.argument) == kNotCompleted);
    CHECK(FilesBelow(folder).empty());
    CHECK(ChangesOfTheMachine() == "");
    std::filesystem::remove_all(folder);
}

TEST_CASE("The installer: says that the component could not be registered", "[installer]")
{
    // The first key that the component writes to, with something of somebody else's in it.
    constexpr wchar_t kRefused[] = L"Software\\Classes\\AppID";
    REQUIRE(::RegSetKeyValueW(HKEY_CURRENT_USER, kRefused, L"kept", REG_SZ, L"x", 4) ==
            ERROR_SUCCESS);
    const Scope scope = CurrentUser();
    {
        const DeniedKey denied(HKEY_CURRENT_USER, kRefused);
        CHECK(Install(scope.argument) == kNotRegistered);
    }
    CHECK(std::filesystem::exists(scope.File(kLibrary)));
    CHECK(Value(HKEY_CURRENT_USER, kServerKey, nullptr).empty());
    CHECK((Value(HKEY_CURRENT_USER, kProductKey, L"InstallLocation") == scope.folder));

    CHECK(Uninstall(scope.folder) == 0);
    CHECK_FALSE(std::filesystem::exists(scope.folder));
    CHECK((Value(HKEY_CURRENT_USER, kRefused, L"kept") == L"x"));
    ::RegDeleteTreeW(HKEY_CURRENT_USER, kRefused);
    CHECK(ChangesOfTheMachine() == "");
}
