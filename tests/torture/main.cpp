// Has every call that the component makes to the system fail, one after the other, and looks at
// what becomes of it.
//
//   torture.exe [--only <text>] [--pairs] [--seed <number> --limit <seconds>] [--json <file>]
//   torture.exe --soak [--processes <number>] [--seconds <number>] [--period <seconds>]
//       [--seed <number>] [--fault-one-in <number>] [--only <text>] [--agent] [--folder <folder>]
//   torture.exe --list
//   torture.exe --run "<room>: <operation>" <run>
//
// Each operation is run once for each of its calls and each way in which that call fails; with
// --pairs, the short ones also with an allocation and a later call failing together. With a seed, a
// few runs of each operation are chosen by it, until the limit. --only takes the operations whose
// name has the text in it. Prints a table of all operations, then what was found; the exit code is
// 0 when that was nothing. --run repeats one run and says more of it: which code called, and which
// blocks are left.
//
// --soak runs all operations for long, with a random fault in some: in so many processes, those of
// each kind on a thread of its own, while the trace viewer gets the lines, and with --agent beside
// the sample update agent. For each period a line goes to a file for each process in the folder;
// scripts/soak.py says what becomes of them.
//
// The runs are made in processes of their own: after one that crashes or hangs, the next process
// goes on with the next run.

#include "foundation/unique_handle.h"
#include "tests/support/child_process.h"
#include "tests/torture/runner.h"
#include "tests/torture/soak.h"

