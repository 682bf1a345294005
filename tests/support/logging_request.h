#pragma once

#include "connection/queue_request.h"
#include "tests/support/call_log.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace velt::test
{
/// A request of the queue that logs "step <name>", "complete <name>" and "gone <name>", and answers
/// its steps with the given results; the last one is repeated.
class LoggingRequest final : public CONNECTION_MANAGER::queue_request
{
public:
    LoggingRequest(CallLog& log, std::string name, std::vector<DWORD> results = {kFinished})
        : m_log(log),
          m_name(std::move(name)),
          m_results(std::move(results))
    {
    }

    ~LoggingRequest() override
    {
        m_log.Add("gone " + m_name);
    }

    DWORD Step(CONNECTION_MANAGER::connection_object& stepConnection,
               const std::vector<std::string>& stepHosts, bool stepMayConnect) override
    {
        connection = &stepConnection;
        hosts = stepHosts;
        mayConnect = stepMayConnect;
        m_log.Add("step " + m_name);
        if (onStep)
        {
            onStep();
        }
        const DWORD result = m_results[m_step];
        m_step = m_step + 1 < m_results.size() ? m_step + 1 : m_step;
        return result;
    }

    void Complete(CONNECTION_MANAGER::connection_object& completeConnection, DWORD* value) override
    {
        completedConnection = &completeConnection;
        completionValue = value;
        m_log.Add("complete " + m_name);
        if (onComplete)
        {
            onComplete(value);
        }
    }

    bool IsCancelled() const override
    {
        return cancelled;
    }

    // set before the request is queued
    std::function<void()> onStep;
    std::function<void(DWORD*)> onComplete;
    bool cancelled = false;

    // what the last step and the completion got
    CONNECTION_MANAGER::connection_object* connection = nullptr;
    std::vector<std::string> hosts;
    bool mayConnect = false;
    CONNECTION_MANAGER::connection_object* completedConnection = nullptr;
    DWORD* completionValue = nullptr;

private:
    CallLog& m_log;
    const std::string m_name;
    const std::vector<DWORD> m_results;
    std::size_t m_step = 0;
};
} // namespace velt::test
