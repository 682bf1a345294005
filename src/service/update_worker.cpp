#include "service/update_worker.h"

#include "foundation/detached_thread.h"
#include "foundation/exception_to_hresult.h"
#include "update/is_upgrade_request.h"

#include <utility>

namespace velt
{
namespace
{
/// An idle worker looks every 10 ms whether it shall end.
constexpr DWORD kIdleEndMs = 200;

/// States of the connection above this one mean that the machine is online.
constexpr DWORD kNotConnected = 2;

void Destroy(void* worker) noexcept
{
    const std::unique_ptr<UpdateWorker> owned(static_cast<UpdateWorker*>(worker));
}
} // namespace

UpdateWorker::UpdateWorker(std::shared_ptr<SinkList> sinks) : m_sinks(std::move(sinks)) {}

std::shared_ptr<IS_upgrade_request> UpdateWorker::MakeRequest()
{
    CONNECTION_MANAGER::ICallback* const owner = this;
    return std::make_shared<IS_upgrade_request>(owner);
}

void UpdateWorker::Queue(const std::shared_ptr<CONNECTION_MANAGER::queue_request>& request)
{
    m_queue.add(request);
    if (!m_queue.IsRunning())
    {
        m_queue.begin(kPeriodMs); // a refusal is traced, and the request stays in the queue
        m_queue.OnTimer();
    }
}

bool UpdateWorker::IsConnected() const noexcept
{
    return m_queue.GetConnectionState() > kNotConnected;
}

void UpdateWorker::End(std::unique_ptr<UpdateWorker> worker) noexcept
{
    try
    {
        if (worker->m_queue.TryStop(kIdleEndMs))
        {
            return;
        }
    }
    catch (...)
    {
        TraceCurrentException();
    }
    // The last resort for a worker that finds no thread to wait for it: it has been asked to end
    // and does so, and the object stays behind.
    if (RunDetached(&Destroy, worker.get()) || worker->m_queue.IsWorker())
    {
        static_cast<void>(worker.release());
    }
}

void UpdateWorker::OnRequestComplete(CONNECTION_MANAGER::queue_request& request)
{
    // Only requests that MakeRequest made come here.
    m_sinks->NotifySelfUpgrade(static_cast<IS_upgrade_request&>(request).InstallerGuid());
}
} // namespace velt
