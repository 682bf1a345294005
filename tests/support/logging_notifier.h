#pragma once

#include "connection/state_notifier.h"
#include "tests/support/call_log.h"

#include <functional>
#include <string>
#include <utility>

namespace velt::test
{
/// A state notifier that logs "<name> empty" or "<name> filled", then does what the test has said.
class LoggingNotifier final : public CONNECTION_MANAGER::state_notifier
{
public:
    LoggingNotifier(CallLog& log, std::string name) : m_log(log), m_name(std::move(name)) {}

    ~LoggingNotifier() = default;

    void OnQueueState(bool empty) override
    {
        m_log.Add(m_name + (empty ? " empty" : " filled"));
        if (onState)
        {
            onState(empty);
        }
    }

    std::function<void(bool)> onState;

private:
    CallLog& m_log;
    const std::string m_name;
};
} // namespace velt::test
