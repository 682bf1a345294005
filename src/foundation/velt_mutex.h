#pragma once

#include "foundation/win_mutex.h"

/// The mutex that the component's classes declare.
class VeltMutex : public WinMutex
{
};
