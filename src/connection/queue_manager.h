#pragma once

#include "connection/connection_object.h"
#include "connection/queue_request.h"
#include "connection/state_notifier.h"
#include "connection/thread_template.h"

#include <windows.h>

#include <cstddef>
#include <memory>

namespace CONNECTION_MANAGER
{
/// The worker that carries out queued requests: a timer wakes it, and it steps each request, in
/// order, until one finishes. Any thread may call, except where a member says otherwise; the mutex
/// of the base guards the queue and the settings and is not held during a step or a completion.
///
/// Whoever is called from inside a pass (a step, a completion, a notifier, the end of a request)
/// may destroy the manager: the pass ends when the call returns, and what was lent to the call
/// stays until then.
class queue_manager : public ONLINE_THREADS::thread_template<queue_manager>
{
public:
    /// Throws SystemException::HRESULT and std::bad_alloc. Without a timer, begin fails.
    queue_manager();

    queue_manager(const queue_manager&) = delete;
    queue_manager& operator=(const queue_manager&) = delete;

    /// Asks the worker to end, drops the queue and waits for the worker, 5000 ms at most; what it
    /// has not ended by then is terminated. On the worker itself there is nothing to wait for: it
    /// ends when the call that it is in returns.
    ~queue_manager() override;

    /// The worker's body. What leaves a step of a request, or a notifier, ends it.
    void Run() override;

    /// Appends a request and tells the notifiers, on the caller's thread and with the mutex held.
    /// Throws SystemException::HRESULT with E_INVALIDARG for null, std::bad_alloc, and what a
    /// notifier throws; only then is the request queued.
    virtual void add(const std::shared_ptr<queue_request>& request);

    /// The notifier must be removed before it goes. A call of it that is under way on another
    /// thread may still be when it has been removed; no other one begins. Throws as add does for
    /// null, and std::bad_alloc.
    virtual void AddNotifier(state_notifier* notifier);
    virtual void RemoveNotifier(state_notifier* notifier);

    /// Tells every notifier. An exception of one ends the pass and goes to the caller.
    virtual void NotifyState(bool empty);

    /// Holds hold-and-retry processing back for at most `timeoutMs` milliseconds, or lets it go on.
    /// By design, it sleeps 100 ms either way.
    virtual void Hold(bool on, DWORD timeoutMs);

    /// Starts the worker, which wakes every `periodMs` milliseconds. E_FAIL, and nothing changes,
    /// when it runs already or has no timer.
    HRESULT begin(DWORD periodMs);

    /// What a timer expiry does: works the queue and tells the notifiers how it stands. By design,
    /// the first one after begin only arms the manager, so that the caller of begin can run it
    /// itself.
    void OnTimer();

    /// Chooses hold-and-retry processing; nothing in this library does.
    void SetHoldMode(bool hold) noexcept;

    bool IsRunning();

    /// What the last step of a request answered, 0 before any: the connection state.
    DWORD GetConnectionState() const noexcept;

protected:
    /// Hold-and-retry processing: waits for the hold to end, then gives each request up to two
    /// steps and removes those that finish or are not wanted any more. By design, with the mutex
    /// held.
    virtual void ProcessHeld(connection_object& connection);

private:
    struct State;

    void Tick(State& state);
    void Execute(State& state);
    void Process(State& state);
    void AwaitHold(State& state);

    /// Calls a request's step and keeps its answer.
    static DWORD Step(State& state, queue_request& request, connection_object& connection);

    /// Completes the request that has finished at a place in the queue, takes it out and tells the
    /// notifiers.
    void Finish(State& state, const std::shared_ptr<queue_request>& request,
                connection_object& connection, std::size_t place);

    // What a pass works with; its own for as long as it runs, because the manager may go meanwhile.
    const std::shared_ptr<State> m_state;
};
} // namespace CONNECTION_MANAGER
