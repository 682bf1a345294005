#include "connection/queue_manager.h"

#include "foundation/com_method.h"
#include "foundation/utrace.h"
#include "foundation/velt_mutex_lock.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace CONNECTION_MANAGER
{
namespace
{
constexpr char kNotifierName[] = "QueueStateNotifier";
constexpr DWORD kPollMs = 10;
constexpr DWORD kHoldSleepMs = 100;
} // namespace

queue_manager::queue_manager()
    : m_timer(::CreateWaitableTimerW(nullptr, FALSE, nullptr)),
      m_probeHosts{"www.wikipedia.org", "www.w3.org", "www.velt.example"}
{
}

queue_manager::~queue_manager()
{
    if (IsRunning())
    {
        SignalStop();
        const VeltMutexLock lock(&m_mutex);
        m_running = false;
        ::CancelWaitableTimer(m_timer.Get());
    }
    std::vector<std::shared_ptr<queue_request>> dropped; // released without the mutex
    {
        const VeltMutexLock lock(&m_mutex);
        m_notifiers.clear();
        dropped.swap(m_queue);
    }
    dropped.clear();
    // Before the members go: the worker may be inside a step, and holds that request by itself.
    stop();
}

void queue_manager::Run()
{
    LARGE_INTEGER due{};
    {
        const VeltMutexLock lock(&m_mutex);
        due.QuadPart = -std::int64_t{10'000} * m_periodMs; // relative, in units of 100 ns
        if (!::SetWaitableTimer(m_timer.Get(), &due, static_cast<LONG>(m_periodMs), nullptr,
                                nullptr, FALSE))
        {
            return;
        }
    }
    for (;;)
    {
        const Signal signal = PollStopOr(m_timer.Get());
        if (signal == Signal::Stop)
        {
            return;
        }
        if (signal == Signal::Other)
        {
            OnTimer();
        }
        ::Sleep(kPollMs);
    }
}

void queue_manager::add(const std::shared_ptr<queue_request>& request)
{
    const VeltMutexLock lock(&m_mutex);
    UTrace::TraceLevel3("queue_manager::add queue");
    m_queue.push_back(request);
    NotifyState(false);
}

void queue_manager::AddNotifier(state_notifier* notifier)
{
    const VeltMutexLock lock(&m_mutex);
    m_notifiers.insert_or_assign(notifier, kNotifierName);
}

void queue_manager::RemoveNotifier(state_notifier* notifier)
{
    const VeltMutexLock lock(&m_mutex);
    m_notifiers.erase(notifier);
}

void queue_manager::NotifyState(bool empty)
{
    std::map<state_notifier*, std::string> notifiers;
    {
        const VeltMutexLock lock(&m_mutex);
        notifiers = m_notifiers;
    }
    for (const auto& [notifier, name] : notifiers)
    {
        notifier->OnQueueState(empty);
    }
}

void queue_manager::Hold(bool on, DWORD timeoutMs)
{
    {
        const VeltMutexLock lock(&m_mutex);
        if (on && !m_holdEvent)
        {
            m_holdEvent.Reset(::CreateEventW(nullptr, FALSE, FALSE, nullptr));
            m_holdTimeoutMs = timeoutMs;
        }
        else if (!on && m_holdEvent)
        {
            ::SetEvent(m_holdEvent.Get());
        }
    }
    ::Sleep(kHoldSleepMs);
}

HRESULT queue_manager::begin(DWORD periodMs)
{
    return velt::ComMethod("queue_manager::begin", [&] {
        const VeltMutexLock lock(&m_mutex);
        if (!m_timer || m_running)
        {
            return E_FAIL;
        }
        m_periodMs = periodMs;
        m_armed = false;
        Start(this);
        m_running = true;
        return S_OK;
    });
}

void queue_manager::OnTimer()
{
    Execute();
    NotifyState(IsEmpty());
}

void queue_manager::SetHoldMode(bool hold) noexcept
{
    m_holdMode = hold;
}

bool queue_manager::IsRunning()
{
    const VeltMutexLock lock(&m_mutex);
    return m_running;
}

DWORD queue_manager::GetConnectionState() const noexcept
{
    // By design without the mutex, whose calls of the system would cost more than all the rest of
    // what asks for the state. The number is one word and written with the mutex held, so this is
    // what a reader with the mutex gets as well, at the moment that he would get the mutex. Only
    // hold-and-retry processing holds the mutex during steps: he would wait until all of them are
    // done, and this answers at once.
    return m_lastStepResult;
}

void queue_manager::Execute()
{
    const UTrace::Function trace("queue_manager::Execute");
    {
        const VeltMutexLock lock(&m_mutex);
        if (!std::exchange(m_armed, true))
        {
            return;
        }
    }
    if (m_holdMode)
    {
        ProcessHeld(m_connection);
    }
    else
    {
        Process(m_connection);
    }
}

void queue_manager::Process(connection_object& connection)
{
    const UTrace::Function trace("queue_manager::process");
    if (!IsRunning() || IsEmpty())
    {
        return;
    }
    std::size_t index = 0;
    while (const auto request = At(index))
    {
        if (IsStopSignalled())
        {
            UTrace::TraceLevel3("queue_manager::process - CANCELLED");
            return;
        }
        if (Step(*request, connection) <= queue_request::kUnderWay)
        {
            ++index;
            continue;
        }
        request->Complete(connection, &m_completionValue);
        Remove(request);
        index = 0; // earlier requests always get the first chance
    }
}

void queue_manager::ProcessHeld(connection_object& connection)
{
    if (IsStopSignalled())
    {
        return;
    }
    AwaitHold();
    const VeltMutexLock lock(&m_mutex);
    std::size_t index = 0;
    while (const auto request = At(index))
    {
        if (IsStopSignalled())
        {
            UTrace::TraceLevel3("queue_manager::process - CANCELLED");
            return;
        }
        const bool done = request->IsCancelled() ||
                          Step(*request, connection) > queue_request::kUnderWay ||
                          Step(*request, connection) > queue_request::kUnderWay;
        if (done)
        {
            request->Complete(connection, &m_completionValue);
            Remove(request);
        }
        else
        {
            ++index;
        }
        ::Sleep(kPollMs);
    }
}

std::shared_ptr<queue_request> queue_manager::At(std::size_t index)
{
    const VeltMutexLock lock(&m_mutex);
    return index < m_queue.size() ? m_queue[index] : nullptr;
}

DWORD queue_manager::Step(queue_request& request, connection_object& connection)
{
    const DWORD result = request.Step(connection, m_probeHosts, true);
    const VeltMutexLock lock(&m_mutex);
    m_lastStepResult = result;
    return result;
}

void queue_manager::Remove(const std::shared_ptr<queue_request>& request)
{
    {
        const VeltMutexLock lock(&m_mutex);
        const auto found = std::find(m_queue.begin(), m_queue.end(), request);
        if (found == m_queue.end())
        {
            return; // dropped meanwhile
        }
        m_queue.erase(found);
    }
    NotifyState(IsEmpty());
}

bool queue_manager::IsEmpty()
{
    const VeltMutexLock lock(&m_mutex);
    return m_queue.empty();
}

void queue_manager::AwaitHold()
{
    HANDLE hold = nullptr;
    DWORD timeoutMs = 0;
    {
        const VeltMutexLock lock(&m_mutex);
        hold = m_holdEvent.Get();
        timeoutMs = m_holdTimeoutMs;
    }
    if (hold)
    {
        ::WaitForSingleObject(hold, timeoutMs); // only this thread closes it
        const VeltMutexLock lock(&m_mutex);
        m_holdEvent.Reset();
    }
}
} // namespace CONNECTION_MANAGER
