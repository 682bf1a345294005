// Asks the system whether it is what the product takes it for, prints a table and writes JSON.
//
//   facts.exe [--json FILE] [--only PREFIX] [--limit SECONDS] [--check]
//
//   --json   where the report goes; facts.json in the current folder by default
//   --only   the facts whose identifiers begin so; "self." are two that fail, to see that they stop
//            nothing
//   --limit  for each fact, 120 seconds by default
//   --check  ends with 1 when a fact is not as the list says of this very system
//
//   facts.exe --run PROGRAM    runs a test, and makes the registry what it was; ends with its code
//   facts.exe --elevated       ends with 0 when it is, else with 1
//
// Each fact is asked in a process of its own (--ask), and what it wrote is taken back in another
// one
// (--undo), so a fact that crashes or hangs costs its own answer alone. What is left by a run that
// is ended midway, a third one takes back (--guard).

#include "foundation/unique_handle.h"
#include "foundation/wide_text.h"
#include "tests/facts/fact.h"
#include "tests/facts/fact_list.h"
#include "tests/facts/facts_resources.h"
#include "tests/facts/helpers.h"
#include "tests/facts/machine_state.h"
#include "tests/support/temp_folder.h"

#include <windows.h>

#include <shellapi.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

namespace velt::facts
{
namespace
{
constexpr wchar_t kAnswerFile[] = L"answer.txt";
constexpr wchar_t kWorkFolder[] = L"work";

// What a fact's process ends with.
constexpr DWORD kAnswered = 0;
constexpr DWORD kLeftOut = 3;
constexpr DWORD kFailed = 4;

std::string AskCrash()
{
    ::RaiseException(EXCEPTION_ACCESS_VIOLATION, EXCEPTION_NONCONTINUABLE, 0, nullptr);
    return "went on";
}

std::string AskHang()
{
    ::Sleep(INFINITE);
    return "woke up";
}

constexpr Fact kSelfFacts[] = {{"self.crash", &AskCrash}, {"self.hang", &AskHang}};

std::vector<std::span<const Fact>> AllFacts()
{
    return {ComFacts(),    DocumentFacts(), InternetFacts(),
            LoaderFacts(), RegistryFacts(), WindowFacts()};
}

const Fact* FindFact(std::string_view id)
{
    std::vector<std::span<const Fact>> all = AllFacts();
    all.emplace_back(kSelfFacts);
    for (const auto facts : all)
    {
        for (const Fact& fact : facts)
        {
            if (fact.id == id)
            {
                return &fact;
            }
        }
    }
    return nullptr;
}

std::size_t CountFacts()
{
    std::size_t count = 0;
    for (const auto facts : AllFacts())
    {
        count += facts.size();
    }
    return count;
}

/// Takes back what one question wrote; with "all", what any may have.
void Undo(std::string_view id)
{
    for (const auto facts : AllFacts())
    {
        for (const Fact& fact : facts)
        {
            if (fact.undo && (id == "all" || fact.id == id))
            {
                fact.undo();
            }
        }
    }
}

std::vector<ListEntry> FactList()
{
    const HRSRC resource = ::FindResourceW(nullptr, MAKEINTRESOURCEW(IDR_FACT_LIST), RT_RCDATA);
    const auto* text = static_cast<const char*>(::LockResource(::LoadResource(nullptr, resource)));
    return ParseFactList({text, ::SizeofResource(nullptr, resource)});
}

/// The list's column of the system that this is.
std::string ColumnHere()
{
    using Version = const char*(CDECL*)();
    const auto version = reinterpret_cast<Version>(reinterpret_cast<void*>(
        ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "wine_get_version")));
    return version ? "wine" + std::string(version()).substr(0, std::string(version()).find('.'))
                   : "expect";
}

struct Place
{
    std::string system;
    std::string version;
    std::string edition;
    std::string codePage;
    std::string rights;
};

bool IsElevated()
{
    HANDLE token = nullptr;
    TOKEN_ELEVATION elevation{};
    DWORD size = 0;
    const bool elevated =
        ::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token) &&
        ::GetTokenInformation(token, TokenElevation, &elevation, sizeof(elevation), &size) &&
        elevation.TokenIsElevated;
    if (token)
    {
        ::CloseHandle(token);
    }
    return elevated;
}

