#include "tests/torture/runner.h"

#include "foundation/unique_handle.h"
#include "tests/support/apartment_thread.h"
#include "tests/support/com_apartment.h"
#include "tests/torture/fault_engine.h"
#include "tests/torture/process_end.h"
#include "tests/torture/trial.h"
#include "tests/torture/usage.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <exception>
#include <iterator>
#include <limits>
#include <random>
#include <utility>

namespace velt::torture
{
namespace
{
constexpr DWORD kHangMs = 10'000;
constexpr std::size_t kMostCallsForPairs = 40; // an operation with more is not a short one
constexpr int kRepeats = 4;                    // of a run after which more was in use

volatile LONG g_beat = 0; // changes with each run
DWORD g_mainThread = 0;

/// Ends the process when a run takes too long.
DWORD WINAPI WatchForHang(void*) noexcept
{
    for (LONG last = g_beat;;)
    {
        ::Sleep(kHangMs);
        const LONG now = g_beat;
        if (now == last)
        {
            Say("hung\n");
            PrintStackOfThread(g_mainThread);
            ::TerminateProcess(::GetCurrentProcess(), kHung);
        }
        last = now;
    }
}

/// The blocks in use of the process's heaps: to see which ones a run leaves.
struct HeapBlock
{
    const void* at;
    std::size_t size;
};

std::vector<HeapBlock> BlocksOfHeap()
{
    std::vector<HeapBlock> blocks;
    blocks.reserve(200'000); // nothing is taken during the walk
    std::array<HANDLE, 64> heaps{};
    const DWORD count = ::GetProcessHeaps(static_cast<DWORD>(heaps.size()), heaps.data());
    std::for_each_n(heaps.begin(), std::min<std::size_t>(count, heaps.size()), [&](HANDLE heap) {
        PROCESS_HEAP_ENTRY entry{};
        ::HeapLock(heap);
        while (::HeapWalk(heap, &entry) && blocks.size() < blocks.capacity())
        {
            if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0)
            {
                blocks.push_back({entry.lpData, entry.cbData});
            }
        }
        ::HeapUnlock(heap);
    });
    return blocks;
}

void PrintNewBlocks(const std::vector<HeapBlock>& before)
{
    for (const HeapBlock& block : BlocksOfHeap())
    {
        const bool isOld = std::any_of(before.begin(), before.end(), [&](const HeapBlock& old) {
            return old.at == block.at && old.size == block.size;
        });
        if (isOld)
        {
            continue;
        }
        std::printf("heap block %p of %u bytes:", block.at, static_cast<unsigned>(block.size));
        for (std::size_t i = 0; i < std::min<std::size_t>(block.size, 32); ++i)
        {
            std::printf(" %02x", static_cast<const unsigned char*>(block.at)[i]);
        }
        std::printf("\n");
    }
}

class Runner
{
public:
    Runner()
    {
        m_library.RegisterServer(); // other apartments need it
        // Where some failures' texts are. Not each load of it: systems keep handles of those.
        ::LoadLibraryW(L"quartz.dll");
        FaultEngine::Install(m_library.Module());
    }

    Runner(const Runner&) = delete;
    Runner& operator=(const Runner&) = delete;

    ~Runner() = default;

    std::vector<Operation>& Operations() noexcept
    {
        return m_operations;
    }

    /// One run; what it found. The calls that it made are FaultEngine::Calls().
    std::vector<std::string> Try(const Operation& operation, const std::vector<Fault>& faults)
    {
        ::InterlockedIncrement(&g_beat);
        std::vector<std::string> findings;
        {
            Trial trial(m_library, faults);
            try
            {
                operation.run(trial);
                findings = trial.Findings();
            }
            catch (const std::exception& e)
            {
                findings.emplace_back(std::string("thrown: ") + e.what());
            }
        }
        if (!AwaitUnload())
        {
            findings.emplace_back("the library cannot be unloaded");
            m_isSpent = true;
        }
        return findings;
    }

    /// Warms an operation up; what it finds without a fault.
    std::vector<std::string> Prepare(const Operation& operation)
    {
        m_isUi = std::string_view(operation.room) == "ui";
        std::vector<std::string> findings = Try(operation, {});
        for (int round = 0; round < 2; ++round)
        {
            const auto more = Try(operation, {});
            findings.insert(findings.end(), more.begin(), more.end());
        }
        m_calls = FaultEngine::Calls();
        m_before = CurrentUsage(m_isUi);
        // What the system keeps of each run, whatever fails.
        std::fill(std::begin(m_growth), std::end(m_growth),
                  std::numeric_limits<std::ptrdiff_t>::max());
        for (int repeat = 0; repeat < kRepeats; ++repeat)
        {
            Try(operation, {});
            const Usage now = CurrentUsage(m_isUi);
            for (int i = 0; i < 5; ++i)
            {
                m_growth[i] = std::min(m_growth[i], MoreThan(m_before, now, i));
            }
            m_before = now;
        }
        for (int i = 0; i < 5; ++i)
        {
            if (m_growth[i] > 0)
            {
                std::printf("note %s: %u more of each ordinary run\n", Usage::kNames[i],
                            static_cast<unsigned>(m_growth[i]));
            }
        }
        return findings;
    }

