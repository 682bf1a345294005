#pragma once

namespace CONNECTION_MANAGER
{
/// Is told how the queue stands. It is called on the thread that changed the queue, and after an
/// addition while the queue is locked, so it must not wait for another thread that uses the queue.
class state_notifier
{
public:
    state_notifier() = default;
    state_notifier(const state_notifier&) = delete;
    state_notifier& operator=(const state_notifier&) = delete;

    /// `empty` is true when the queue holds nothing any more.
    virtual void OnQueueState(bool empty) = 0;

protected:
    ~state_notifier() = default;
};
} // namespace CONNECTION_MANAGER
