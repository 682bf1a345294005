#include "foundation/win_mutex.h"

#include "foundation/system_exception.h"

namespace
{
/// An abandoned mutex counts as acquired.
bool IsAcquired(DWORD waitResult) noexcept
{
    return waitResult == WAIT_OBJECT_0 || waitResult == WAIT_ABANDONED;
}
} // namespace

WinMutex::WinMutex() : m_mutex(::CreateMutexW(nullptr, FALSE, nullptr))
{
    if (!m_mutex)
    {
        velt::ThrowLastError();
    }
}

DWORD WinMutex::Lock()
{
    const DWORD result = ::WaitForSingleObject(m_mutex.Get(), INFINITE);
    if (!IsAcquired(result))
    {
        velt::ThrowLastError();
    }
    return result;
}

bool WinMutex::TryLock()
{
    const DWORD result = ::WaitForSingleObject(m_mutex.Get(), 0);
    if (!IsAcquired(result) && result != WAIT_TIMEOUT)
    {
        velt::ThrowLastError();
    }
    return result != WAIT_TIMEOUT;
}

void WinMutex::Unlock()
{
    if (!::ReleaseMutex(m_mutex.Get()))
    {
        velt::ThrowLastError();
    }
}
