#pragma once

#include "connection/connection_object.h"
#include "connection/queue_request.h"
#include "connection/state_notifier.h"
#include "connection/thread_template.h"
#include "foundation/unique_handle.h"

#include <windows.h>

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace CONNECTION_MANAGER
{
/// The worker that carries out queued requests: a timer wakes it, and it steps each request, in
/// order, until one finishes. Any thread may call, except where a member says otherwise; the mutex
/// of the base guards the queue and the settings and is not held during a step or a completion.
class queue_manager : public ONLINE_THREADS::thread_template<queue_manager>
{
public:
    /// Throws SystemException::HRESULT and std::bad_alloc. Without a timer, begin fails.
    queue_manager();

    queue_manager(const queue_manager&) = delete;
    queue_manager& operator=(const queue_manager&) = delete;

    /// Asks the worker to end, drops the queue and waits for the worker, 5000 ms at most; what it
    /// has not ended by then is terminated.
    ~queue_manager() override;

    /// The worker's body.
    void Run() override;

    /// Appends a request and tells the notifiers, on the caller's thread and with the mutex held.
    virtual void add(const std::shared_ptr<queue_request>& request);

    /// The notifier must be removed before it goes. A pass over the notifiers that is under way on
    /// another thread may still reach one that is being removed.
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
    void Execute();
    void Process(connection_object& connection);

    /// The request at a place in the queue; null past its end.
    std::shared_ptr<queue_request> At(std::size_t index);

    DWORD Step(queue_request& request, connection_object& connection);

    /// Takes a request out of the queue and tells the notifiers.
    void Remove(const std::shared_ptr<queue_request>& request);

    bool IsEmpty();
    void AwaitHold();

    // constant after construction
    connection_object m_connection;
    velt::UniqueKernelObject m_timer; // auto-reset
    const std::vector<std::string> m_probeHosts;

    // guarded by m_mutex
    std::vector<std::shared_ptr<queue_request>> m_queue; // the oldest first
    std::map<state_notifier*, std::string> m_notifiers;
    DWORD m_periodMs = 0;
    bool m_armed = false;
    bool m_running = false;
    velt::UniqueKernelObject m_holdEvent; // auto-reset; null when nothing is held
    DWORD m_holdTimeoutMs = 0;

    // written under m_mutex; one number, so that readers are spared the mutex's calls of the system
    std::atomic<DWORD> m_lastStepResult = 0;

    std::atomic<bool> m_holdMode = false;
    DWORD m_completionValue = 1; // handed to each completion; worker only
};
} // namespace CONNECTION_MANAGER
