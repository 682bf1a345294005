#pragma once

#include "foundation/base_mutex.h"
#include "foundation/unique_handle.h"

/// The system's mutex, unnamed: it orders threads of this process only.
class WinMutex : public BaseMutex
{
public:
    /// Throws SystemException::Win32 when the system has no mutex to give.
    WinMutex();

    DWORD Lock() override;
    bool TryLock() override;
    void Unlock() override;

private:
    velt::UniqueKernelObject m_mutex;
};
