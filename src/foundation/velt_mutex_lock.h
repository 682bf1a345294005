#pragma once

#include "foundation/base_mutex.h"

/// Holds a mutex for as long as it lives; the mutex must outlive it.
///
/// By design, it must always be given a mutex: unlike VeltAutoCriticalSection it does not test its
/// pointer. An unlock that fails is a thread that gave away what it holds, and ends the process.
class VeltMutexLock
{
public:
    explicit VeltMutexLock(BaseMutex* mutex) : m_mutex(mutex)
    {
        m_mutex->Lock();
    }

    VeltMutexLock(const VeltMutexLock&) = delete;
    VeltMutexLock& operator=(const VeltMutexLock&) = delete;

    ~VeltMutexLock()
    {
        m_mutex->Unlock();
    }

private:
    BaseMutex* m_mutex;
};