    /// The same with faults, with all that is looked at afterwards.
    std::vector<std::string> Torture(const Operation& operation, const std::vector<Fault>& faults)
    {
        std::vector<std::string> findings = Try(operation, faults);
        for (const std::string& finding : Try(operation, {}))
        {
            findings.push_back("the next ordinary call: " + finding);
        }
        Usage now = CurrentUsage(m_isUi);
        bool isMore[5];
        bool any = false;
        for (int i = 0; i < 5; ++i)
        {
            isMore[i] = now.values[i] > m_before.values[i] + 2 * m_growth[i];
            any |= isMore[i];
        }
        // What is used more the first time only is the system's, or made once.
        for (int repeat = 0; any && repeat < kRepeats; ++repeat)
        {
            Try(operation, faults);
            any = Narrow(isMore, now);
        }
        // On a busy machine not each ordinary run comes to what makes it grow.
        for (int repeat = 0; any && repeat < kRepeats; ++repeat)
        {
            const Usage last = now;
            Try(operation, {});
            now = CurrentUsage(m_isUi);
            for (int i = 0; i < 5; ++i)
            {
                m_growth[i] = std::max(m_growth[i], MoreThan(last, now, i));
            }
        }
        if (any)
        {
            Try(operation, faults);
            any = Narrow(isMore, now);
        }
        for (int i = 0; i < 5; ++i)
        {
            if (any && isMore[i])
            {
                findings.push_back(std::string("more ") + Usage::kNames[i] + " each time");
            }
        }
        m_before = now;
        return findings;
    }

    /// The calls of the ordinary run that Prepare has made.
    const std::vector<std::size_t>& Calls() const noexcept
    {
        return m_calls;
    }

    bool IsSpent() const noexcept
    {
        return m_isSpent;
    }

private:
    static std::ptrdiff_t MoreThan(const Usage& before, const Usage& now, int which) noexcept
    {
        return std::max<std::ptrdiff_t>(now.values[which] - before.values[which], 0);
    }

    /// Keeps of what is used more that which has grown again since `last` by more than an ordinary
    /// run makes it grow; returns whether anything is left. `last` becomes what is used now.
    bool Narrow(bool (&isMore)[5], Usage& last) const
    {
        const Usage now = CurrentUsage(m_isUi);
        bool any = false;
        for (int i = 0; i < 5; ++i)
        {
            isMore[i] &= MoreThan(last, now, i) > m_growth[i];
            any |= isMore[i];
        }
        last = now;
        return any;
    }

    bool AwaitUnload() const
    {
        constexpr int kLooks = 800;
        const velt::UniqueKernelObject never(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
        for (int look = 0; look < kLooks; ++look)
        {
            if (m_library.CanUnloadNow() == S_OK)
            {
                return true;
            }
            velt::test::ApartmentThread::WaitPumping(never.Get(), look < 50 ? 1 : 10);
        }
        return false;
    }

    const velt::test::ComApartment m_apartment;
    const velt::test::ComponentLibrary m_library;
    std::vector<Operation> m_operations = AllOperations();
    std::vector<std::size_t> m_calls;
    Usage m_before;
    std::ptrdiff_t m_growth[5] = {};
    bool m_isUi = false;
    bool m_isSpent = false;
};

void Tell(const std::vector<std::string>& findings)
{
    for (const std::string& finding : findings)
    {
        std::printf("find %s\n", finding.c_str());
    }
}

class Child
{
public:
    explicit Child(Plan plan) : m_plan(std::move(plan)) {}

    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    ~Child() = default;

