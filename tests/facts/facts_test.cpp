// The program that asks about the system, run as a person runs it.

#include "tests/support/child_process.h"
#include "tests/support/edition.h"
#include "tests/support/eventually.h"
#include "tests/support/registry_snapshot.h"
#include "tests/support/temp_folder.h"

#include <windows.h>

#include <catch.hpp>

#include <string>
#include <vector>

using namespace velt::test;

namespace
{
// Beyond the sum of all limits that the program has itself.
constexpr DWORD kWholeLimitMs = 1'000'000;

DWORD RunFacts(const std::wstring& arguments)
{
    return RunProcess(std::wstring(L"\"") + VELT_FACTS + L"\" " + arguments, kWholeLimitMs);
}

std::string TextOf(const std::wstring& path)
{
    std::string text;
    if (std::FILE* file = ::_wfopen(path.c_str(), L"rb"))
    {
        std::vector<char> bytes(1'000'000);
        text.assign(bytes.data(), std::fread(bytes.data(), 1, bytes.size(), file));
        std::fclose(file);
    }
    return text;
}

/// The names in the folder of temporary files.
std::vector<std::wstring> TemporaryFiles()
{
    wchar_t folder[MAX_PATH + 1] = {};
    ::GetTempPathW(MAX_PATH, folder);
    std::vector<std::wstring> names;
    WIN32_FIND_DATAW found{};
    const HANDLE search = ::FindFirstFileW((std::wstring(folder) + L"*").c_str(), &found);
    for (BOOL more = search != INVALID_HANDLE_VALUE; more; more = ::FindNextFileW(search, &found))
    {
        names.emplace_back(found.cFileName);
    }
    ::FindClose(search);
    return names;
}

/// Of the registry, what the questions touch, and what registration writes.
std::vector<RegistryTree> Registry()
{
    return {SnapshotRegistry(HKEY_CURRENT_USER, L"Software\\Classes"),
            SnapshotRegistry(HKEY_CURRENT_USER, L"Software\\VeltFacts"),
            SnapshotRegistry(HKEY_LOCAL_MACHINE, L"Software\\Classes")};
}
} // namespace

TEST_CASE("facts.exe: a fact that crashes or hangs costs its own answer alone", "[facts]")
{
    const TempFolder folder;
    const std::wstring report = folder.File(L"facts.json");
    REQUIRE(RunFacts(L"--only self. --limit 5 --json \"" + report + L"\"") == 0);
    const std::string text = TextOf(report);
    CAPTURE(text);
    CHECK(text.find(R"("id": "self.crash", "seen": "ended with 0x)") != std::string::npos);
    CHECK(text.find(R"("id": "self.hang", "seen": "no answer in time")") != std::string::npos);
}

TEST_CASE("facts.exe: the answers are those of the list, and nothing is left behind", "[facts]")
{
    const TempFolder folder;
    const std::wstring report = folder.File(L"facts.json");
    // Wine's script host registers its own library when it is first used.
    REQUIRE(RunFacts(L"--only script.uncaught --json \"" + report + L"\"") == 0);
    const std::vector<RegistryTree> before = Registry();
    const std::vector<std::wstring> filesBefore = TemporaryFiles();
    // Under Wine, a column that nobody has filled is told on the way, and is no failure.
    CHECK(RunFacts(L"--check --json \"" + report + L"\"") == 0);
    const std::vector<RegistryTree> after = Registry();
    for (std::size_t i = 0; i < before.size(); ++i)
    {
        const std::string difference = RegistryDifference(before[i], after[i]);
        CAPTURE(difference);
        CHECK(difference.empty());
    }
    CHECK(TemporaryFiles() == filesBefore);
    const std::string text = TextOf(report);
    for (const char* field : {R"("system": ")", R"("version": ")", R"("edition": ")",
                              R"("codePage": ")", R"("rights": ")", R"("verdict": "as expected")"})
    {
        CAPTURE(field);
        CHECK(text.find(field) != std::string::npos);
    }
}

TEST_CASE("facts.exe: what a run that was cut off has left is taken back by the next one",
          "[facts]")
{
    const TempFolder folder;
    const std::vector<RegistryTree> before = Registry();
    const std::wstring answer = L" \"" + folder.File(L"answer.txt") + L"\"";
    REQUIRE(RunFacts(L"--ask registry.merged-view" + answer) == 0);
    REQUIRE(RunFacts(L"--ask registry.library-keys" + answer) == 0);
    CHECK(Registry() != before);
    REQUIRE(RunFacts(L"--only self.crash --json \"" + folder.File(L"facts.json") + L"\"") == 0);
    CHECK(Registry() == before);
}

TEST_CASE("facts.exe: ended at any moment, it leaves nothing behind", "[facts]")
{
    const TempFolder folder;
    const std::vector<RegistryTree> before = Registry();
    const std::vector<std::wstring> filesBefore = TemporaryFiles();
    const std::wstring command = std::wstring(L"\"") + VELT_FACTS +
                                 L"\" --only registry. --json \"" + folder.File(L"facts.json") +
                                 L"\"";
    const ChildProcess child = StartProcess(command);
    // Its folder is there, so its guard is about to be; the moment is any one after that.
    CHECK(Eventually([&] { return TemporaryFiles() != filesBefore; }));
    const DWORD moment = 500 + ::GetTickCount() % 3000;
    CAPTURE(moment);
    ::WaitForSingleObject(child.process.Get(), moment);
    ::TerminateProcess(child.process.Get(), 1);
    CHECK(Eventually([&] { return TemporaryFiles() == filesBefore; }));
    CHECK(Eventually([&] { return Registry() == before; }));
}