Place PlaceHere()
{
    Place place;
    place.system = "Windows";
    if (IsWine())
    {
        using Version = const char*(CDECL*)();
        place.system = "Wine ";
        place.system += reinterpret_cast<Version>(reinterpret_cast<void*>(
            ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "wine_get_version")))();
    }
    OSVERSIONINFOEXW version{};
    version.dwOSVersionInfoSize = sizeof(version);
    using GetVersionFunction = LONG(WINAPI*)(OSVERSIONINFOEXW*);
    const auto getVersion = reinterpret_cast<GetVersionFunction>(reinterpret_cast<void*>(
        ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "RtlGetVersion")));
    getVersion(&version);
    place.version = std::to_string(version.dwMajorVersion) + "." +
                    std::to_string(version.dwMinorVersion) + "." +
                    std::to_string(version.dwBuildNumber) +
                    (version.wProductType == VER_NT_WORKSTATION ? "" : " server");
    BOOL onOther = FALSE;
    ::IsWow64Process(::GetCurrentProcess(), &onOther);
    place.edition = sizeof(void*) == 8 ? "64-bit" : "32-bit";
    place.edition += onOther ? " on 64-bit Windows" : "";
    place.codePage = std::to_string(::GetACP());
    place.rights = IsElevated() ? "elevated" : "not elevated";
    return place;
}

/// A job whose processes end with this one.
HANDLE MakeJob()
{
    const HANDLE job = ::CreateJobObjectW(nullptr, nullptr);
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    ::SetInformationJobObject(job, JobObjectExtendedLimitInformation, &limits, sizeof(limits));
    return job;
}

/// Runs a program in a folder; its exit code, or WAIT_TIMEOUT when it was ended with all that it
/// had started. It does not outlive this process.
DWORD RunProgram(std::wstring command, const std::wstring& folder, DWORD limitMs)
{
    const UniqueKernelObject job(MakeJob());
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process{};
    if (!::CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, CREATE_SUSPENDED,
                          nullptr, folder.c_str(), &startup, &process))
    {
        return ::GetLastError();
    }
    const UniqueKernelObject handle(process.hProcess);
    const UniqueKernelObject thread(process.hThread);
    ::AssignProcessToJobObject(job.Get(), handle.Get());
    ::ResumeThread(thread.Get());
    if (::WaitForSingleObject(handle.Get(), limitMs) != WAIT_OBJECT_0)
    {
        ::TerminateJobObject(job.Get(), WAIT_TIMEOUT);
        ::TerminateProcess(handle.Get(), WAIT_TIMEOUT);
        ::WaitForSingleObject(handle.Get(), limitMs);
        return WAIT_TIMEOUT;
    }
    DWORD exitCode = 0;
    ::GetExitCodeProcess(handle.Get(), &exitCode);
    return exitCode;
}

/// Runs this program again.
DWORD RunSelf(const std::wstring& arguments, const std::wstring& folder, DWORD limitMs)
{
    return RunProgram(L"\"" + ThisProgram() + L"\" " + arguments, folder, limitMs);
}

/// A folder for temporary files, which goes away with this object.
class WorkFolder
{
public:
    explicit WorkFolder(std::wstring path) : m_path(std::move(path))
    {
        ::CreateDirectoryW(m_path.c_str(), nullptr);
        ::SetEnvironmentVariableW(L"TEMP", m_path.c_str());
        ::SetEnvironmentVariableW(L"TMP", m_path.c_str());
    }

    WorkFolder(const WorkFolder&) = delete;
    WorkFolder& operator=(const WorkFolder&) = delete;

    ~WorkFolder()
    {
        Remove(m_path);
    }

