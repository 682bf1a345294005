// The uninstaller where something stands against it.

#include "tests/installer/installation.h"
#include "tests/support/component_library.h"

#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include <catch.hpp>

using namespace velt::test;

TEST_CASE("The uninstaller: removes the files also when it cannot take the registration back",
          "[installer]")
{
    const Scope scope = AllUsers();
    REQUIRE(Install(scope.argument) == 0);
    std::filesystem::remove(scope.File(L"velt.exe"));
    CHECK(UninstallInPlace(scope.folder) == kNotRegistered);
    CHECK_FALSE(std::filesystem::exists(scope.folder));
    CHECK((Value(HKEY_LOCAL_MACHINE, kServerKey, nullptr) == scope.File(kLibrary)));

    // Installing once more mends it.
    REQUIRE(Install(scope.argument) == 0);
    CHECK(Uninstall(scope.folder) == 0);
    CHECK(ChangesOfTheMachine() == "");
}

TEST_CASE("The uninstaller: leaves what others put there", "[installer]")
{
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
    CHECK(ChangesOfTheMachine() == "");
}

TEST_CASE("The uninstaller: leaves the registration of another copy", "[installer]")
{
    const Scope scope = AllUsers();
    REQUIRE(Install(scope.argument) == 0);
    {
        const ComponentLibrary other; // the build's own
        REQUIRE(other.RegisterServer() == S_OK);
    }
    CHECK(Uninstall(scope.folder) == 0);
    CHECK_FALSE(std::filesystem::exists(scope.folder));
    CHECK((Value(HKEY_LOCAL_MACHINE, kServerKey, nullptr) == ShippedFile(kLibrary)));

    // Installed over it and removed again, nothing is left of either.
    REQUIRE(Install(scope.argument) == 0);
    CHECK(Uninstall(scope.folder) == 0);
    CHECK(ChangesOfTheMachine() == "");
}

TEST_CASE("The uninstaller: has Windows remove what is in use at its next start", "[installer]")
{
    const Scope scope = AllUsers();
    REQUIRE(Install(scope.argument) == 0);
    {
        const PendingRemovals pending;
        const RunningViewer viewer(scope.File(kViewer));
        const LoadedLibrary library(scope.File(kLibrary));
        CHECK(UninstallInPlace(scope.folder) == 0);
        CHECK(viewer.Runs());
        CHECK(FilesBelow(scope.folder).size() == 2);
        CHECK(FilesBelow(scope.File(kFormerFiles)).size() == 2);
        CHECK(pending.Below(scope.File(kFormerFiles)) >= 2);
        CHECK(pending.Has(scope.folder));
    }
    CHECK(ChangesOfTheMachine() == "");
    // Installing once more takes away what has stayed.
    REQUIRE(Install(scope.argument) == 0);
    CheckInstalled(scope);
    CHECK(Uninstall(scope.folder) == 0);
    CHECK_FALSE(std::filesystem::exists(scope.folder));
}

TEST_CASE("The uninstaller: says that what is in use stays, where only an administrator could "
          "have it removed",
          "[installer]")
{
    const Scope scope = CurrentUser();
    const auto ordinary = OrdinaryRights();
    REQUIRE(Install(scope.argument, ordinary.Get()) == 0);
    {
        const PendingRemovals pending;
        const RunningViewer viewer(scope.File(kViewer));
        CHECK(UninstallInPlace(scope.folder, ordinary.Get()) == kLeftInUse);
        CHECK(FilesBelow(scope.folder).size() == 1);
    }
    CHECK(ChangesOfTheMachine() == "");
    std::filesystem::remove_all(scope.folder);
}
