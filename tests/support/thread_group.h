#pragma once

#include "foundation/unique_handle.h"
#include "tests/support/test_thread.h"

#include <windows.h>

#include <functional>
#include <stdexcept>
#include <vector>

namespace velt::test
{
/// Runs `body` on `count` threads, which start together, and waits until all of them have ended.
/// The body gets the thread's number. Checks belong after the call: Catch's are for one thread.
inline void RunTogether(unsigned count, const std::function<void(unsigned)>& body)
{
    struct Start
    {
        const std::function<void(unsigned)>* body;
        HANDLE go;
        unsigned number;

        static DWORD WINAPI Run(void* parameter)
        {
            const auto& start = *static_cast<const Start*>(parameter);
            ::WaitForSingleObject(start.go, INFINITE);
            (*start.body)(start.number);
            return 0;
        }
    };
    const UniqueKernelObject go(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
    std::vector<Start> starts;
    for (unsigned number = 0; number < count; ++number)
    {
        starts.push_back({&body, go.Get(), number});
    }
    std::vector<UniqueKernelObject> threads;
    for (Start& start : starts)
    {
        threads.emplace_back(::CreateThread(nullptr, 0, &Start::Run, &start, 0, nullptr));
    }
    ::SetEvent(go.Get());
    for (const UniqueKernelObject& thread : threads)
    {
        if (::WaitForSingleObject(thread.Get(), kWaitLimitMs) != WAIT_OBJECT_0)
        {
            throw std::runtime_error("a thread does not end");
        }
    }
}

/// Runs `body` on a thread of its own, which has not initialised COM.
inline void RunOnNewThread(const std::function<void()>& body)
{
    RunTogether(1, [&](unsigned) { body(); });
}
} // namespace velt::test
