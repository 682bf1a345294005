// Another version, or the package for the other kind of Windows, over an installation.

#include "foundation/wide_text.h"
#include "tests/installer/installation.h"
#include "tests/support/child_process.h"
#include "tests/support/viewer_process.h"

#include <filesystem>
#include <string>

#include <catch.hpp>

using namespace velt::test;

namespace
{
/// A trace viewer that runs until the end of the scope, so that its file is in use.
class RunningViewer
{
public:
    explicit RunningViewer(const std::wstring& path)
        : m_process(StartProcess(L'"' + path + L'"').process)
    {
        REQUIRE(Eventually([] { return ::FindWindowW(L"VeltTraceViewer", nullptr) != nullptr; }));
    }

    RunningViewer(const RunningViewer&) = delete;
    RunningViewer& operator=(const RunningViewer&) = delete;

    ~RunningViewer()
    {
        ::TerminateProcess(m_process.Get(), 98);
        ::WaitForSingleObject(m_process.Get(), 60'000);
    }

    bool Runs() const
    {
        return ::WaitForSingleObject(m_process.Get(), 0) == WAIT_TIMEOUT;
    }

private:
    velt::UniqueKernelObject m_process;
};
} // namespace

TEST_CASE("An upgrade: takes the place of the earlier version, with its features", "[installer]")
{
    const Scope& scope = GENERATE(0, 1) == 0 ? kAllUsers : kCurrentUser;
    INFO(scope.name);
    const Package& package = OwnPackage();
    REQUIRE(InstallEarlier(package, scope, L"ADDLOCAL=Runtime,Developer") == ERROR_SUCCESS);
    CHECK((ListedValue(package, L"DisplayVersion") == L"11.9.0"));
    CHECK(std::filesystem::exists(InstalledFolder(scope) + kWithdrawn));

    REQUIRE(Install(package, scope) == ERROR_SUCCESS);
    CheckRuntime(package, scope);
    CheckWorks(package, scope);
    if (std::filesystem::exists(InstalledFolder(scope) + L"README.md"))
    {
        CheckDeveloper(scope, true);
        CheckTools(package, scope, false);
    }
    else
    {
        WARN("the installer does not keep the earlier version's choice of features");
        CheckDeveloper(scope, false);
        CheckTools(package, scope, true);
    }
    CHECK_FALSE(std::filesystem::exists(InstalledFolder(scope) + kWithdrawn));

    CHECK(Remove(package, scope) == ERROR_SUCCESS);
    CHECK(ChangesOfTheMachine() == "");
}

TEST_CASE("An upgrade: an earlier version is refused over a later one", "[installer]")
{
    const Package& package = OwnPackage();
    REQUIRE(Install(package, kAllUsers) == ERROR_SUCCESS);
    const std::string installed = ChangesOfTheMachine();
    CheckRefused(package, true,
                 "A later version of " + velt::Utf8FromWide(package.productName) +
                     " is installed.");
    CHECK(ChangesOfTheMachine() == installed);
    CheckRuntime(package, kAllUsers);
    CheckWorks(package, kAllUsers);
    CHECK(Remove(package, kAllUsers) == ERROR_SUCCESS);
    CHECK(ChangesOfTheMachine() == "");
}

TEST_CASE("An upgrade and a removal while files are in use", "[installer]")
{
    const Package& package = OwnPackage();
    REQUIRE(InstallEarlier(package, kAllUsers) == ERROR_SUCCESS);
    const std::wstring folder = InstalledFolder(kAllUsers);
    const std::wstring own = folder + package.editions.back().folder + L'\\';
    {
        const RunningViewer viewer(own + kViewer);
        const DWORD result = Install(package, kAllUsers);
        CHECK((result == ERROR_SUCCESS || result == ERROR_SUCCESS_REBOOT_REQUIRED));
        if (result == ERROR_SUCCESS)
        {
            WARN("the installer did not say that files in use need another start");
        }
        CHECK(viewer.Runs());
    }
    // Whatever becomes of the file at the next start, a repair makes it whole.
    REQUIRE(Repair(package, kAllUsers) == ERROR_SUCCESS);
    CheckRuntime(package, kAllUsers);
    CheckTools(package, kAllUsers, true);
    CheckWorks(package, kAllUsers);
    {
        const RunningViewer viewer(own + kViewer);
        const DWORD result = Remove(package, kAllUsers);
        CHECK((result == ERROR_SUCCESS || result == ERROR_SUCCESS_REBOOT_REQUIRED));
        CHECK(viewer.Runs());
        CHECK(ListedValue(package, L"DisplayVersion").empty());
        CHECK(RegisteredLibrary(HKEY_LOCAL_MACHINE, package.editions.back()).empty());
    }
    std::filesystem::remove_all(folder); // what goes at the next start of Windows
    CHECK(ChangesOfTheMachine() == "");
}
