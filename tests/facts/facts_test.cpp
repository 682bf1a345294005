// The program that asks about the system, run as a person runs it.

#include "foundation/unique_file.h"
#include "foundation/unique_handle.h"
#include "foundation/wide_text.h"
#include "tests/support/built_file.h"
#include "tests/support/child_process.h"
#include "tests/support/component_library.h"
#include "tests/support/edition.h"
#include "tests/support/eventually.h"
#include "tests/support/registry_snapshot.h"
#include "tests/support/temp_folder.h"

#include <windows.h>

#include <tlhelp32.h>

#include <catch.hpp>

#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

using namespace velt::test;

namespace
{
// Beyond the sum of all limits that the program has itself.
constexpr DWORD kWholeLimitMs = 1'000'000;

std::wstring FactsProgram()
{
    return BuiltFile(L"tests\\facts\\facts.exe");
}

DWORD RunFacts(const std::wstring& arguments)
{
    return RunProcess(L"\"" + FactsProgram() + L"\" " + arguments, kWholeLimitMs);
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
            SnapshotRegistry(HKEY_CURRENT_USER, L"Software\\Velt"),
            SnapshotRegistry(HKEY_LOCAL_MACHINE, L"Software\\Velt"),
            SnapshotRegistry(HKEY_LOCAL_MACHINE, L"Software\\Classes")};
}

/// False also while somebody writes in it.
bool IsRegistry(const std::vector<RegistryTree>& state)
{
    try
    {
        return Registry() == state;
    }
    catch (const std::runtime_error&)
    {
        return false;
    }
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
    const std::wstring command = L"\"" + FactsProgram() + L"\" --only registry. --json \"" +
                                 folder.File(L"facts.json") + L"\"";
    const ChildProcess child = StartProcess(command);
    // Its folder is there, so its guard is about to be; the moment is any one after that.
    CHECK(Eventually([&] { return TemporaryFiles() != filesBefore; }));
    const DWORD moment = 500 + ::GetTickCount() % 3000;
    CAPTURE(moment);
    ::WaitForSingleObject(child.process.Get(), moment);
    ::TerminateProcess(child.process.Get(), 1);
    CHECK(Eventually([&] { return TemporaryFiles() == filesBefore; }));
    CHECK(Eventually([&] { return IsRegistry(before); }));
}

namespace
{
/// Ends a process and what it has started, guards aside: what comes of a console that is closed.
void EndTree(DWORD root)
{
    std::set<DWORD> ours{root};
    for (bool more = true; more;)
    {
        more = false;
        const velt::UniqueFile processes(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
        PROCESSENTRY32W process{};
        process.dwSize = sizeof(process);
        for (BOOL next = processes && ::Process32FirstW(processes.Get(), &process); next;
             next = ::Process32NextW(processes.Get(), &process))
        {
            const DWORD id = process.th32ProcessID;
            const velt::UniqueKernelObject guard(::OpenEventW(
                SYNCHRONIZE, FALSE, (L"VeltFactsGuard-" + std::to_wstring(id)).c_str()));
            if (guard || (!ours.contains(id) && !ours.contains(process.th32ParentProcessID)))
            {
                continue;
            }
            ours.insert(id);
            const velt::UniqueKernelObject handle(::OpenProcess(PROCESS_TERMINATE, FALSE, id));
            // Again until all are gone: one that is about to end may still start another.
            more = (handle && ::TerminateProcess(handle.Get(), 1)) || more;
        }
    }
}

/// A kit with one test that registers the component and one that writes files.
void MakeKit(const TempFolder& folder)
{
    const std::wstring kind = kIs64Bit ? L"x64" : L"x86";
    for (const std::wstring& made :
         {kind, kind + L"\\bin", kind + L"\\tests", std::wstring(L"samples")})
    {
        REQUIRE(::CreateDirectoryW(folder.File(made).c_str(), nullptr));
    }
    const auto copy = [&](const std::wstring& from, const std::wstring& to) {
        REQUIRE(::CopyFileW(from.c_str(), folder.File(to).c_str(), TRUE));
    };
    copy(BuiltFile(L"src\\installer\\check_kit\\check.cmd"), L"check.cmd");
    copy(FactsProgram(), kind + L"\\facts.exe");
    for (const wchar_t* const name :
         {L"VeltHTTPClient12OEM.dll", L"VeltHTTPClient12OEM.Assembly.manifest"})
    {
        copy(ShippedFile(name), kind + L"\\bin\\" + name);
    }
    copy(BuiltFile(L"tests\\foundation\\foundation_trace_test.exe"),
         kind + L"\\tests\\first_test.exe");
    copy(BuiltFile(L"tests\\ui\\eula_parts_test.exe"), kind + L"\\tests\\second_test.exe");
    folder.Write(L"left_out.txt", "");
}
} // namespace

TEST_CASE("check.cmd: ended at any moment, it leaves the registry and the disk as they were",
          "[facts]")
{
    const TempFolder kit(L"kit");
    MakeKit(kit);
    RunFacts(L"--only self.crash --json \"" + kit.File(L"facts.json") + L"\"");
    const std::vector<RegistryTree> before = Registry();
    const std::vector<std::wstring> filesBefore = TemporaryFiles();
    const unsigned seed = ::GetTickCount();
    std::minstd_rand random(seed);
    for (const wchar_t* const options : {L"/quick", L"/tests", L"/tests"})
    {
        const DWORD moment = 500 + random() % 5000;
        CAPTURE(seed, moment, velt::Utf8FromWide(options));
        const ChildProcess check =
            StartProcess(L"cmd.exe /c \"" + kit.File(L"check.cmd") + L"\" /nowait " + options);
        ::WaitForSingleObject(check.process.Get(), moment);
        EndTree(check.id);
        CHECK(Eventually([&] { return TemporaryFiles() == filesBefore; }));
        CHECK(Eventually([&] { return IsRegistry(before); }));
    }
}
