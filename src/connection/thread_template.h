#pragma once

#include "connection/base_thread.h"
#include "foundation/system_exception.h"
#include "foundation/unique_handle.h"
#include "foundation/utrace.h"
#include "foundation/velt_auto_critical_section.h"
#include "foundation/velt_critical_section.h"
#include "foundation/velt_mutex.h"

#include <windows.h>

#include <comdef.h>

#include <array>
#include <atomic>
#include <memory>
#include <utility>

namespace ONLINE_THREADS
{
/// The start and stop protocol of a worker thread; `Worker` is the class whose Run it is.
///
/// Start and stop belong to the owner's thread. The worker polls IsStopSignalled. Two events make
/// the hand-over: the owner sets the stop event, and the thread sets the wait-thread event as its
/// last act on the object.
template <class Worker>
class thread_template : public base_thread
{
public:
    /// Throws SystemException::HRESULT when the system has no mutex to give.
    thread_template()
    try : m_mutex(std::make_shared<VeltMutex>())
    {
    }
    catch (const SystemException::Win32& e)
    {
        throw SystemException::HRESULT(HRESULT_FROM_WIN32(e.GetCode()));
    }

    thread_template(const thread_template&) = delete;
    thread_template& operator=(const thread_template&) = delete;

    /// The derived class has called stop already: its Run must not outlive it.
    ~thread_template() override
    {
        stop();
    }

    void OnThreadEnd() noexcept override
    {
        std::shared_ptr<Ending> ending;
        {
            const VeltAutoCriticalSection lock(&m_handleLock);
            CloseThread();
            m_hStopEvent.Reset();
            ending = m_hWaitThreadEvent;
        }
        if (ending)
        {
            ending->Tell(); // from here on the object may be gone, but not the ending
        }
    }

    /// Makes both events and starts the thread, unless one runs already. Returns the thread's
    /// handle, which stays this object's. Throws _com_error with E_FAIL when there is no stop event
    /// or no thread, and std::bad_alloc.
    virtual HANDLE Start(Worker* parameter)
    {
        auto ending = std::make_shared<Ending>();
        const VeltAutoCriticalSection lock(&m_handleLock);
        m_parameter = parameter;
        m_hStopEvent.Reset(::CreateEventW(nullptr, FALSE, FALSE, nullptr));
        ending->event.Reset(::CreateEventW(nullptr, FALSE, FALSE, nullptr));
        m_hWaitThreadEvent = std::move(ending);
        if (m_hStopEvent && !m_hThread)
        {
            m_hThread = BeginThread();
        }
        if (!m_hThread)
        {
            m_hStopEvent.Reset(); // idle again: there is nothing that stop could wait for
            m_hWaitThreadEvent.reset();
        }
        if (!m_hStopEvent || !m_hThread)
        {
            throw _com_error(E_FAIL);
        }
        return m_hThread;
    }

    /// Asks the worker to end. Any thread may call.
    virtual void SignalStop()
    {
        const VeltAutoCriticalSection lock(&m_handleLock);
        if (m_hStopEvent)
        {
            ::SetEvent(m_hStopEvent.Get());
        }
    }

    /// Asks the worker to end and waits for it, at most 5000 ms. A worker that has not ended by
    /// then is terminated: the intended last resort. The worker itself is asked only: it cannot
    /// wait for its own end.
    void stop()
    {
        if (IsWorker())
        {
            SignalStop();
            return;
        }
        if (IsThreadSet())
        {
            SignalStop();
        }
        if (const auto ending = WaitThreadEvent(); ending && !ending->Await(kGraceMs))
        {
            EndByForce();
        }
        const VeltAutoCriticalSection lock(&m_handleLock);
        m_hWaitThreadEvent.reset();
        m_hStopEvent.Reset();
        m_hThread = nullptr; // by design not closed: a thread that has ended has closed it itself
    }

    /// Asks the worker to end; whether it has done so within `waitMs` milliseconds, or was not
    /// running. On the worker itself the answer is no, at once. stop is still due. For the owner's
    /// thread, and the worker.
    bool TryStop(DWORD waitMs)
    {
        SignalStop();
        if (!IsThreadSet())
        {
            return true;
        }
        const auto ending = WaitThreadEvent();
        if (IsWorker() || !ending || !ending->Await(waitMs))
        {
            return false;
        }
        ending->Tell(); // the wait has reset the event; stop needs it too
        return true;
    }

protected:
    enum class Signal
    {
        None,
        Stop,
        Other,
    };