    /// What ended a moment ago may still hold files.
    static void Remove(const std::wstring& path)
    {
        for (int i = 0; i < 100 && ::GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
             ++i)
        {
            test::RemoveFolder(path);
            ::Sleep(i == 0 ? 0 : 100);
        }
    }

    /// Where this process's is to be.
    static std::wstring OwnPath()
    {
        std::array<wchar_t, MAX_PATH + 1> temp{};
        ::GetTempPathW(static_cast<DWORD>(temp.size()), temp.data());
        return std::wstring(temp.data()) + L"velt-facts-" +
               std::to_wstring(::GetCurrentProcessId());
    }

private:
    std::wstring m_path;
};

/// Takes back what is left when this process is ended midway: another process waits for its end. It
/// is ready when this object is made.
class Guard
{
public:
    /// `folder` goes away as well.
    explicit Guard(const std::wstring& folder)
    {
        const UniqueKernelObject ready(::CreateEventW(
            nullptr, TRUE, FALSE, EventName(kReady, ::GetCurrentProcessId()).c_str()));
        std::wstring command = L"\"" + ThisProgram() + L"\" --guard " +
                               std::to_wstring(::GetCurrentProcessId()) + L" \"" + folder + L"\"";
        STARTUPINFOW startup{};
        startup.cb = sizeof(startup);
        PROCESS_INFORMATION process{};
        // Without a console, so that closing this one's window does not end it.
        Need(ready && ::CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE,
                                       DETACHED_PROCESS, nullptr, nullptr, &startup, &process),
             "no guard");
        m_process.Reset(process.hProcess);
        ::CloseHandle(process.hThread);
        const std::array<HANDLE, 2> either{ready.Get(), m_process.Get()};
        Need(::WaitForMultipleObjects(static_cast<DWORD>(either.size()), either.data(), FALSE,
                                      INFINITE) == WAIT_OBJECT_0,
             "the guard has ended");
    }

    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

    /// This process has come to its end, and cleaned up itself.
    ~Guard()
    {
        ::TerminateProcess(m_process.Get(), 0);
    }

    /// The other process.
    static int Wait(DWORD processId, const wchar_t* folder)
    {
        const UniqueKernelObject process(::OpenProcess(SYNCHRONIZE, FALSE, processId));
        // By this, others know which processes are guards.
        const UniqueKernelObject mark(::CreateEventW(
            nullptr, TRUE, FALSE, EventName(kIsGuard, ::GetCurrentProcessId()).c_str()));
        const MachineState state;
        const UniqueKernelObject ready(
            ::OpenEventW(EVENT_MODIFY_STATE, FALSE, EventName(kReady, processId).c_str()));
        if (!process || !ready)
        {
            return 1; // it has done nothing yet
        }
        ::SetEvent(ready.Get());
        ::WaitForSingleObject(process.Get(), INFINITE);
        WorkFolder::Remove(folder); // first: until it can go, something still runs
        Undo("all");
        ::RegDeleteTreeW(HKEY_CURRENT_USER, kFactsKey);
        state.Restore();
        return 0;
    }

private:
    static constexpr wchar_t kReady[] = L"VeltFactsGuardReady-";
    static constexpr wchar_t kIsGuard[] = L"VeltFactsGuard-";

    static std::wstring EventName(const wchar_t* kind, DWORD processId)
    {
        return kind + std::to_wstring(processId);
    }

    UniqueKernelObject m_process;
};

struct Seen
{
    std::string answer;
    bool asked = false;
};

Seen AskInProcess(const Fact& fact, DWORD limitMs)
{
    const test::TempFolder folder(L"facts");
    const std::wstring work = folder.File(kWorkFolder);
    ::CreateDirectoryW(work.c_str(), nullptr);
    const std::wstring id = WideFromUtf8(fact.id);
    const std::wstring answer = folder.File(kAnswerFile);
    const DWORD ended = RunSelf(L"--ask " + id + L" \"" + answer + L"\"", work, limitMs);
    if (fact.undo)
    {
        RunSelf(L"--undo " + id, work, limitMs);
    }
    ::RegDeleteTreeW(HKEY_CURRENT_USER, kFactsKey);
    switch (ended)
    {
    case kAnswered:
        return {FileText(answer.c_str()), true};
    case kLeftOut:
        return {"not asked: " + FileText(answer.c_str()), false};
    case kFailed:
        return {"failed: " + FileText(answer.c_str()), true};
    case WAIT_TIMEOUT:
        return {"no answer in time", true};
    default:
        return {"ended with " + Hex(static_cast<HRESULT>(ended)), true};
    }
}

