#pragma once

#include "foundation/unique_handle.h"
#include "tests/support/test_thread.h"

#include <windows.h>

#include <objbase.h>

#include <exception>
#include <functional>
#include <stdexcept>
#include <utility>

namespace velt::test
{
/// A thread in an apartment of its own that runs functions for the test and takes calls meanwhile.
/// One thread at a time gives it work.
class ApartmentThread
{
public:
    explicit ApartmentThread(COINIT kind = COINIT_APARTMENTTHREADED) : m_kind(kind)
    {
        m_thread.Reset(::CreateThread(nullptr, 0, &ApartmentThread::Run, this, 0, nullptr));
        if (!m_thread)
        {
            throw std::runtime_error("no thread");
        }
        AwaitDone();
    }

    ApartmentThread(const ApartmentThread&) = delete;
    ApartmentThread& operator=(const ApartmentThread&) = delete;

    /// Leaves the apartment and ends the thread; the calling thread takes calls meanwhile.
    ~ApartmentThread()
    {
        End();
    }

    void End() noexcept
    {
        if (m_thread)
        {
            m_work = nullptr;
            ::SetEvent(m_begin.Get());
            WaitPumping(m_thread.Get(), INFINITE);
            m_thread.Reset();
        }
    }

    /// Runs a function there, while the calling thread takes calls; throws what it has thrown.
    void Do(std::function<void()> work)
    {
        Begin(std::move(work));
        Finish();
    }

    /// The same in two halves: what the test does in between runs at the same time.
    void Begin(std::function<void()> work)
    {
        m_work = std::move(work);
        ::SetEvent(m_begin.Get());
    }

    void Finish()
    {
        AwaitDone();
        if (m_failure)
        {
            std::rethrow_exception(std::exchange(m_failure, nullptr));
        }
    }

    DWORD Id() const noexcept
    {
        return ::GetThreadId(m_thread.Get());
    }

    /// Waits for a handle and takes calls meanwhile; whether it came in time.
    static bool WaitPumping(HANDLE handle, DWORD limitMs) noexcept
    {
        const ULONGLONG end = ::GetTickCount64() + limitMs;
        for (;;)
        {
            const ULONGLONG now = ::GetTickCount64();
            const auto left = static_cast<DWORD>(end > now ? end - now : 0);
            // Also for what came before: COM looks through the queue during the thread's own calls,
            // and what it leaves there is not new any more.
            const DWORD woken =
                ::MsgWaitForMultipleObjectsEx(1, &handle, limitMs == INFINITE ? INFINITE : left,
                                              QS_ALLINPUT, MWMO_INPUTAVAILABLE);
            if (woken != WAIT_OBJECT_0 + 1)
            {
                return woken == WAIT_OBJECT_0;
            }
            MSG message;
            while (::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
            {
                ::DispatchMessageW(&message);
            }
        }
    }

private:
    static DWORD WINAPI Run(void* argument) noexcept
    {
        auto& self = *static_cast<ApartmentThread*>(argument);
        ::CoInitializeEx(nullptr, self.m_kind);
        for (;;)
        {
            ::SetEvent(self.m_done.Get());
            WaitPumping(self.m_begin.Get(), INFINITE);
            if (!self.m_work)
            {
                break;
            }
            try
            {
                self.m_work();
            }
            catch (...)
            {
                self.m_failure = std::current_exception();
            }
        }
        ::CoUninitialize();
        return 0;
    }

    void AwaitDone()
    {
        if (!WaitPumping(m_done.Get(), kWaitLimitMs))
        {
            throw std::runtime_error("the apartment's thread does not answer");
        }
    }

    const COINIT m_kind;
    const UniqueKernelObject m_begin{::CreateEventW(nullptr, FALSE, FALSE, nullptr)};
    const UniqueKernelObject m_done{::CreateEventW(nullptr, FALSE, FALSE, nullptr)};
    std::function<void()> m_work; // null ends the thread
    std::exception_ptr m_failure;
    UniqueKernelObject m_thread;
};
} // namespace velt::test