    /// What is signalled now: the stop event, which is also taken for signalled when there is none,
    /// before another object. One question for both, because the worker asks all the time. A null
    /// `other` is never signalled. Worker only.
    Signal PollStopOr(HANDLE other)
    {
        const VeltAutoCriticalSection lock(&m_handleLock);
        if (!m_hStopEvent)
        {
            return Signal::Stop;
        }
        const std::array<HANDLE, 2> objects{m_hStopEvent.Get(), other};
        switch (::WaitForMultipleObjects(other ? 2 : 1, objects.data(), FALSE, 0))
        {
        case WAIT_OBJECT_0:
            ::SetEvent(m_hStopEvent.Get()); // the wait has reset it; the next question needs it too
            return Signal::Stop;
        case WAIT_OBJECT_0 + 1:
            return Signal::Other;
        default:
            return Signal::None;
        }
    }

    /// Whether the worker was asked to end, or there is no stop event. Worker only.
    bool IsStopSignalled()
    {
        return PollStopOr(nullptr) == Signal::Stop;
    }

    /// For the state of derived classes; not used here. Shared, so that a derived class can leave
    /// it to whoever still holds it.
    const std::shared_ptr<VeltMutex> m_mutex;

private:
    static constexpr DWORD kGraceMs = 5000;
    static constexpr DWORD kTerminationMs = 1000;

    /// By what the owner learns that the worker has left the object. Shared by both, because the
    /// worker tells of it when the object may be going.
    struct Ending
    {
        void Tell() noexcept
        {
            isOver = true;
            if (event)
            {
                ::SetEvent(event.Get());
            }
        }

        /// Whether it came within so many milliseconds. By design a thread goes without the event
        /// when the system has none left, and gets no wait for one then; but its object must not
        /// go before it, so it is asked for its end all the same.
        bool Await(DWORD limitMs) const noexcept
        {
            if (event)
            {
                return ::WaitForSingleObject(event.Get(), limitMs) == WAIT_OBJECT_0;
            }
            const ULONGLONG start = ::GetTickCount64();
            while (!isOver && ::GetTickCount64() - start < limitMs)
            {
                ::Sleep(1);
            }
            return isOver;
        }

        velt::UniqueKernelObject event; // auto-reset; null when there is none
        std::atomic<bool> isOver = false;
    };

    bool IsThreadSet()
    {
        const VeltAutoCriticalSection lock(&m_handleLock);
        return m_hThread != nullptr;
    }

    void CloseThread() noexcept
    {
        if (m_hThread)
        {
            ::CloseHandle(m_hThread);
            m_hThread = nullptr;
        }
    }

    std::shared_ptr<Ending> WaitThreadEvent()
    {
        const VeltAutoCriticalSection lock(&m_handleLock);
        return m_hWaitThreadEvent;
    }

    void EndByForce()
    {
        const VeltAutoCriticalSection lock(&m_handleLock); // so that it does not end holding it
        if (!m_hThread)
        {
            return; // it is at its last act
        }
        if (::WaitForSingleObject(m_hThread, 0) != WAIT_OBJECT_0)
        {
            UTrace::TraceLevel1("thread_template::stop WaitForSingleObject m_hWaitThreadEvent "
                                "returned %d: Terminating Thread!!!",
                                static_cast<int>(WAIT_TIMEOUT));
            ::TerminateThread(m_hThread, 0);
            // The call only begins it, and the object must not go before the thread.
            ::WaitForSingleObject(m_hThread, kTerminationMs);
        }
        else
        {
            OnThreadEnd(); // on behalf of a thread that was ended by others
        }
        ForgetThread();
    }

    VeltCriticalSection m_handleLock; // cheaper than the mutex for what the worker polls

    // guarded by m_handleLock, as is the thread's handle
    velt::UniqueKernelObject m_hStopEvent;      // auto-reset
    std::shared_ptr<Ending> m_hWaitThreadEvent; // null when idle
    Worker* m_parameter = nullptr;
};
} // namespace ONLINE_THREADS
