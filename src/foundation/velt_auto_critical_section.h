#pragma once

#include "foundation/base_critical_section.h"

/// Holds a critical section for as long as it lives; the section must outlive it. Null is allowed
/// and holds nothing.
class VeltAutoCriticalSection
{
public:
    explicit VeltAutoCriticalSection(BaseCriticalSection* section) : m_section(section)
    {
        if (m_section)
        {
            m_section->Enter();
        }
    }

    VeltAutoCriticalSection(const VeltAutoCriticalSection&) = delete;
    VeltAutoCriticalSection& operator=(const VeltAutoCriticalSection&) = delete;

    virtual ~VeltAutoCriticalSection()
    {
        if (m_section)
        {
            m_section->Leave();
        }
    }

private:
    BaseCriticalSection* m_section;
};
