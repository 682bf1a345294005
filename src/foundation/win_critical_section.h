#pragma once

#include "foundation/base_critical_section.h"

#include <windows.h>

/// The system's critical section.
class WinCriticalSection : public BaseCriticalSection
{
public:
    WinCriticalSection() noexcept;

    WinCriticalSection(const WinCriticalSection&) = delete;
    WinCriticalSection& operator=(const WinCriticalSection&) = delete;

    ~WinCriticalSection() override;

    void Enter() noexcept override;
    void Leave() noexcept override;

private:
    CRITICAL_SECTION m_section;
};
