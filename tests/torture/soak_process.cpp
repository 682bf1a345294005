#include "tests/torture/soak_process.h"

#include "foundation/unique_handle.h"
#include "tests/support/apartment_thread.h"
#include "tests/support/com_apartment.h"
#include "tests/support/component_library.h"
#include "tests/support/eventually.h"
#include "tests/support/process_usage.h"
#include "tests/torture/fault_engine.h"
#include "tests/torture/process_end.h"
#include "tests/torture/runner.h"
#include "tests/torture/trial.h"
#include "tests/torture/usage.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <exception>
#include <memory>
#include <random>
#include <stdexcept>
#include <utility>
#include <vector>

namespace velt::torture
{
namespace
{
using velt::UniqueKernelObject;
using velt::test::ApartmentThread;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr ULONGLONG kHangMs = 60'000;
constexpr DWORD kLookMs = 500;
constexpr LONG kMostFindings = 50; // that are printed

/// Operations that run on one thread, and how often at most; a thread rests as long as it has
/// worked anyway, so that a run takes a part of the machine only.
struct LaneKind
{
    const char* name;
    milliseconds period;
};

constexpr LaneKind kLaneKinds[] = {
    {"load", milliseconds(1000)},  {"server", milliseconds(50)},  {"collection", milliseconds(50)},
    {"service", milliseconds(50)}, {"update", milliseconds(400)}, {"exchange", milliseconds(400)},
    {"ui", milliseconds(2000)},
};

/// The lane of an operation; empty for the one that changes the whole machine's registration, which
/// the others use.
std::string_view LaneOf(const Operation& operation)
{
    const std::string_view room = operation.room;
    const std::string_view name = operation.name;
    if (room == "server" && name.starts_with("Load"))
    {
        return "load";
    }
    if (name == "DllRegisterServer")
    {
        return {};
    }
    return room == "connection" || room == "internet" ? "exchange" : room;
}

/// How many bytes of heaps the system keeps for good of each run of an operation, whoever makes it
/// (on Windows none): the median of some measurements, because what the system makes once in a
/// while comes on top, and what it gives back late is missing in the measurement after.
double KeptOf(const Operation& operation)
{
    if (!operation.bare)
    {
        return 0;
    }
    constexpr int kMeasurements = 5;
    constexpr int kRuns = 60;
    const auto bytesAfterRuns = [&] {
        for (int i = 0; i < kRuns; ++i)
        {
            operation.bare();
        }
        return velt::test::CurrentUsage().heapBytes;
    };
    std::array<double, kMeasurements> measured{};
    std::size_t before = bytesAfterRuns(); // what is made once is there now
    for (double& kept : measured)
    {
        const std::size_t after = bytesAfterRuns();
        kept = after > before ? static_cast<double>(after - before) / kRuns : 0;
        before = after;
    }
    std::ranges::sort(measured);
    return measured[kMeasurements / 2];
}

/// What the threads of the process have in common.
struct Common
{
    const SoakPlan& plan;
    const velt::test::ComponentLibrary& library;
    const UniqueKernelObject halt{::CreateEventW(nullptr, TRUE, TRUE, nullptr)};
    std::atomic<bool> isOver = false;
    std::atomic<unsigned> findings = 0;
};

void Find(Common& common, const std::string& what)
{
    if (common.findings++ < kMostFindings)
    {
        Say(("process " + std::to_string(common.plan.process) + ", seed " +
             std::to_string(common.plan.seed) + ": " + what + "\n")
                .c_str());
    }
}

/// A thread that runs operations of one kind in an apartment of its own.
class Lane
{
public:
    Lane(Common& common, const LaneKind& kind, unsigned number, std::vector<Operation> operations)
        : m_common(common),
          m_kind(kind),
          m_number(common.plan.process * 100 + number),
          m_operations(std::move(operations)),
          m_kept(m_operations.size()),
          m_faults(m_operations.size()),
          m_random(common.plan.seed * 10'000 + m_number)
    {
        std::transform(m_operations.begin(), m_operations.end(), m_kept.begin(), &KeptOf);
    }

    Lane(const Lane&) = delete;
    Lane& operator=(const Lane&) = delete;

    /// After `isOver`; it has been told to go on.
    ~Lane()
    {
        ::WaitForSingleObject(m_thread.Get(), INFINITE);
    }

    /// After all lanes are made, which measures what the system keeps.
    void Start()
    {
        m_thread.Reset(::CreateThread(nullptr, 0, &Lane::Enter, this, 0, &m_threadId));
        if (!m_thread)
        {
            throw std::runtime_error("no thread");
        }
    }

    /// Signalled when it has come to rest after the order to halt.
    HANDLE Resting() const noexcept
    {
        return m_resting.Get();
    }

    void GoOn() noexcept
    {
        ::SetEvent(m_goOn.Get());
    }

    /// Ends the process when an operation takes too long. Any thread may call.
    void CheckForHang()
    {
        const ULONGLONG since = m_since;
        if (since != 0 && ::GetTickCount64() - since > kHangMs)
        {
            Say(("process " + std::to_string(m_common.plan.process) + ": hung in " +
                 NameOf(m_operations[m_current]) + "\n")
                    .c_str());
            PrintStackOfThread(m_threadId);
            ::TerminateProcess(::GetCurrentProcess(), kHung);
        }
    }

    /// Adds what it has done to a line, and begins a new slowest call. While it rests.
    void AddTo(CsvRecord::Line& line)
    {
        line.operations += m_operationCount;
        line.faults += m_faultCount;
        line.kept += m_keptSoFar;
        const double slowestMs = std::chrono::duration<double, std::milli>(m_slowest).count();
        if (slowestMs > line.slowestMs)
        {
            line.slowestMs = slowestMs;
            line.slowest = m_slowestName;
        }
        m_slowest = {};
    }

private:
    static DWORD WINAPI Enter(void* lane) noexcept
    {
        auto& self = *static_cast<Lane*>(lane);
        try
        {
            self.Work();
        }
        catch (const std::exception& e)
        {
            Find(self.m_common, std::string(self.m_kind.name) + ": " + e.what());
            ::TerminateProcess(::GetCurrentProcess(), kBroken);
        }
        return 0;
    }

    void Work()
    {
        const velt::test::ComApartment apartment;
        FaultEngine::UseOwnSession();
        constexpr int kWarmRounds = 2;
        for (int round = 0; round < kWarmRounds; ++round)
        {
            for (std::size_t i = 0; i < m_operations.size(); ++i)
            {
                Try(i, {});
                // It is not known what is kept of a run that fails.
                if (m_kept[i] == 0)
                {
                    m_faults[i] = FaultEngine::FaultsOf(FaultEngine::Calls());
                }
            }
        }
        while (!m_common.isOver)
        {
            if (::WaitForSingleObject(m_common.halt.Get(), 0) == WAIT_OBJECT_0)
            {
                ::SetEvent(m_resting.Get());
                ApartmentThread::WaitPumping(m_goOn.Get(), INFINITE);
                continue;
            }
            const auto start = Clock::now();
            RunOne();
            const auto taken = Clock::now() - start;
            const auto rest = std::max<Clock::duration>(taken, m_kind.period - taken);
            const auto restMs = std::chrono::duration_cast<milliseconds>(rest).count();
            ApartmentThread::WaitPumping(m_common.halt.Get(), static_cast<DWORD>(restMs));
        }
    }

    void RunOne()
    {
        const std::size_t which = m_random() % m_operations.size();
        const unsigned oneIn = m_common.plan.faultOneIn;
        const std::vector<Fault>& faults = m_faults[which];
        if (oneIn != 0 && m_random() % oneIn == 0 && !faults.empty())
        {
            ++m_faultCount;
            Try(which, {faults[m_random() % faults.size()]});
        }
        else
        {
            Try(which, {});
        }
        ++m_operationCount;
    }

    void Try(std::size_t which, const std::vector<Fault>& faults)
    {
        const Operation& operation = m_operations[which];
        const auto tell = [&](const std::string& finding) {
            Find(m_common, NameOf(operation) +
                               (faults.empty() ? "" : ", " + FaultEngine::Describe(faults[0])) +
                               ": " + finding);
        };
        m_current = which;
        m_since = ::GetTickCount64();
        {
            Trial trial(m_common.library, faults, m_number);
            try
            {
                operation.run(trial);
            }
            catch (const std::exception& e)
            {
                tell(std::string("thrown: ") + e.what());
            }
            for (const std::string& finding : trial.Findings())
            {
                tell(finding);
            }
            m_keptSoFar += m_kept[which];
            if (trial.Slowest() > m_slowest)
            {
                m_slowest = trial.Slowest();
                m_slowestName = NameOf(operation);
            }
        }
        m_since = 0;
    }

    Common& m_common;
    const LaneKind& m_kind;
    const unsigned m_number; // that no other lane of any process has
    const UniqueKernelObject m_resting{::CreateEventW(nullptr, FALSE, FALSE, nullptr)};
    const UniqueKernelObject m_goOn{::CreateEventW(nullptr, FALSE, FALSE, nullptr)};

    // read by any thread
    std::atomic<ULONGLONG> m_since = 0; // when the operation began; 0 between two
    std::atomic<std::size_t> m_current = 0;

    // the lane's own, read by others while it rests
    const std::vector<Operation> m_operations;
    std::vector<double> m_kept;               // by the system, of each run of an operation
    std::vector<std::vector<Fault>> m_faults; // that each operation can have
    std::mt19937 m_random;
    unsigned long m_operationCount = 0;
    unsigned long m_faultCount = 0;
    double m_keptSoFar = 0;
    Clock::duration m_slowest{};
    std::string m_slowestName;

    DWORD m_threadId = 0;
    UniqueKernelObject m_thread;
};

class SoakProcess
{
public:
    explicit SoakProcess(const SoakPlan& plan)
        : m_common{plan, m_library},
          m_csv(plan.folder + L"\\process-" + std::to_wstring(plan.process) + L".csv",
                std::to_string(plan.process))
    {
        // Where some failures' texts are. Not each load of it: systems keep handles of those.
        ::LoadLibraryW(L"quartz.dll");
        FaultEngine::Install(m_library.Module());
        unsigned number = 0;
        for (const LaneKind& kind : kLaneKinds)
        {
            std::vector<Operation> operations = AllOperations();
            std::erase_if(operations, [&](const Operation& operation) {
                return LaneOf(operation) != kind.name ||
                       NameOf(operation).find(plan.only) == std::string::npos;
            });
            if (!operations.empty())
            {
                m_lanes.push_back(
                    std::make_unique<Lane>(m_common, kind, ++number, std::move(operations)));
            }
        }
    }

