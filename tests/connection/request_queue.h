#pragma once

#include "connection/queue_manager.h"
#include "connection/url_request.h"
#include "internet/handle_registry.h"
#include "tests/support/call_log.h"
#include "tests/support/logging_sink.h"

#include <windows.h>

#include <wininet.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

namespace velt::test
{
/// Everything comes from the server, and nothing is kept of it.
inline constexpr DWORD kFresh = INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_CACHE_WRITE;

inline CONNECTION_MANAGER::url_options UrlOptions(INTERNET_PORT port,
                                                  const std::string& object = "/")
{
    CONNECTION_MANAGER::url_options options;
    options.url = "http://127.0.0.1:" + std::to_string(port) + object;
    options.flags = kFresh;
    return options;
}

/// What an exchange that failed tells its sink and its completion.
inline CallLog::Calls Failed(DWORD error)
{
    return {"error " + std::to_string(error), "complete", "done"};
}

/// The completion of a request: logs "done" once the exchange is over.
class LoggingCallback final : public CONNECTION_MANAGER::ICallback
{
public:
    explicit LoggingCallback(CallLog& log) : m_log(log) {}

    ~LoggingCallback() = default;

    void OnRequestComplete(CONNECTION_MANAGER::queue_request&) override
    {
        m_log.Add("done");
    }

private:
    CallLog& m_log;
};

/// One request for a URL with everybody who hears of it.
struct Fetch
{
    explicit Fetch(const CONNECTION_MANAGER::url_options& options)
        : request(std::make_shared<CONNECTION_MANAGER::url_request>(options, &sink, &callback))
    {
    }

    /// The calls without those that report a status.
    CallLog::Calls Outcome() const
    {
        CallLog::Calls calls = log.All();
        std::erase_if(calls, [](const std::string& call) { return call.starts_with("status "); });
        return calls;
    }

    /// Waits until the request is complete and has left the queue and the worker.
    void Wait() const
    {
        log.WaitFor("done");
        const ULONGLONG limit = ::GetTickCount64() + kWaitLimitMs;
        while (request.use_count() > 1)
        {
            if (::GetTickCount64() > limit)
            {
                throw std::runtime_error("the request does not leave the queue");
            }
            ::Sleep(1);
        }
    }

    CallLog log;
    LoggingSink sink{log};
    LoggingCallback callback{log};
    std::shared_ptr<CONNECTION_MANAGER::url_request> request;
};

/// A queue that works what it is given as soon as it can.
class RequestQueue
{
public:
    RequestQueue()
    {
        if (m_manager->begin(1) != S_OK)
        {
            throw std::runtime_error("the queue does not begin");
        }
        m_manager->OnTimer();
    }

    CONNECTION_MANAGER::queue_manager& Manager() noexcept
    {
        return *m_manager;
    }

    /// Has a request worked and waits until it has left the queue.
    void Run(const Fetch& fetch)
    {
        m_manager->add(fetch.request);
        fetch.Wait();
    }

    void End()
    {
        m_manager.reset();
    }

private:
    std::unique_ptr<CONNECTION_MANAGER::queue_manager> m_manager =
        std::make_unique<CONNECTION_MANAGER::queue_manager>();
};

/// How many internet handles are open.
inline std::size_t OpenHandles()
{
    return HandleRegistry::Instance().Size();
}
} // namespace velt::test
