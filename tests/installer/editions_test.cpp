// The two packages on one 64-bit Windows.

#include "tests/installer/installation.h"
#include "tests/support/registry_views.h"

#include <catch.hpp>

using namespace velt::test;

TEST_CASE(
    "The package of 64-bit Windows: takes the place of the other one, which is refused beside it",
    "[installer]")
{
    REQUIRE(Install(PackageOf32BitWindows(), kAllUsers) == ERROR_SUCCESS);
    CheckRuntime(PackageOf32BitWindows(), kAllUsers);
    CheckTools(PackageOf32BitWindows(), kAllUsers, true);
    CheckWorks(PackageOf32BitWindows(), kAllUsers);

    REQUIRE(Install(PackageOf64BitWindows(), kAllUsers) == ERROR_SUCCESS);
    CHECK(ListedValue(PackageOf32BitWindows(), L"DisplayVersion").empty());
    CheckRuntime(PackageOf64BitWindows(), kAllUsers);
    CheckTools(PackageOf64BitWindows(), kAllUsers, true);
    CheckWorks(PackageOf64BitWindows(), kAllUsers);

    CheckRefused(PackageOf32BitWindows(), false, "The package for 64-bit Windows is installed.");
    CheckRuntime(PackageOf64BitWindows(), kAllUsers);
    CHECK(Remove(PackageOf64BitWindows(), kAllUsers) == ERROR_SUCCESS);
    CHECK(ChangesOfTheMachine(Extent::everything) == "");
}

TEST_CASE("The package of 32-bit Windows: is installed, upgraded and removed by itself",
          "[installer]")
{
    const Scope& scope = GENERATE(0, 1) == 0 ? kAllUsers : kCurrentUser;
    INFO(scope.name);
    const Package& package = PackageOf32BitWindows();
    REQUIRE(InstallEarlier(package, scope) == ERROR_SUCCESS);
    REQUIRE(Install(package, scope) == ERROR_SUCCESS);
    CheckRuntime(package, scope);
    CheckTools(package, scope, true);
    CheckWorks(package, scope);
    if (scope.root == HKEY_LOCAL_MACHINE || HasUserViews())
    {
        CHECK(RegisteredLibrary(scope.root, k64BitEdition).empty());
    }
    CHECK(Remove(package, scope) == ERROR_SUCCESS);
    CHECK(ChangesOfTheMachine() == "");
}