    unsigned Run()
    {
        std::vector<Operation>& operations = m_runner.Operations();
        std::erase_if(operations, [&](const Operation& operation) {
            return NameOf(operation).find(m_plan.only) == std::string::npos;
        });
        std::mt19937 random(m_plan.seed);
        if (m_plan.seed != 0)
        {
            std::shuffle(operations.begin(), operations.end(), random);
        }
        for (std::size_t place = m_plan.operation; place < operations.size(); ++place)
        {
            if (!RunOperation(place, operations[place], place == m_plan.operation ? m_plan.run : 0))
            {
                return kGoOn;
            }
        }
        const std::vector<std::string> unknown = FaultEngine::UnknownLateFunctions();
        for (const std::string& name : unknown)
        {
            std::printf("find not in the table of functions: %s\n", name.c_str());
        }
        return kEnded;
    }

private:
    bool RunOperation(std::size_t place, const Operation& operation, std::size_t first)
    {
        std::printf("op %u %s\n", static_cast<unsigned>(place), NameOf(operation).c_str());
        std::fflush(stdout);
        const std::vector<std::string> findings = m_runner.Prepare(operation);
        if (first == 0)
        {
            for (const std::string& finding : findings)
            {
                std::printf("find without a fault: %s\n", finding.c_str());
            }
        }
        const std::vector<std::size_t> calls = m_runner.Calls();
        std::vector<Fault> singles = FaultEngine::FaultsOf(calls);
        std::printf("plan %u %u\n", static_cast<unsigned>(calls.size()),
                    static_cast<unsigned>(singles.size()));
        if (m_plan.seed != 0)
        {
            std::mt19937 random(m_plan.seed + static_cast<unsigned>(place));
            std::shuffle(singles.begin(), singles.end(), random);
            singles.resize(std::min(singles.size(), m_plan.runs));
        }
        std::size_t number = 0;
        for (; number < singles.size(); ++number)
        {
            if (number >= first && !RunFaults(operation, number, {singles[number]}))
            {
                return false;
            }
        }
        if (m_plan.withPairs && calls.size() <= kMostCallsForPairs &&
            !RunPairs(operation, singles, number, first))
        {
            return false;
        }
        std::printf("end\n");
        std::fflush(stdout);
        return true;
    }

    /// An allocation that fails, and each call after it.
    bool RunPairs(const Operation& operation, const std::vector<Fault>& singles, std::size_t number,
                  std::size_t first)
    {
        for (std::size_t i = 0; i < singles.size(); ++i)
        {
            const bool isSkipped =
                std::find(m_plan.skipped.begin(), m_plan.skipped.end(), i) != m_plan.skipped.end();
            if (isSkipped || !FaultEngine::Function(singles[i].function).known->isAllocation)
            {
                continue;
            }
            m_runner.Try(operation, {singles[i]});
            const std::vector<std::size_t> calls = FaultEngine::Calls();
            bool isAfter = false;
            for (const Fault& later : FaultEngine::FaultsOf(calls))
            {
                if (isAfter && later.failure == 0)
                {
                    if (number >= first && !RunFaults(operation, number, {singles[i], later}))
                    {
                        return false;
                    }
                    ++number;
                }
                isAfter |= later.function == singles[i].function && later.call == singles[i].call;
            }
        }
        return true;
    }

    bool RunFaults(const Operation& operation, std::size_t number, const std::vector<Fault>& faults)
    {
        std::string what;
        for (const Fault& fault : faults)
        {
            what += (what.empty() ? "" : ", then ") + FaultEngine::Describe(fault);
        }
        std::printf("run %u %s\n", static_cast<unsigned>(number), what.c_str());
        std::fflush(stdout);
        Tell(m_runner.Torture(operation, faults));
        return !m_runner.IsSpent();
    }

    const Plan m_plan;
    Runner m_runner;
};

void Watch()
{
    g_mainThread = ::GetCurrentThreadId();
    TellOfCrashes();
    const velt::UniqueKernelObject watch(
        ::CreateThread(nullptr, 0, &WatchForHang, nullptr, 0, nullptr));
}
} // namespace

unsigned RunChild(const Plan& plan)
{
    Watch();
    Child child(plan);
    const unsigned code = child.Run();
    std::fflush(stdout);
    ::TerminateProcess(::GetCurrentProcess(), code); // what is left of broken runs stays out of it
    return code;
}

unsigned RunOne(const std::string& name, std::size_t run)
{
    Watch();
    Runner runner;
    for (const Operation& operation : runner.Operations())
    {
        if (NameOf(operation) != name)
        {
            continue;
        }
        Tell(runner.Prepare(operation));
        const std::vector<Fault> singles = FaultEngine::FaultsOf(runner.Calls());
        if (run >= singles.size())
        {
            std::printf("%u runs\n", static_cast<unsigned>(singles.size()));
            return kBroken;
        }
        std::printf("%s\n", FaultEngine::Describe(singles[run]).c_str());
        FaultEngine::KeepCallers(true);
        Tell(runner.Try(operation, {singles[run]}));
        FaultEngine::PrintLiveBlocks();
        FaultEngine::KeepCallers(false);
        const std::vector<HeapBlock> before = BlocksOfHeap();
        Tell(runner.Try(operation, {singles[run]}));
        PrintNewBlocks(before);
        Tell(runner.Torture(operation, {singles[run]}));
    }
    std::fflush(stdout);
    return kEnded;
}

void ListOperations()
{
    Runner runner;
    for (const Operation& operation : runner.Operations())
    {
        std::printf("%s\n", NameOf(operation).c_str());
    }
}
} // namespace velt::torture
