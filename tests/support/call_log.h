#pragma once

#include "foundation/unique_handle.h"
#include "foundation/velt_auto_critical_section.h"
#include "foundation/win_critical_section.h"
#include "tests/support/test_thread.h"

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace velt::test
{
/// What stand-ins were called for, in one order, whichever thread called. Any thread may use it.
class CallLog
{
public:
    using Calls = std::vector<std::string>;

    CallLog() : m_grown(::CreateEventW(nullptr, FALSE, FALSE, nullptr)) {}

    CallLog(const CallLog&) = delete;
    CallLog& operator=(const CallLog&) = delete;

    ~CallLog() = default;

    void Add(std::string call)
    {
        {
            const VeltAutoCriticalSection lock(&m_lock);
            m_calls.push_back(std::move(call));
        }
        ::SetEvent(m_grown.Get());
    }

    Calls All() const
    {
        const VeltAutoCriticalSection lock(&m_lock);
        return m_calls;
    }

    /// The calls up to and with the first one of that text.
    Calls Until(const std::string& call) const
    {
        Calls calls = All();
        const auto found = std::find(calls.begin(), calls.end(), call);
        calls.erase(found == calls.end() ? found : found + 1, calls.end());
        return calls;
    }

    std::size_t Count(const std::string& call) const
    {
        const Calls calls = All();
        return static_cast<std::size_t>(std::count(calls.begin(), calls.end(), call));
    }

    /// Waits until there are `count` calls of that text; one thread at a time. Throws
    /// std::runtime_error when they do not come.
    void WaitFor(const std::string& call, std::size_t count = 1) const
    {
        while (Count(call) < count)
        {
            if (::WaitForSingleObject(m_grown.Get(), kWaitLimitMs) != WAIT_OBJECT_0)
            {
                throw std::runtime_error("does not come: " + call);
            }
        }
    }

private:
    UniqueKernelObject m_grown;
    mutable WinCriticalSection m_lock;
    Calls m_calls; // guarded by m_lock
};
} // namespace velt::test
