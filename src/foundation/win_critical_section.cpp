#include "foundation/win_critical_section.h"

WinCriticalSection::WinCriticalSection() noexcept : m_section()
{
    ::InitializeCriticalSection(&m_section);
}

WinCriticalSection::~WinCriticalSection()
{
    ::DeleteCriticalSection(&m_section);
}

void WinCriticalSection::Enter() noexcept
{
    ::EnterCriticalSection(&m_section);
}

void WinCriticalSection::Leave() noexcept
{
    ::LeaveCriticalSection(&m_section);
}
