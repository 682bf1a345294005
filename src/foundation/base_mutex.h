#pragma once

#include <windows.h>

/// A lock with wait semantics, re-entrant on the thread that owns it. Failures of the system are
/// thrown as SystemException::Win32.
class BaseMutex
{
public:
    virtual ~BaseMutex() = default;

    /// Waits without limit. Returns WAIT_OBJECT_0, or WAIT_ABANDONED when the former owner ended
    /// without unlocking; the caller owns the mutex either way.
    virtual DWORD Lock() = 0;

    /// Returns false at once when another thread owns the mutex.
    virtual bool TryLock() = 0;

    /// Only for the thread that owns the mutex.
    virtual void Unlock() = 0;
};
