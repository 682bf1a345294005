#include "tests/torture/soak.h"

#include "foundation/wide_text.h"
#include "tests/service/service_objects.h"
#include "tests/support/apartment_thread.h"
#include "tests/support/child_process.h"
#include "tests/support/com_apartment.h"
#include "tests/support/component_library.h"
#include "tests/support/gui_usage.h"
#include "tests/support/process_usage.h"
#include "tests/support/sample_agent_server.h"
#include "tests/support/viewer_process.h"
#include "tests/torture/process_end.h"
#include "tests/torture/runner.h"
#include "tests/torture/soak_process.h"
#include "tests/torture/trial.h"
#include "update/update_agent.h"
#include "update/update_agent_class.h"

#include <wrl/client.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <stdexcept>

namespace velt::torture
{
namespace
{
constexpr DWORD kGraceSeconds = 180; // for the last record, and for a hang to be noticed
constexpr ULONGLONG kTellMs = 1'000; // how soon the end of a process is told

/// What is beside the processes that run operations.
struct SoakOptions
{
    SoakPlan plan;
    unsigned processes = 1;
    bool withAgent = false;
};

SoakOptions OptionsFrom(const std::vector<std::string>& arguments)
{
    SoakOptions options;
    for (std::size_t i = 0; i < arguments.size(); ++i)
    {
        const std::string& option = arguments[i];
        const auto value = [&]() -> const std::string& { return arguments.at(++i); };
        const auto number = [&] { return static_cast<unsigned>(std::stoul(value())); };
        if (option == "--processes")
        {
            options.processes = number();
        }
        else if (option == "--process")
        {
            options.plan.process = number();
        }
        else if (option == "--seconds")
        {
            options.plan.seconds = number();
        }
        else if (option == "--period")
        {
            options.plan.periodSeconds = number();
        }
        else if (option == "--seed")
        {
            options.plan.seed = number();
        }
        else if (option == "--fault-one-in")
        {
            options.plan.faultOneIn = number();
        }
        else if (option == "--only")
        {
            options.plan.only = value();
        }
        else if (option == "--folder")
        {
            options.plan.folder = WideFromUtf8(value());
        }
        else if (option == "--agent")
        {
            options.withAgent = true;
        }
        else
        {
            throw std::invalid_argument("unknown: " + option);
        }
    }
    return options;
}

std::wstring CommandLine(const SoakPlan& plan)
{
    wchar_t self[MAX_PATH] = {};
    ::GetModuleFileNameW(nullptr, self, MAX_PATH);
    return L"\"" + std::wstring(self) + L"\" --soak-child --process " +
           std::to_wstring(plan.process) + L" --seconds " + std::to_wstring(plan.seconds) +
           L" --period " + std::to_wstring(plan.periodSeconds) + L" --seed " +
           std::to_wstring(plan.seed) + L" --fault-one-in " + std::to_wstring(plan.faultOneIn) +
           L" --folder \"" + plan.folder + L"\" --only \"" + WideFromUtf8(plan.only) + L"\"";
}

/// The update agent as a process of its own, which stays while this does. All its interfaces stay
/// in use: giving up the last object that has one may never end under Wine.
class Agent
{
public:
    Agent()
    {
        const InText product(velt::test::kGuid);
        if (FAILED(::CoCreateInstance(kUpdateAgentClass, nullptr, CLSCTX_LOCAL_SERVER,
                                      IID_PPV_ARGS(&m_agent))) ||
            FAILED(m_agent.As(&m_extended)) ||
            FAILED(m_extended->GetUpdates(product, &m_collection)))
        {
            throw std::runtime_error("the update agent does not start");
        }
    }

    Agent(const Agent&) = delete;
    Agent& operator=(const Agent&) = delete;

    ~Agent() = default;