    SoakProcess(const SoakProcess&) = delete;
    SoakProcess& operator=(const SoakProcess&) = delete;

    ~SoakProcess() = default;

    unsigned Run()
    {
        for (const auto& lane : m_lanes)
        {
            lane->Start();
        }
        AwaitRest();
        Record();
        const ULONGLONG start = ::GetTickCount64();
        const ULONGLONG end = start + m_common.plan.seconds * 1000ULL;
        for (ULONGLONG next = start; next < end;)
        {
            next = std::min(end, next + m_common.plan.periodSeconds * 1000ULL);
            ::ResetEvent(m_common.halt.Get());
            for (const auto& lane : m_lanes)
            {
                lane->GoOn();
            }
            const UniqueKernelObject never(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
            for (ULONGLONG now = 0; (now = ::GetTickCount64()) < next;)
            {
                ApartmentThread::WaitPumping(
                    never.Get(), static_cast<DWORD>(std::min<ULONGLONG>(next - now, kLookMs)));
                CheckForHang();
            }
            ::SetEvent(m_common.halt.Get());
            AwaitRest();
            Record();
        }
        m_common.isOver = true;
        for (const auto& lane : m_lanes)
        {
            lane->GoOn();
        }
        m_lanes.clear();
        return m_common.findings == 0 ? kEnded : kFound;
    }

private:
    void CheckForHang()
    {
        for (const auto& lane : m_lanes)
        {
            lane->CheckForHang();
        }
    }

    /// Waits until nothing runs any more, neither a lane nor what the component has started.
    void AwaitRest()
    {
        for (const auto& lane : m_lanes)
        {
            while (!ApartmentThread::WaitPumping(lane->Resting(), kLookMs))
            {
                CheckForHang();
            }
        }
        if (!velt::test::Eventually([&] { return m_library.CanUnloadNow() == S_OK; }))
        {
            Find(m_common, "the library cannot be unloaded while nothing uses it");
        }
        FaultEngine::FreeKeptTexts();
    }

    void Record()
    {
        CsvRecord::Line line;
        for (const auto& lane : m_lanes)
        {
            lane->AddTo(line);
        }
        const Usage usage = CurrentUsage(true);
        const velt::test::ProcessUsage process = velt::test::CurrentUsage();
        line.privateBytes = process.privateBytes - process.heapPages;
        line.heapPages = process.heapPages;
        line.blocks = usage.values[0];
        line.handles = usage.values[1];
        line.heapBytes =
            static_cast<std::size_t>(usage.values[2]) - static_cast<std::size_t>(line.kept);
        line.gdiObjects = usage.values[3];
        line.windows = usage.values[4];
        m_csv.Add(line);
    }

    const velt::test::ComApartment m_apartment;
    const velt::test::ComponentLibrary m_library;
    Common m_common;
    const CsvRecord m_csv;
    std::vector<std::unique_ptr<Lane>> m_lanes;
};
} // namespace

unsigned RunSoakProcess(const SoakPlan& plan)
{
    TellOfCrashes();
    unsigned code = kBroken;
    {
        SoakProcess process(plan);
        code = process.Run();
    }
    ::TerminateProcess(::GetCurrentProcess(), code); // what is left of broken runs stays out of it
    return code;
}

CsvRecord::CsvRecord(std::wstring path, std::string process)
    : m_path(std::move(path)),
      m_process(std::move(process))
{
    std::FILE* const file = ::_wfopen(m_path.c_str(), L"wb");
    if (!file)
    {
        throw std::runtime_error("the records cannot be written");
    }
    std::fputs("time,process,operations,faults,private,heap_pages,heap,kept,blocks,handles,gdi,"
               "windows,slowest_ms,slowest\n",
               file);
    std::fclose(file);
}

void CsvRecord::Add(const Line& line) const
{
    const double seconds =
        std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
    std::FILE* const file = ::_wfopen(m_path.c_str(), L"ab");
    if (!file)
    {
        throw std::runtime_error("the records cannot be written");
    }
    const auto number = [](auto value) { return static_cast<unsigned long>(value); };
    const auto count = [](std::ptrdiff_t value) { return static_cast<long>(value); };
    std::fprintf(file, "%.1f,%s,%lu,%lu,%lu,%lu,%lu,%lu,%ld,%ld,%ld,%ld,%.1f,\"%s\"\n", seconds,
                 m_process.c_str(), line.operations, line.faults, number(line.privateBytes),
                 number(line.heapPages), number(line.heapBytes), number(line.kept),
                 count(line.blocks), count(line.handles), count(line.gdiObjects),
                 count(line.windows), line.slowestMs, line.slowest.c_str());
    std::fclose(file);
}
} // namespace velt::torture