int AskHere(const Fact& fact, const std::wstring& file)
{
    try
    {
        WriteBytes(file.c_str(), fact.ask());
        return kAnswered;
    }
    catch (const NotAsked& reason)
    {
        WriteBytes(file.c_str(), reason.what());
        return kLeftOut;
    }
    catch (const std::exception& failure)
    {
        WriteBytes(file.c_str(), failure.what() + (", " + ErrorNumber(::GetLastError())));
        return kFailed;
    }
}

std::string JsonText(std::string_view text)
{
    std::string json = "\"";
    for (const char c : text)
    {
        if (c == '"' || c == '\\')
        {
            json += '\\';
        }
        json += static_cast<unsigned char>(c) < ' ' ? ' ' : c;
    }
    return json + "\"";
}

struct Row
{
    std::string id;
    std::string seen;
    std::string expected;
    std::string verdict; // "as expected", "differs", "not asked", "not in the list"
};

std::string Report(const Place& place, const std::vector<Row>& rows)
{
    std::string json = "{\n";
    const auto field = [&](const char* name, const std::string& text) {
        json += "  \"" + std::string(name) + "\": " + JsonText(text) + ",\n";
    };
    field("system", place.system);
    field("version", place.version);
    field("edition", place.edition);
    field("codePage", place.codePage);
    field("rights", place.rights);
    json += "  \"facts\": [";
    const char* before = "\n";
    for (const Row& row : rows)
    {
        json += before;
        json += "    {\"id\": " + JsonText(row.id) + ", \"seen\": " + JsonText(row.seen) +
                ", \"expected\": " + JsonText(row.expected) +
                ", \"verdict\": " + JsonText(row.verdict) + "}";
        before = ",\n";
    }
    return json + "\n  ]\n}\n";
}

struct Options
{
    std::wstring json = L"facts.json";
    std::string only;
    DWORD limitMs = 120000;
    bool check = false;
};

bool StartsWith(std::string_view text, std::string_view start)
{
    return text.substr(0, start.size()) == start;
}

int Run(const Options& options)
{
    const Place place = PlaceHere();
    const std::string column = ColumnHere();
    std::vector<ListEntry> list = FactList();
    std::size_t missing = 0;
    std::size_t asked = 0;
    if (StartsWith(options.only, "self."))
    {
        for (const Fact& fact : kSelfFacts)
        {
            list.push_back({fact.id, {{"expect", "an answer"}}});
        }
    }
    std::printf("%s, version %s, %s, code page %s, %s\n\n", place.system.c_str(),
                place.version.c_str(), place.edition.c_str(), place.codePage.c_str(),
                place.rights.c_str());
    const std::wstring path = WorkFolder::OwnPath();
    const Guard guard(path);
    const WorkFolder folder(path);
    // An earlier run may have been cut off together with its guard.
    RunSelf(L"--undo all", L".", options.limitMs);
    ::RegDeleteTreeW(HKEY_CURRENT_USER, kFactsKey);
    std::vector<Row> rows;
    for (const ListEntry& entry : list)
    {
        if (!StartsWith(entry.id, options.only))
        {
            continue;
        }
        Row row{entry.id, {}, entry.Text("expect"), "not asked"};
        const Fact* fact = FindFact(entry.id);
        if (!fact)
        {
            row.seen = "not asked: " + entry.Text("unasked");
            missing += entry.Text("unasked").empty();
        }
        else
        {
            ++asked;
            const Seen seen = AskInProcess(*fact, options.limitMs);
            row.seen = seen.answer;
            if (seen.asked)
            {
                row.verdict = IsOneOf(row.seen, row.expected) ? "as expected" : "differs";
            }
            const std::string known = entry.Text(column);
            if (options.check && !IsOneOf(row.seen, known))
            {
                // A column that nobody has filled yet is none that could be wrong.
                missing += known != "not yet run";
                std::printf("the list says of this system: %s\n", known.c_str());
            }
        }
        std::printf("%-12s %-34s %s\n", row.verdict.c_str(), row.id.c_str(), row.seen.c_str());
        if (row.verdict == "differs")
        {
            std::printf("%-12s %-34s %s\n", "",
                        "  Windows is expected to answer:", row.expected.c_str());
        }
        std::fflush(stdout);
        rows.push_back(std::move(row));
    }
    if (options.only.empty() && asked != CountFacts())
    {
        std::printf("there are questions that the list does not have\n");
        ++missing;
    }
    const auto count = [&](const char* verdict) {
        return static_cast<int>(std::count_if(
            rows.begin(), rows.end(), [&](const Row& row) { return row.verdict == verdict; }));
    };
    std::printf("\n%d as expected of Windows, %d differ, %d not asked\n", count("as expected"),
                count("differs"), count("not asked"));
    WriteBytes(options.json.c_str(), Report(place, rows));
    return options.check && missing > 0 ? 1 : 0;
}