    /// One that does not answer any more would not let go of them either.
    void Kill() const
    {
        m_server.Kill();
    }

private:
    const velt::test::SampleAgentServer m_server{"[agent]\nconnected=1\nwanted=1\n"};
    Microsoft::WRL::ComPtr<IUpdateAgent> m_agent;
    Microsoft::WRL::ComPtr<IUpdateAgentEx> m_extended;
    Microsoft::WRL::ComPtr<IUpdateAgentCollection> m_collection;
};

void RecordViewer(const CsvRecord& csv, HANDLE viewer)
{
    const velt::test::ProcessUsage usage = velt::test::UsageOf(viewer);
    const velt::test::GuiUsage gui = velt::test::GuiUsageOf(viewer);
    CsvRecord::Line line;
    line.privateBytes = usage.privateBytes;
    line.handles = static_cast<std::ptrdiff_t>(usage.handles);
    line.gdiObjects = static_cast<std::ptrdiff_t>(gui.gdiObjects);
    line.windows = static_cast<std::ptrdiff_t>(gui.windows);
    csv.Add(line);
}

/// Tells of a process that did not end as it should.
bool HasFound(unsigned number, DWORD code)
{
    if (code != kEnded && code != kFound)
    {
        char text[80];
        std::snprintf(text, sizeof(text), "process %u ends with 0x%lX\n", number, code);
        Say(text);
    }
    return code != kEnded;
}
} // namespace

unsigned RunSoakChild(const std::vector<std::string>& arguments)
{
    return RunSoakProcess(OptionsFrom(arguments).plan);
}

unsigned RunSoak(const std::vector<std::string>& arguments)
{
    const SoakOptions options = OptionsFrom(arguments);
    const velt::test::ComApartment apartment;
    {
        const velt::test::ComponentLibrary library;
        library.RegisterServer(); // other apartments need it
    }
    const std::unique_ptr<Agent> agent = options.withAgent ? std::make_unique<Agent>() : nullptr;
    velt::test::ViewerProcess viewer(L"--keep 20000"); // soon full: from then on it stays as it is
    viewer.AwaitWindow();
    const CsvRecord csv(options.plan.folder + L"\\viewer.csv", "viewer");

    STARTUPINFOW startup{};
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = ::GetStdHandle(STD_OUTPUT_HANDLE);
    startup.hStdError = ::GetStdHandle(STD_ERROR_HANDLE);
    std::map<unsigned, velt::test::ChildProcess> running; // by their numbers
    SoakPlan plan = options.plan;
    for (plan.process = 1; plan.process <= options.processes; ++plan.process)
    {
        running.emplace(plan.process, velt::test::StartProcess(CommandLine(plan), 0, startup));
    }

    bool hasFound = false;
    const ULONGLONG limit = ::GetTickCount64() + (plan.seconds + kGraceSeconds) * 1000ULL;
    ULONGLONG next = 0;
    while (!running.empty())
    {
        const ULONGLONG now = ::GetTickCount64();
        if (now >= next)
        {
            RecordViewer(csv, viewer.Process());
            next = now + plan.periodSeconds * 1000ULL;
        }
        const HANDLE first = running.begin()->second.process.Get();
        if (now > limit)
        {
            Say("a process does not end\n");
            ::TerminateProcess(first, kHung);
        }
        velt::test::ApartmentThread::WaitPumping(first,
                                                 static_cast<DWORD>(std::min(next - now, kTellMs)));
        std::erase_if(running, [&](const auto& child) {
            const auto& [number, started] = child;
            DWORD code = kBroken;
            const HANDLE process = started.process.Get();
            if (::WaitForSingleObject(process, 0) != WAIT_OBJECT_0)
            {
                return false;
            }
            ::GetExitCodeProcess(process, &code);
            hasFound |= HasFound(number, code);
            return true;
        });
    }
    if (agent && hasFound)
    {
        agent->Kill();
    }
    RecordViewer(csv, viewer.Process());
    hasFound |= viewer.Close() != 0;
    return hasFound ? kFound : kEnded;
}
} // namespace velt::torture
