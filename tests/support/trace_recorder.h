#pragma once

#include "foundation/trace_state.h"
#include "foundation/utrace.h"
#include "foundation/velt_auto_critical_section.h"

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace velt::test
{
/// Turns tracing on in this program and keeps its messages, until the end of the scope; every
/// thread that traces has ended by then. One at a time.
class TraceRecorder
{
public:
    struct Message
    {
        DWORD thread;
        std::int32_t level;
        std::string text;
    };

    TraceRecorder()
    {
        s_messages.clear();
        UTrace::TraceInitialise();
        m_state.flags = UTrace::kFlagAllLevels; // and nothing for a debugger
        m_state.filter = [](std::int32_t level, const char*, const char* text) {
            s_messages.push_back({::GetCurrentThreadId(), level, text}); // the lock is held
            return false;
        };
    }

    TraceRecorder(const TraceRecorder&) = delete;
    TraceRecorder& operator=(const TraceRecorder&) = delete;

    ~TraceRecorder() = default;

    std::vector<Message> Messages()
    {
        const VeltAutoCriticalSection lock(&m_state.Lock());
        return s_messages;
    }

    /// How many messages have that text.
    std::size_t Count(const std::string& text)
    {
        const std::vector<Message> messages = Messages();
        return static_cast<std::size_t>(
            std::count_if(messages.begin(), messages.end(),
                          [&](const Message& message) { return message.text == text; }));
    }

    /// The same for messages of one level.
    std::size_t Count(const std::string& text, std::int32_t level)
    {
        const std::vector<Message> messages = Messages();
        return static_cast<std::size_t>(
            std::count_if(messages.begin(), messages.end(), [&](const Message& message) {
                return message.text == text && message.level == level;
            }));
    }

private:
    inline static std::vector<Message> s_messages; // guarded by the trace lock

    UTrace::State m_state;
};
} // namespace velt::test
