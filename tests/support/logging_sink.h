#pragma once

#include "connection/http_event.h"
#include "tests/support/call_log.h"

#include <functional>
#include <string>

namespace velt::test
{
/// The sink of an exchange: logs "error <code>", "complete" and "status <status>", and answers a
/// status as the test has said, else with "go on".
class LoggingSink final : public CHTTPEvent
{
public:
    explicit LoggingSink(CallLog& log) : m_log(log) {}

    ~LoggingSink() = default;

    void OnError(DWORD error) override
    {
        m_log.Add("error " + std::to_string(error));
        if (onError)
        {
            onError(error);
        }
    }

    void OnComplete() override
    {
        m_log.Add("complete");
        if (onComplete)
        {
            onComplete();
        }
    }

    bool OnStatus(DWORD status, DWORD_PTR value) override
    {
        m_log.Add("status " + std::to_string(status));
        return onStatus && onStatus(status, value);
    }

    std::function<void(DWORD)> onError;
    std::function<void()> onComplete;
    std::function<bool(DWORD, DWORD_PTR)> onStatus;

private:
    CallLog& m_log;
};
} // namespace velt::test
