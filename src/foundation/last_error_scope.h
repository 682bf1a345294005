#pragma once

#include <windows.h>

namespace velt
{
/// Gives the thread its last error back at the end of the scope, so that tidying up or tracing
/// between a failed call and the question why it failed does not change the answer.
class LastErrorScope
{
public:
    LastErrorScope() noexcept : m_lastError(::GetLastError()) {}

    LastErrorScope(const LastErrorScope&) = delete;
    LastErrorScope& operator=(const LastErrorScope&) = delete;

    ~LastErrorScope()
    {
        ::SetLastError(m_lastError);
    }

private:
    DWORD m_lastError;
};
} // namespace velt
