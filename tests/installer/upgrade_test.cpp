// Another version over an earlier one: nothing of that is left when it succeeds, and all of it when
// it fails.

#include "tests/installer/installation.h"

#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include <catch.hpp>

using namespace velt::test;

namespace
{
constexpr wchar_t kWithdrawn[] = L"withdrawn\\withdrawn.txt"; // only the earlier version has it

/// The earlier version, whole and registered.
void CheckEarlier(const Scope& scope, const std::set<std::wstring>& files)
{
    CHECK((Value(scope.root, kProductKey, L"DisplayVersion") == L"11.9.0.0"));
    CHECK((Value(scope.root, kProductKey, L"InstallLocation") == scope.folder));
    CHECK(std::filesystem::exists(scope.File(kWithdrawn)));
    CHECK((FilesBelow(scope.folder) == files));
    CHECK_FALSE(std::filesystem::exists(scope.File(kNewFiles)));
    CHECK_FALSE(std::filesystem::exists(scope.File(kFormerFiles)));
    CheckWorks(scope);
}

/// A file that nobody else can open, rename or delete.
velt::UniqueKernelObject HeldFile(const std::wstring& path)
{
    const HANDLE file =
        ::CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    REQUIRE(file != INVALID_HANDLE_VALUE);
    return velt::UniqueKernelObject(file);
}
} // namespace

TEST_CASE("An upgrade: replaces files in use, and takes away those that are there no more",
          "[installer]")
{
    const Scope scope = GENERATE(0, 1) == 0 ? AllUsers() : CurrentUser();
    INFO(scope.name);
    REQUIRE(InstallEarlier(scope.argument) == 0);
    CHECK((Value(scope.root, kProductKey, L"DisplayVersion") == L"11.9.0.0"));
    CHECK(std::filesystem::exists(scope.File(kWithdrawn)));
    {
        const PendingRemovals pending;
        const RunningViewer viewer(scope.File(kViewer));
        const LoadedLibrary library(scope.File(kLibrary));
        REQUIRE(Install(scope.argument) == 0);
        CHECK(viewer.Runs());
        CHECK((Value(scope.root, kProductKey, L"DisplayVersion") == VELT_VERSION));
        CHECK(std::filesystem::exists(scope.File(kViewer)));
        CHECK(std::filesystem::exists(scope.File(kLibrary)));
        // The former ones go when Windows starts again, or with the next installation.
        CHECK(FilesBelow(scope.File(kFormerFiles)).size() == 2);
        CHECK(pending.Below(scope.File(kFormerFiles)) >= 2);
    }
    CHECK_FALSE(std::filesystem::exists(scope.File(L"withdrawn")));
    CheckWorks(scope);
    REQUIRE(Install(scope.argument) == 0);
    CheckInstalled(scope);
    CHECK_FALSE(std::filesystem::exists(scope.File(kFormerFiles)));
    CHECK(Uninstall(scope.folder) == 0);
    CHECK_FALSE(std::filesystem::exists(scope.folder));
    CHECK(ChangesOfTheMachine() == "");
}

TEST_CASE("An upgrade: leaves what others put there, whatever the list of the former files says",
          "[installer]")
{
    const Scope scope = CurrentUser();
    REQUIRE(InstallEarlier(scope.argument) == 0);
    const std::filesystem::path folder = scope.folder;
    const std::filesystem::path beside = folder.parent_path() / L"beside.txt";
    const std::filesystem::path mine = folder / L"withdrawn" / L"mine.txt";
    std::ofstream(beside) << "somebody else's";
    std::ofstream(mine) << "somebody else's";
    std::ofstream(folder / L"Uninstall.txt", std::ios::app)
        << "..\\beside.txt\n\nwithdrawn\n\\\nmissing\\file.txt\n";
    REQUIRE(Install(scope.argument) == 0);
    CHECK(std::filesystem::exists(beside));
    CHECK(std::filesystem::exists(mine));
    CHECK_FALSE(std::filesystem::exists(scope.File(kWithdrawn)));
    std::filesystem::remove(beside);
    std::filesystem::remove_all(mine.parent_path());
    CheckInstalled(scope);
    CHECK(Uninstall(scope.folder) == 0);
    CHECK_FALSE(std::filesystem::exists(scope.folder));
    CHECK(ChangesOfTheMachine() == "");
}

