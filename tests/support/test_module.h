#pragma once

#include "foundation/com_module.h"

namespace velt::test
{
/// The module of a test program's own objects: it counts their locks and has nothing else. One at a
/// time.
class TestModule final : public ComModule
{
public:
    LONG Lock() noexcept override
    {
        return ::InterlockedIncrement(&m_locks);
    }

    LONG Unlock() noexcept override
    {
        return ::InterlockedDecrement(&m_locks);
    }

    HRESULT GetGITPtr(IGlobalInterfaceTable**) noexcept override
    {
        return E_NOTIMPL;
    }

    HRESULT AddTermFunc(TermFunc, void*) noexcept override
    {
        return E_NOTIMPL;
    }

    HRESULT GetTypeLibrary(ITypeLib**) noexcept override
    {
        return E_NOTIMPL;
    }

    /// How many locks are held.
    LONG Locks() const noexcept
    {
        return m_locks;
    }

private:
    LONG m_locks = 0;
};
} // namespace velt::test