#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace
{
using velt::torture::Plan;

constexpr std::size_t kRunsOfSample = 5; // of each operation

struct Row
{
    std::string name;
    unsigned calls = 0;
    unsigned faults = 0;
    unsigned pairs = 0;
    std::vector<std::string> findings;
};

class Parent
{
public:
    Parent(Plan plan, DWORD limitMs) : m_plan(std::move(plan)), m_limitMs(limitMs) {}

    Parent(const Parent&) = delete;
    Parent& operator=(const Parent&) = delete;

    ~Parent() = default;

    void Run()
    {
        while (RunChild())
        {
        }
    }

    std::size_t Print() const
    {
        std::size_t findings = 0;
        Row sum;
        std::printf(
            "| operation | calls | faults | pairs | findings |\n|---|---:|---:|---:|---:|\n");
        for (const Row& row : m_rows)
        {
            Print(row, row.findings.size());
            findings += row.findings.size();
            sum.calls += row.calls;
            sum.faults += row.faults;
            sum.pairs += row.pairs;
        }
        sum.name = std::to_string(m_rows.size()) + " operations";
        Print(sum, findings);
        if (findings > 0)
        {
            std::printf("\n"); // the end of the table
        }
        for (const Row& row : m_rows)
        {
            for (const std::string& finding : row.findings)
            {
                std::printf("- %s: %s\n", row.name.c_str(), finding.c_str());
            }
        }
        return findings;
    }

    void WriteJson(const std::string& path) const
    {
        std::FILE* const file = std::fopen(path.c_str(), "wb");
        if (!file)
        {
            throw std::runtime_error("cannot be written: " + path);
        }
        const char* separator = "[\n";
        for (const Row& row : m_rows)
        {
            std::fprintf(file,
                         "%s{\"operation\": \"%s\", \"calls\": %u, \"faults\": %u, \"pairs\": %u, "
                         "\"findings\": [",
                         separator, row.name.c_str(), row.calls, row.faults, row.pairs);
            const char* comma = "";
            for (const std::string& finding : row.findings)
            {
                std::fprintf(file, "%s\"%s\"", comma, finding.c_str());
                comma = ", ";
            }
            std::fprintf(file, "]}");
            separator = ",\n";
        }
        std::fprintf(file, "\n]\n");
        std::fclose(file);
    }

private:
    static void Print(const Row& row, std::size_t findings)
    {
        std::printf("| %s | %u | %u | %u | %u |\n", row.name.c_str(), row.calls, row.faults,
                    row.pairs, static_cast<unsigned>(findings));
    }

    /// Runs one process to its end; whether another one is to go on.
    bool RunChild()
    {
        SECURITY_ATTRIBUTES inherited{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
        velt::UniqueKernelObject reader;
        velt::UniqueKernelObject writer;
        {
            HANDLE ends[2] = {};
            if (!::CreatePipe(&ends[0], &ends[1], &inherited, 0))
            {
                throw std::runtime_error("no pipe");
            }
            reader.Reset(ends[0]);
            writer.Reset(ends[1]);
        }
        ::SetHandleInformation(reader.Get(), HANDLE_FLAG_INHERIT, 0);
        STARTUPINFOW startup{};
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdOutput = writer.Get();
        startup.hStdError = ::GetStdHandle(STD_ERROR_HANDLE);
        const velt::test::ChildProcess child = velt::test::StartProcess(CommandLine(), 0, startup);
        writer.Reset();
        m_isOver = false;
        std::string text;
        char bytes[4096];
        DWORD read = 0;
        while (!m_isOver && ::ReadFile(reader.Get(), bytes, sizeof(bytes), &read, nullptr) &&
               read > 0)
        {
            text.append(bytes, read);
            std::size_t end = 0;
            while (!m_isOver && (end = text.find('\n')) != text.npos)
            {
                TakeLine(text.substr(0, end));
                text.erase(0, end + 1);
            }
        }
        if (m_isOver)
        {
            ::TerminateProcess(child.process.Get(), 0);
            return false;
        }
        ::WaitForSingleObject(child.process.Get(), INFINITE);
        DWORD code = 0;
        ::GetExitCodeProcess(child.process.Get(), &code);
        return GoesOnAfter(code);
    }

    std::wstring CommandLine() const
    {
        wchar_t self[MAX_PATH] = {};
        ::GetModuleFileNameW(nullptr, self, MAX_PATH);
        std::wstring line = L"\"" + std::wstring(self) + L"\" --child " +
                            std::to_wstring(m_plan.seed) + L" " + std::to_wstring(m_plan.runs) +
                            L" " + std::to_wstring(m_plan.withPairs) + L" \"" +
                            std::wstring(m_plan.only.begin(), m_plan.only.end()) + L"\" " +
                            std::to_wstring(m_plan.operation) + L" " + std::to_wstring(m_plan.run);
        for (const std::size_t skipped : m_plan.skipped)
        {
            line += L" " + std::to_wstring(skipped);
        }
        return line;
    }

    void TakeLine(std::string line)
    {
        if (!line.empty() && line.back() == '\r')
        {
            line.pop_back();
        }
        const std::size_t blank = line.find(' ');
        const std::string word = line.substr(0, blank);
        const std::string rest = blank == line.npos ? "" : line.substr(blank + 1);
        const std::size_t second = rest.find(' ');
        const std::string tail = second == rest.npos ? "" : rest.substr(second + 1);
        if (word == "op")
        {
            const std::size_t place = std::stoul(rest);
            if (m_rows.empty() || place != m_plan.operation || m_rows.back().name != tail)
            {
                m_rows.push_back({tail, 0, 0, 0, {}});
                m_plan.skipped.clear();
                m_plan.run = 0;
            }
            m_plan.operation = place;
            m_isRunning = false;
        }
        else if (word == "plan")
        {
            m_rows.back().calls = static_cast<unsigned>(std::stoul(rest));
        }
        else if (word == "run")
        {
            m_plan.run = std::stoul(rest);
            m_fault = tail;
            m_isRunning = true;
            Row& row = m_rows.back();
            ++(m_fault.find(", then ") == m_fault.npos ? row.faults : row.pairs);
            m_details.clear();
            m_isOver = m_limitMs != 0 && ::GetTickCount64() - m_start > m_limitMs;
        }
        else if (word == "find")
        {
            Find(rest);
        }
        else if (word == "note")
        {
            std::fprintf(stderr, "%s: %s\n", m_rows.back().name.c_str(), rest.c_str());
        }
        else if (word != "end")
        {
            m_details += " " + line; // of a crash
        }
    }

    void Find(const std::string& what)
    {
        const std::string finding =
            m_isRunning ? "run " + std::to_string(m_plan.run) + ", " + m_fault + ": " + what : what;
        m_rows.back().findings.push_back(finding);
        std::fprintf(stderr, "%s: %s\n", m_rows.back().name.c_str(), finding.c_str());
    }

    bool GoesOnAfter(DWORD code)
    {
        if (code == velt::torture::kEnded)
        {
            return false;
        }
        if (code == velt::torture::kBroken || m_rows.empty())
        {
            throw std::runtime_error("the program itself does not work:" + m_details);
        }
        if (code == velt::torture::kHung && !std::exchange(m_hasHung, true))
        {
            return true; // the machine may be slow: once more
        }
        m_hasHung = false;
        if (code != velt::torture::kGoOn)
        {
            char text[40];
            std::snprintf(text, sizeof(text), "the process ends with 0x%lX", code);
            Find(text + std::string(":") + m_details);
            m_plan.skipped.push_back(m_plan.run);
        }
        if (m_isRunning)
        {
            ++m_plan.run;
        }
        else
        {
            ++m_plan.operation; // not even its ordinary run
            m_plan.run = 0;
        }
        return true;
    }

    Plan m_plan;
    const DWORD m_limitMs;
    const ULONGLONG m_start = ::GetTickCount64();
    std::vector<Row> m_rows;
    std::string m_fault;
    std::string m_details;
    bool m_isRunning = false;
    bool m_hasHung = false;
    bool m_isOver = false;
};

int PassedCode()
{
    const char* const code = std::getenv("VELT_PASSED_CODE");
    return code ? std::stoi(code) : EXIT_SUCCESS;
}

int Main(const std::vector<std::string>& arguments)
{
    Plan plan;
    DWORD limitMs = 0;
    std::string json;
    for (std::size_t i = 0; i < arguments.size(); ++i)
    {
        const std::string& option = arguments[i];
        const auto value = [&]() -> const std::string& { return arguments.at(++i); };
        if (option == "--child")
        {
            plan.seed = static_cast<unsigned>(std::stoul(value()));
            plan.runs = std::stoul(value());
            plan.withPairs = value() == "1";
            plan.only = value();
            plan.operation = std::stoul(value());
            plan.run = std::stoul(value());
            while (i + 1 < arguments.size())
            {
                plan.skipped.push_back(std::stoul(value()));
            }
            return static_cast<int>(velt::torture::RunChild(plan));
        }
        if (option == "--soak" || option == "--soak-child")
        {
            const std::vector<std::string> rest(arguments.begin() + 1, arguments.end());
            const unsigned code = option == "--soak" ? velt::torture::RunSoak(rest)
                                                     : velt::torture::RunSoakChild(rest);
            return code == velt::torture::kEnded ? PassedCode() : static_cast<int>(code);
        }
        if (option == "--list")
        {
            velt::torture::ListOperations();
            return EXIT_SUCCESS;
        }
        if (option == "--run")
        {
            const std::string& name = value();
            return static_cast<int>(velt::torture::RunOne(name, std::stoul(value())));
        }
        if (option == "--only")
        {
            plan.only = value();
        }
        else if (option == "--pairs")
        {
            plan.withPairs = true;
        }
        else if (option == "--seed")
        {
            plan.seed = static_cast<unsigned>(std::stoul(value()));
            plan.runs = kRunsOfSample;
        }
        else if (option == "--limit")
        {
            limitMs = static_cast<DWORD>(std::stoul(value())) * 1000;
        }
        else if (option == "--json")
        {
            json = value();
        }
        else
        {
            throw std::invalid_argument("unknown: " + option);
        }
    }
    if (plan.seed != 0)
    {
        std::printf("seed %u\n", plan.seed);
    }
    Parent parent(plan, limitMs);
    parent.Run();
    const std::size_t findings = parent.Print();
    if (!json.empty())
    {
        parent.WriteJson(json);
    }
    return findings > 0 ? EXIT_FAILURE : PassedCode();
}
} // namespace

int main(int argc, char* argv[])
{
    try
    {
        return Main({argv + 1, argv + argc});
    }
    catch (const std::exception& e)
    {
        std::printf("%s\n", e.what());
        std::fprintf(stderr, "torture: %s\n", e.what());
        return static_cast<int>(velt::torture::kBroken);
    }
}
