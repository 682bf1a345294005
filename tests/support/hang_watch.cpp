#include "foundation/unique_handle.h"

#include <windows.h>

#include <tlhelp32.h>

#define CATCH_CONFIG_EXTERNAL_INTERFACES
#include <catch.hpp>

#include <cstdio>

namespace
{
constexpr DWORD kLimitMs = 900'000; // for one test case, on a machine with much else to do

void* NextInstruction(const CONTEXT& context) noexcept
{
#ifdef _WIN64
    return reinterpret_cast<void*>(context.Rip); // NOLINT(performance-no-int-to-ptr)
#else
    return reinterpret_cast<void*>(context.Eip); // NOLINT(performance-no-int-to-ptr)
#endif
}

/// Prints where each other thread of the process is.
void PrintThreads()
{
    const velt::UniqueKernelObject snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
    THREADENTRY32 entry{};
    entry.dwSize = sizeof(entry);
    for (BOOL more = ::Thread32First(snapshot.Get(), &entry); more;
         more = ::Thread32Next(snapshot.Get(), &entry))
    {
        if (entry.th32OwnerProcessID != ::GetCurrentProcessId() ||
            entry.th32ThreadID == ::GetCurrentThreadId())
        {
            continue;
        }
        const velt::UniqueKernelObject thread(
            ::OpenThread(THREAD_GET_CONTEXT | THREAD_SUSPEND_RESUME, FALSE, entry.th32ThreadID));
        ::SuspendThread(thread.Get());
        CONTEXT context{};
        context.ContextFlags = CONTEXT_CONTROL;
        const BOOL known = ::GetThreadContext(thread.Get(), &context);
        std::fprintf(stderr, "  thread %lu at %p\n", entry.th32ThreadID,
                     known ? NextInstruction(context) : nullptr);
    }
}

/// Ends the process when a test case takes longer than the limit.
using ListenerBase = Catch::TestEventListenerBase; // named differently in Catch2's versions

class HangWatch final : public ListenerBase
{
public:
    using ListenerBase::ListenerBase;

    void testCaseStarting(const Catch::TestCaseInfo& info) override
    {
        s_name = info.name;
        m_done.Reset(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
        m_started.Reset(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
        m_thread.Reset(::CreateThread(nullptr, 0, &HangWatch::Watch, this, 0, nullptr));
        // Wine crashes when a process ends whose thread is just starting; a case may end it at
        // once.
        if (m_thread)
        {
            ::WaitForSingleObject(m_started.Get(), INFINITE);
        }
    }

    void testCaseEnded(const Catch::TestCaseStats&) override
    {
        ::SetEvent(m_done.Get());
        ::WaitForSingleObject(m_thread.Get(), INFINITE);
        m_thread.Reset();
        m_done.Reset();
    }

private:
    static DWORD WINAPI Watch(void* watch)
    {
        const auto& self = *static_cast<const HangWatch*>(watch);
        ::SetEvent(self.m_started.Get());
        if (::WaitForSingleObject(self.m_done.Get(), kLimitMs) == WAIT_TIMEOUT)
        {
            std::fprintf(stderr, "hung: %s\n", s_name.c_str());
            PrintThreads();
            std::fflush(stderr);
            ::TerminateProcess(::GetCurrentProcess(), 99);
        }
        return 0;
    }

    inline static std::string s_name;
    velt::UniqueKernelObject m_done;
    velt::UniqueKernelObject m_started;
    velt::UniqueKernelObject m_thread;
};
CATCH_REGISTER_LISTENER(HangWatch)
} // namespace
