#pragma once

#include "foundation/win_critical_section.h"

/// The critical section that the component's classes declare.
class VeltCriticalSection : public WinCriticalSection
{
};
