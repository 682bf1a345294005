// Both editions on one 64-bit Windows: each is installed, upgraded and removed by itself.

#include "tests/installer/installation.h"
#include "tests/support/registry_views.h"

#include <shlobj.h>

#include <filesystem>
#include <string>

#include <catch.hpp>

using namespace velt::test;

namespace
{
/// Where the 32-bit edition goes by itself.
std::wstring OtherFolder(const Scope& scope)
{
    return (scope.root == HKEY_LOCAL_MACHINE ? KnownFolder(CSIDL_PROGRAM_FILESX86)
                                             : KnownFolder(CSIDL_LOCAL_APPDATA) + L"\\Programs") +
           L"\\" + k32BitNames.folder;
}

/// The 32-bit edition's files; its registration is compared as a whole.
void CheckOtherWorks(const Scope& scope)
{
    const std::wstring folder = OtherFolder(scope);
    CHECK(std::filesystem::exists(folder + L"\\" + kLibrary));
    CHECK(RunToItsEnd(L"\"" + folder + L"\\velt.exe\" status") == 0);
}

/// What differs from before.
std::string ChangesSince(const Machine& before)
{
    const Machine now;
    return RegistryDifference(before.machine, now.machine) +
           RegistryDifference(before.user, now.user);
}

/// Whether both editions can be registered in that scope; says so when they cannot.
bool HasRoomForBoth(const Scope& scope)
{
    if (scope.root == HKEY_LOCAL_MACHINE || HasUserViews())
    {
        return true;
    }
    WARN("not looked at: the user's classes have one view for both kinds of programs here");
    return false;
}

DWORD InstallOther(const Scope& scope)
{
    return Install(scope.argument, nullptr, k32BitNames);
}
} // namespace

TEST_CASE("The editions: installing, upgrading and removing the 64-bit one leaves the 32-bit one",
          "[installer]")
{
    const Scope scope = GENERATE(0, 1) == 0 ? AllUsers() : CurrentUser();
    INFO(scope.name);
    if (!HasRoomForBoth(scope))
    {
        return;
    }
    REQUIRE(InstallOther(scope) == 0);
    CheckOtherWorks(scope);
    const Machine before;
    const auto files = FilesBelow(OtherFolder(scope));

    REQUIRE(InstallEarlier(scope.argument) == 0);
    CheckOtherWorks(scope);
    REQUIRE(Install(scope.argument) == 0);
    CheckInstalled(scope);
    CheckWorks(scope);
    CheckOtherWorks(scope);
    CHECK((FilesBelow(OtherFolder(scope)) == files));

    CHECK(Uninstall(scope.folder) == 0);
    CHECK_FALSE(std::filesystem::exists(scope.folder));
    CheckOtherWorks(scope);
    CHECK((FilesBelow(OtherFolder(scope)) == files));
    CHECK(ChangesSince(before) == "");

    CHECK(Uninstall(OtherFolder(scope)) == 0);
    CHECK_FALSE(std::filesystem::exists(OtherFolder(scope)));
    CHECK(ChangesOfTheMachine() == "");
}

TEST_CASE("The editions: installing, upgrading and removing the 32-bit one leaves the 64-bit one",
          "[installer]")
{
    const Scope scope = GENERATE(0, 1) == 0 ? AllUsers() : CurrentUser();
    INFO(scope.name);
    if (!HasRoomForBoth(scope))
    {
        return;
    }
    REQUIRE(Install(scope.argument) == 0);
    const Machine before;

    REQUIRE(InstallEarlier(scope.argument, k32BitNames) == 0);
    CheckInstalled(scope);
    REQUIRE(InstallOther(scope) == 0);
    CheckInstalled(scope);
    CheckWorks(scope);
    CheckOtherWorks(scope);

    CHECK(Uninstall(OtherFolder(scope)) == 0);
    CHECK_FALSE(std::filesystem::exists(OtherFolder(scope)));
    CheckInstalled(scope);
    CheckWorks(scope);
    CHECK(ChangesSince(before) == "");

    CHECK(Uninstall(scope.folder) == 0);
    CHECK(ChangesOfTheMachine() == "");
}

TEST_CASE("The editions: one is not installed into the other one's folder", "[installer]")
{
    const Scope scope = GENERATE(0, 1) == 0 ? AllUsers() : CurrentUser();
    INFO(scope.name);
    REQUIRE(InstallOther(scope) == 0);
    const Machine before;
    CHECK(Install(scope.argument + (L" /D=" + OtherFolder(scope))) == kNotCompleted);
    CheckOtherWorks(scope);
    CHECK(ChangesSince(before) == "");
    CHECK(Uninstall(OtherFolder(scope)) == 0);

    REQUIRE(Install(scope.argument) == 0);
    CHECK(Install(scope.argument + (L" /D=" + scope.folder), nullptr, k32BitNames) ==
          kNotCompleted);
    CheckInstalled(scope);
    CheckWorks(scope);
    CHECK(Uninstall(scope.folder) == 0);
    CHECK(ChangesOfTheMachine() == "");
}