TEST_CASE("An upgrade that cannot write or move a file: leaves the earlier version whole",
          "[installer]")
{
    const Scope scope = AllUsers();
    REQUIRE(InstallEarlier(scope.argument) == 0);
    const auto files = FilesBelow(scope.folder);
    const std::filesystem::path folder = scope.folder;
    {
        INFO("where the new files go first, there is a file");
        std::ofstream(folder / kNewFiles) << "in the way";
        CHECK(Install(scope.argument) == kNotCompleted);
        std::filesystem::remove(folder / kNewFiles);
        CheckEarlier(scope, files);
    }
    {
        INFO("a former file cannot be moved, while programs run");
        const RunningViewer viewer(scope.File(kViewer));
        {
            const auto held = HeldFile(scope.File(L"samples\\eula_script.js"));
            CHECK(Install(scope.argument) == kNotCompleted);
        }
        CHECK(viewer.Runs());
        CheckEarlier(scope, files);
    }
    CHECK(Uninstall(scope.folder) == 0);
    CHECK_FALSE(std::filesystem::exists(scope.folder));
    CHECK(ChangesOfTheMachine() == "");
}

TEST_CASE("An upgrade that finds something in its way: leaves the earlier version whole",
          "[installer]")
{
    const Scope scope = CurrentUser();
    REQUIRE(InstallEarlier(scope.argument) == 0);
    const auto files = FilesBelow(scope.folder);
    const std::filesystem::path folder = scope.folder;
    {
        INFO("a file that is there no more cannot be moved");
        {
            const auto held = HeldFile(scope.File(kWithdrawn));
            CHECK(Install(scope.argument) == kNotCompleted);
        }
        CheckEarlier(scope, files);
    }
    {
        INFO("a folder stands where a file goes");
        std::filesystem::remove(folder / L"README.md");
        std::filesystem::create_directories(folder / L"README.md" / L"mine");
        CHECK(Install(scope.argument) == kNotCompleted);
        CHECK(std::filesystem::exists(folder / L"README.md" / L"mine"));
        std::filesystem::remove_all(folder / L"README.md");
        std::ofstream(folder / L"README.md") << "mended";
        CheckEarlier(scope, files);
    }
    CHECK(Uninstall(scope.folder) == 0);
    CHECK_FALSE(std::filesystem::exists(scope.folder));
    CHECK(ChangesOfTheMachine() == "");
}

TEST_CASE("An upgrade that cannot register: leaves the earlier version and its files",
          "[installer]")
{
    constexpr wchar_t kFirstKey[] = L"Software\\Classes\\AppID"; // that the component writes to
    const Scope scope = CurrentUser();
    REQUIRE(InstallEarlier(scope.argument) == 0);
    const auto files = FilesBelow(scope.folder);
    {
        INFO("in its folder");
        const DeniedKey denied(HKEY_CURRENT_USER, kFirstKey);
        CHECK(Install(scope.argument) == kNotRegistered);
    }
    CheckEarlier(scope, files);
    {
        INFO("in another one");
        const std::wstring other = scope.folder + L" other";
        const DeniedKey denied(HKEY_CURRENT_USER, kFirstKey);
        CHECK(Install(scope.argument + (L" /D=" + other)) == kNotRegistered);
        CHECK_FALSE(std::filesystem::exists(other));
    }
    CheckEarlier(scope, files);
    CHECK(Uninstall(scope.folder) == 0);
    CHECK(ChangesOfTheMachine() == "");
}