/// Runs one of the component's tests; its exit code. The registry and the temporary files are as
/// before, whatever becomes of it.
int RunTest(const std::wstring& program)
{
    constexpr DWORD kLimitMs = 1'200'000;
    const std::wstring path = WorkFolder::OwnPath();
    const Guard guard(path);
    const MachineState state;
    const WorkFolder folder(path);
    const DWORD code = RunProgram(L"\"" + program + L"\"", L".", kLimitMs);
    state.Restore();
    return static_cast<int>(code);
}

int Main(int count, wchar_t** arguments)
{
    // Nothing that fails shows a window and waits.
    ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
    Options options;
    for (int i = 1; i < count; ++i)
    {
        const std::wstring name = arguments[i];
        const bool hasValue = i + 1 < count;
        if (name == L"--check")
        {
            options.check = true;
        }
        else if (name == L"--guard" && i + 2 < count)
        {
            return Guard::Wait(std::wcstoul(arguments[i + 1], nullptr, 10), arguments[i + 2]);
        }
        else if (name == L"--run" && hasValue)
        {
            return RunTest(arguments[i + 1]);
        }
        else if (name == L"--elevated")
        {
            return IsElevated() ? 0 : 1;
        }
        else if (name == L"--receive")
        {
            return RunReceiver();
        }
        else if (name == L"--load" && hasValue)
        {
            return LoadAndFree(arguments[i + 1]);
        }
        else if (name == L"--ask" && i + 2 < count)
        {
            const Fact* fact = FindFact(Utf8FromWide(arguments[i + 1]));
            return fact ? AskHere(*fact, arguments[i + 2]) : 2;
        }
        else if (name == L"--undo" && hasValue)
        {
            Undo(Utf8FromWide(arguments[i + 1]));
            return 0;
        }
        else if (name == L"--json" && hasValue)
        {
            options.json = arguments[++i];
        }
        else if (name == L"--only" && hasValue)
        {
            options.only = Utf8FromWide(arguments[++i]);
        }
        else if (name == L"--limit" && hasValue)
        {
            options.limitMs = 1000 * static_cast<DWORD>(std::wcstoul(arguments[++i], nullptr, 10));
        }
        else
        {
            std::puts("usage: facts.exe [--json FILE] [--only PREFIX] [--limit SECONDS] [--check]");
            return 2;
        }
    }
    return Run(options);
}
} // namespace
} // namespace velt::facts

int main()
{
    int count = 0;
    wchar_t** arguments = ::CommandLineToArgvW(::GetCommandLineW(), &count);
    return arguments ? velt::facts::Main(count, arguments) : 2;
}
