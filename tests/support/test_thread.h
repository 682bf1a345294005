#pragma once

#include "foundation/unique_handle.h"

#include <windows.h>

#include <array>
#include <cstdlib>
#include <exception>
#include <functional>
#include <optional>
#include <stdexcept>
#include <utility>

namespace velt::test
{
/// How long a test waits for something that must come before it fails: far longer than that takes
/// on a machine that is busy with other things. VELT_WAIT_LIMIT_MS in the environment names another
/// limit, for whom a test that fails late costs too much.
inline const DWORD kWaitLimitMs = [] {
    std::array<char, 16> text{};
    const DWORD length = ::GetEnvironmentVariableA("VELT_WAIT_LIMIT_MS", text.data(),
                                                   static_cast<DWORD>(text.size()));
    return length > 0 && length < text.size() ? std::strtoul(text.data(), nullptr, 10) : 60'000UL;
}();

/// A thread that runs one function. Checks of the test framework belong to the main thread, so the
/// function hands its findings over as values. Failures to start and to end throw
/// std::runtime_error.
class TestThread
{
public:
    explicit TestThread(std::function<void()> body) : m_body(std::move(body))
    {
        m_thread.Reset(::CreateThread(nullptr, 0, &TestThread::Run, this, 0, nullptr));
        if (!m_thread)
        {
            throw std::runtime_error("no thread");
        }
    }

    TestThread(const TestThread&) = delete;
    TestThread& operator=(const TestThread&) = delete;

    ~TestThread()
    {
        ::WaitForSingleObject(m_thread.Get(), INFINITE); // the thread uses this object
    }

    /// Waits for the end of the function and throws what it has thrown.
    void Join(DWORD limitMs = kWaitLimitMs)
    {
        if (::WaitForSingleObject(m_thread.Get(), limitMs) != WAIT_OBJECT_0)
        {
            throw std::runtime_error("the thread does not end");
        }
        if (m_failure)
        {
            std::rethrow_exception(std::exchange(m_failure, nullptr));
        }
    }

private:
    static DWORD WINAPI Run(void* argument) noexcept
    {
        auto& thread = *static_cast<TestThread*>(argument);
        try
        {
            thread.m_body();
        }
        catch (...)
        {
            thread.m_failure = std::current_exception();
        }
        return 0;
    }

    std::function<void()> m_body;
    std::exception_ptr m_failure;
    velt::UniqueKernelObject m_thread;
};

/// The result of a function that has run on a thread of its own.
template <class Function>
auto OnOtherThread(Function&& function)
{
    std::optional<decltype(function())> result;
    TestThread thread([&] { result.emplace(function()); });
    thread.Join();
    return *std::move(result);
}

/// An event that the threads of a test wait for, with a limit.
class TestEvent
{
public:
    TestEvent() : m_event(::CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}

    void Set() noexcept
    {
        ::SetEvent(m_event.Get());
    }

    void Wait() const
    {
        if (::WaitForSingleObject(m_event.Get(), kWaitLimitMs) != WAIT_OBJECT_0)
        {
            throw std::runtime_error("the event does not come");
        }
    }

    /// For what must not happen: whether the event comes within so many milliseconds.
    bool IsSetWithin(DWORD limitMs) const noexcept
    {
        return ::WaitForSingleObject(m_event.Get(), limitMs) == WAIT_OBJECT_0;
    }

private:
    velt::UniqueKernelObject m_event;
};
} // namespace velt::test
