#include "connection/queue_manager.h"

#include "foundation/com_method.h"
#include "foundation/exception_to_hresult.h"
#include "foundation/system_exception.h"
#include "foundation/unique_handle.h"
#include "foundation/utrace.h"
#include "foundation/velt_mutex_lock.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace CONNECTION_MANAGER
{
namespace
{
constexpr char kNotifierName[] = "QueueStateNotifier";
constexpr DWORD kPollMs = 10;
constexpr DWORD kHoldSleepMs = 100;
constexpr DWORD kEndLockMs = 500;

/// Takes the mutex while it is worth waiting for, or does without it; by asking again and again, as
/// the worker waits. `isWorthWaiting` is asked with the milliseconds waited so far.
class PatientLock
{
public:
    template <class Patience>
    PatientLock(BaseMutex& mutex, Patience&& isWorthWaiting)
        : m_mutex(mutex),
          m_isHeld(mutex.TryLock())
    {
        // Most have it for a moment only.
        for (int turn = 0; !m_isHeld && turn < kShortTurns; ++turn)
        {
            ::SwitchToThread();
            m_isHeld = mutex.TryLock();
        }
        for (DWORD waitedMs = 0; !m_isHeld && isWorthWaiting(waitedMs); waitedMs += kPollMs)
        {
            ::Sleep(kPollMs);
            m_isHeld = mutex.TryLock();
        }
    }

    PatientLock(const PatientLock&) = delete;
    PatientLock& operator=(const PatientLock&) = delete;

    ~PatientLock()
    {
        if (m_isHeld)
        {
            m_mutex.Unlock();
        }
    }

    bool IsHeld() const noexcept
    {
        return m_isHeld;
    }

private:
    static constexpr int kShortTurns = 50;

    BaseMutex& m_mutex;
    bool m_isHeld;
};

/// How long the end of a manager waits for the mutex.
constexpr bool IsWithinEndLimit(DWORD waitedMs) noexcept
{
    return waitedMs < kEndLockMs;
}

/// Calls what a request does beside its steps: a failure of it is the request's own.
template <class Call>
bool Quietly(Call&& call) noexcept
{
    try
    {
        call();
        return true;
    }
    catch (...)
    {
        velt::TraceCurrentException();
        return false;
    }
}

/// A request that cannot say whether it is wanted is not.
bool IsCancelled(const queue_request& request) noexcept
{
    bool isCancelled = false;
    return !Quietly([&] { isCancelled = request.IsCancelled(); }) || isCancelled;
}

template <class Object>
void RefuseNull(const Object& object)
{
    if (!object)
    {
        throw SystemException::HRESULT(E_INVALIDARG);
    }
}
} // namespace

struct queue_manager::State
{
    explicit State(std::shared_ptr<VeltMutex> theMutex)
        : mutex(std::move(theMutex)),
          timer(::CreateWaitableTimerW(nullptr, FALSE, nullptr)),
          probeHosts{"www.wikipedia.org", "www.w3.org", "www.velt.example"}
    {
    }

    /// The mutex for a pass. Whoever gives up the manager may have it, and keep it until the worker
    /// has ended: the worker waits for it only while there is a manager.
    PatientLock Lock()
    {
        return {*mutex, [this](DWORD) { return !isOrphan; }};
    }

    bool IsRunning()
    {
        const PatientLock lock = Lock();
        return lock.IsHeld() && isRunning;
    }

    bool IsEmpty()
    {
        const PatientLock lock = Lock();
        return !lock.IsHeld() || queue.empty();
    }

    /// Arms the manager; whether it was armed.
    bool Arm()
    {
        const PatientLock lock = Lock();
        return lock.IsHeld() && std::exchange(isArmed, true);
    }

    /// The request at a place in the queue; null past its end, and when the manager has gone.
    std::shared_ptr<queue_request> At(std::size_t place)
    {
        const PatientLock lock = Lock();
        return lock.IsHeld() && place < queue.size() && !isOrphan ? queue[place] : nullptr;
    }

    /// Takes a request out that was at a place in the queue; it may have moved up meanwhile.
    /// Whether the queue is empty then; nothing when the request, or the manager, has gone.
    std::optional<bool> Remove(const std::shared_ptr<queue_request>& request, std::size_t place)
    {
        const PatientLock lock = Lock();
        if (!lock.IsHeld() || isOrphan)
        {
            return std::nullopt;
        }
        std::size_t end = std::min(place + 1, queue.size());
        while (end > 0 && queue[end - 1] != request)
        {
            --end;
        }
        if (end == 0)
        {
            return std::nullopt;
        }
        queue.erase(queue.begin() + static_cast<std::ptrdiff_t>(end - 1));
        return queue.empty();
    }

    /// The notifier behind another one in the map; the first one behind null.
    state_notifier* NotifierAfter(state_notifier* notifier)
    {
        const VeltAutoCriticalSection lock(&notifierLock);
        const auto next = notifiers.upper_bound(notifier);
        return next == notifiers.end() ? nullptr : next->first;
    }

    // constant after construction
    const std::shared_ptr<VeltMutex> mutex; // of the manager
    connection_object connection;
    const velt::UniqueKernelObject timer; // auto-reset
    const std::vector<std::string> probeHosts;

    // written under the mutex, before the worker starts
    DWORD periodMs = 0;

    // guarded by the mutex
    std::vector<std::shared_ptr<queue_request>> queue; // the oldest first
    bool isArmed = false;
    std::shared_ptr<velt::UniqueKernelObject> holdEvent; // auto-reset; null when nothing is held
    DWORD holdTimeoutMs = 0;

    // guarded by their own lock, so that telling them takes the mutex no more often
    VeltCriticalSection notifierLock;
    std::map<state_notifier*, std::string> notifiers;

    // written under the mutex, except by a destructor that does not get it
    std::atomic<bool> isRunning = false;
    std::atomic<bool> isOrphan = false; // the manager has gone

    // written under the mutex; one number, so that readers are spared the mutex's calls of the
    // system
    std::atomic<DWORD> lastStepResult = 0;

    std::atomic<bool> holdMode = false;
    DWORD completionValue = 1; // handed to each completion; worker only
};

queue_manager::queue_manager() : m_state(std::make_shared<State>(m_mutex)) {}

queue_manager::~queue_manager()
{
    State& state = *m_state;
    if (state.isRunning)
    {
        SignalStop();
    }
    std::vector<std::shared_ptr<queue_request>> dropped; // released without the mutex
    {
        // Whoever holds it longer is foreign code: a step of hold-and-retry processing, or a
        // notifier that hears of an addition. The worker's grace is for that.
        const PatientLock lock(*state.mutex, &IsWithinEndLimit);
        state.isRunning = false;
        ::CancelWaitableTimer(state.timer.Get());
        if (lock.IsHeld())
        {
            dropped.swap(state.queue);
        }
    }
    {
        const VeltAutoCriticalSection lock(&state.notifierLock);
        state.notifiers.clear();
    }
    dropped.clear();
    state.isOrphan = true;
    // Before the members go: the worker may be inside a step, and holds that request by itself.
    stop();
    {
        // What could not be had before. A thread that was ended by force has left the mutex.
        const PatientLock lock(*state.mutex, &IsWithinEndLimit);
        if (lock.IsHeld())
        {
            dropped.swap(state.queue);
        }
    }
    if (IsWorker())
    {
        LeaveToThread(m_state);
    }
}

void queue_manager::Run()
{
    // Owned by the manager, which leaves it to this thread when it goes on it. A reference of its
    // own would stay behind when the thread is ended by force.
    State& state = *m_state;
    // begin has set the period before there was a worker, and sets no other one while there is.
    LARGE_INTEGER due{};
    due.QuadPart = -std::int64_t{10'000} * state.periodMs; // relative, in units of 100 ns
    if (!::SetWaitableTimer(state.timer.Get(), &due, static_cast<LONG>(state.periodMs), nullptr,
                            nullptr, FALSE))
    {
        return;
    }
    while (!state.isOrphan)
    {
        const Signal signal = PollStopOr(state.timer.Get());
        if (signal == Signal::Stop)
        {
            return;
        }
        if (signal == Signal::Other)
        {
            Tick(state);
        }
        ::Sleep(kPollMs);
    }
}

void queue_manager::add(const std::shared_ptr<queue_request>& request)
{
    RefuseNull(request);
    const std::shared_ptr<State> state = m_state; // a notifier may let go of the manager
    const VeltMutexLock lock(state->mutex.get());
    UTrace::TraceLevel3("queue_manager::add queue");
    state->queue.push_back(request);
    NotifyState(false);
}

void queue_manager::AddNotifier(state_notifier* notifier)
{
    RefuseNull(notifier);
    const VeltAutoCriticalSection lock(&m_state->notifierLock);
    m_state->notifiers.insert_or_assign(notifier, kNotifierName);
}

void queue_manager::RemoveNotifier(state_notifier* notifier)
{
    const VeltAutoCriticalSection lock(&m_state->notifierLock);
    m_state->notifiers.erase(notifier);
}

void queue_manager::NotifyState(bool empty)
{
    const std::shared_ptr<State> state = m_state; // a notifier may let go of the manager
    state_notifier* notifier = nullptr;
    while ((notifier = state->NotifierAfter(notifier)) != nullptr)
    {
        notifier->OnQueueState(empty);
    }
}

void queue_manager::Hold(bool on, DWORD timeoutMs)
{
    {
        const VeltMutexLock lock(m_mutex.get());
        if (on && !m_state->holdEvent)
        {
            auto hold = std::make_shared<velt::UniqueKernelObject>(
                ::CreateEventW(nullptr, FALSE, FALSE, nullptr));
            m_state->holdEvent = *hold ? std::move(hold) : nullptr;
            m_state->holdTimeoutMs = timeoutMs;
        }
        else if (!on && m_state->holdEvent)
        {
            ::SetEvent(m_state->holdEvent->Get());
        }
    }
    ::Sleep(kHoldSleepMs);
}

HRESULT queue_manager::begin(DWORD periodMs)
{
    return velt::ComMethod("queue_manager::begin", [&] {
        const VeltMutexLock lock(m_mutex.get());
        if (!m_state->timer || m_state->isRunning)
        {
            return E_FAIL;
        }
        m_state->periodMs = periodMs;
        m_state->isArmed = false;
        Start(this);
        m_state->isRunning = true;
        return S_OK;
    });
}

void queue_manager::OnTimer()
{
    const std::shared_ptr<State> state = m_state;
    Tick(*state);
}

void queue_manager::SetHoldMode(bool hold) noexcept
{
    m_state->holdMode = hold;
}

bool queue_manager::IsRunning()
{
    return m_state->IsRunning();
}

DWORD queue_manager::GetConnectionState() const noexcept
{
    // By design without the mutex, whose calls of the system would cost more than all the rest of
    // what asks for the state. The number is one word and written with the mutex held, so this is
    // what a reader with the mutex gets as well, at the moment that he would get the mutex. Only
    // hold-and-retry processing holds the mutex during steps: he would wait until all of them are
    // done, and this answers at once.
    return m_state->lastStepResult;
}

// From here on the manager may have gone after each call of foreign code. Its state then answers
// that there is nothing to do, and whoever is about to use the manager asks first.

void queue_manager::Tick(State& state)
{
    Execute(state);
    if (!state.isOrphan)
    {
        NotifyState(state.IsEmpty());
    }
}

void queue_manager::Execute(State& state)
{
    const UTrace::Function trace("queue_manager::Execute");
    if (!state.Arm())
    {
        return;
    }
    if (state.holdMode)
    {
        ProcessHeld(state.connection);
    }
    else
    {
        Process(state);
    }
}

void queue_manager::Process(State& state)
{
    const UTrace::Function trace("queue_manager::process");
    if (!state.IsRunning() || state.IsEmpty())
    {
        return;
    }
    std::size_t place = 0;
    while (const auto request = state.At(place))
    {
        if (IsStopSignalled())
        {
            UTrace::TraceLevel3("queue_manager::process - CANCELLED");
            return;
        }
        if (Step(state, *request, state.connection) <= queue_request::kUnderWay)
        {
            ++place;
            continue;
        }
        Finish(state, request, state.connection, place);
        place = 0; // earlier requests always get the first chance
    }
}

void queue_manager::ProcessHeld(connection_object& connection)
{
    if (IsStopSignalled())
    {
        return;
    }
    State& state = *m_state; // whoever runs the pass keeps it
    AwaitHold(state);
    const PatientLock lock = state.Lock();
    const auto finishes = [&](queue_request& request) {
        return Step(state, request, connection) > queue_request::kUnderWay;
    };
    std::size_t place = 0;
    while (const auto request = lock.IsHeld() ? state.At(place) : nullptr)
    {
        if (IsStopSignalled())
        {
            UTrace::TraceLevel3("queue_manager::process - CANCELLED");
            return;
        }
        const bool isDone =
            IsCancelled(*request) || finishes(*request) || (!state.isOrphan && finishes(*request));
        if (isDone)
        {
            Finish(state, request, connection, place);
        }
        else
        {
            ++place;
        }
        ::Sleep(kPollMs);
    }
}

DWORD queue_manager::Step(State& state, queue_request& request, connection_object& connection)
{
    const DWORD result = request.Step(connection, state.probeHosts, true);
    const PatientLock lock = state.Lock();
    if (lock.IsHeld())
    {
        state.lastStepResult = result;
    }
    return result;
}

void queue_manager::Finish(State& state, const std::shared_ptr<queue_request>& request,
                           connection_object& connection, std::size_t place)
{
    Quietly([&] { request->Complete(connection, &state.completionValue); });
    if (const std::optional<bool> isEmpty = state.Remove(request, place))
    {
        NotifyState(*isEmpty);
    }
}

void queue_manager::AwaitHold(State& state)
{
    std::shared_ptr<velt::UniqueKernelObject> hold;
    DWORD timeoutMs = 0;
    {
        const PatientLock lock = state.Lock();
        if (lock.IsHeld())
        {
            hold = state.holdEvent;
            timeoutMs = state.holdTimeoutMs;
        }
    }
    if (!hold)
    {
        return;
    }
    // In short waits, because a stop ends it as well.
    const ULONGLONG startMs = ::GetTickCount64();
    ULONGLONG waitedMs = 0;
    do
    {
        const ULONGLONG leftMs = timeoutMs == INFINITE ? kPollMs : timeoutMs - waitedMs;
        if (::WaitForSingleObject(hold->Get(), static_cast<DWORD>(std::min<ULONGLONG>(
                                                   leftMs, kPollMs))) != WAIT_TIMEOUT)
        {
            break;
        }
        waitedMs = ::GetTickCount64() - startMs;
    } while ((timeoutMs == INFINITE || waitedMs < timeoutMs) && !IsStopSignalled());
    const PatientLock lock = state.Lock();
    if (lock.IsHeld() && state.holdEvent == hold)
    {
        state.holdEvent.reset();
    }
}
} // namespace CONNECTION_MANAGER
