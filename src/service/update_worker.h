#pragma once

#include "connection/callback.h"
#include "connection/queue_manager.h"
#include "service/sink_list.h"

#include <windows.h>

#include <memory>

class IS_upgrade_request;

namespace velt
{
/// The service's queue of update requests and its worker. When a request has finished, the sinks
/// hear of it on the worker. The owner sees to it that one thread at a time calls, the worker among
/// them.
class UpdateWorker final : private CONNECTION_MANAGER::ICallback
{
public:
    /// How often the worker looks at its queue.
    static constexpr DWORD kPeriodMs = 30'000;

    /// Throws what queue_manager throws.
    explicit UpdateWorker(std::shared_ptr<SinkList> sinks);

    UpdateWorker(const UpdateWorker&) = delete;
    UpdateWorker& operator=(const UpdateWorker&) = delete;

    /// Waits for the worker, 5000 ms at most, so it is not for the worker itself: see End.
    ~UpdateWorker() = default;

    /// A request that reports its completion here.
    std::shared_ptr<IS_upgrade_request> MakeRequest();

    /// Queues a request, which tells its owner, if any, that it is complete. The first one starts
    /// the worker and, by design, runs one tick on the calling thread, which only arms the queue:
    /// the request is worked one period later. Throws std::bad_alloc.
    void Queue(const std::shared_ptr<CONNECTION_MANAGER::queue_request>& request);

    /// Whether the last step of a request, if there was one, found the machine online. Any thread
    /// may call.
    bool IsConnected() const noexcept;

    /// Ends the worker and destroys the object, here when the worker is idle. A worker in the
    /// middle of a request may be this very thread, or call into this apartment; so another thread
    /// waits for it then.
    static void End(std::unique_ptr<UpdateWorker> worker) noexcept;

private:
    void OnRequestComplete(CONNECTION_MANAGER::queue_request& request) override;

    const std::shared_ptr<SinkList> m_sinks;
    CONNECTION_MANAGER::queue_manager m_queue; // last: its end waits for who uses the others
};
} // namespace velt
