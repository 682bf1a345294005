#pragma once

#include "foundation/com_module.h"
#include "tests/support/component_library.h"

#include <utility>
#include <vector>

namespace velt::test
{
/// A library's module for tests that make a component class themselves. It serves the shipped type
/// library. One at a time.
class TestModule final : public ComModule
{
public:
    TestModule() noexcept = default;

    ~TestModule()
    {
        for (const auto& [function, argument] : m_termFuncs)
        {
            function(argument);
        }
    }

    LONG LockCount() const noexcept
    {
        return m_lockCount;
    }

    LONG Lock() noexcept override
    {
        return ::InterlockedIncrement(&m_lockCount);
    }

    LONG Unlock() noexcept override
    {
        return ::InterlockedDecrement(&m_lockCount);
    }

    HRESULT GetGITPtr(IGlobalInterfaceTable** table) noexcept override
    {
        return ::CoCreateInstance(CLSID_StdGlobalInterfaceTable, nullptr, CLSCTX_INPROC_SERVER,
                                  IID_IGlobalInterfaceTable, reinterpret_cast<void**>(table));
    }

    HRESULT AddTermFunc(TermFunc function, void* argument) noexcept override
    {
        m_termFuncs.emplace_back(function, argument);
        return S_OK;
    }

    HRESULT GetTypeLibrary(ITypeLib** library) noexcept override
    {
        return ::LoadTypeLibEx(ShippedFile(L"VeltHTTPClient12OEM.tlb").c_str(), REGKIND_NONE,
                               library);
    }

private:
    LONG m_lockCount = 0;
    std::vector<std::pair<TermFunc, void*>> m_termFuncs;
};
} // namespace velt::test
