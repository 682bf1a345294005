#pragma once

#include "foundation/com_module.h"

namespace velt
{
/// Holds one module lock until the end of the scope.
class ModuleLock
{
public:
    ModuleLock() noexcept
    {
        ComModule::Current().Lock();
    }

    ModuleLock(const ModuleLock&) = delete;
    ModuleLock& operator=(const ModuleLock&) = delete;

    ~ModuleLock()
    {
        if (m_held)
        {
            ComModule::Current().Unlock();
        }
    }

    /// Leaves the lock to somebody else, who gives it back later.
    void Keep() noexcept
    {
        m_held = false;
    }

private:
    bool m_held = true;
};
} // namespace velt
