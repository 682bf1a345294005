#pragma once

#include <windows.h>

#include <objidl.h>
#include <wrl/client.h>

namespace velt::test
{
/// An outer object that has IPersist of its own and shows all interfaces of the object that was
/// aggregated into it. It lives in the test's scope and starts with the test's own reference.
class AggregatingObject final : public IPersist
{
public:
    AggregatingObject() = default;
    AggregatingObject(const AggregatingObject&) = delete;
    AggregatingObject& operator=(const AggregatingObject&) = delete;

    ~AggregatingObject()
    {
        ++m_references; // for references that come and go while the inner object ends
    }

    /// The place for the inner object's own IUnknown.
    IUnknown** Inner() noexcept
    {
        return m_inner.ReleaseAndGetAddressOf();
    }

    LONG References() const noexcept
    {
        return m_references;
    }

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override
    {
        if (iid != IID_IUnknown && iid != IID_IPersist)
        {
            *object = nullptr;
            return m_inner ? m_inner->QueryInterface(iid, object) : E_NOINTERFACE;
        }
        *object = this;
        AddRef();
        return S_OK;
    }

    STDMETHODIMP_(ULONG) AddRef() override
    {
        return static_cast<ULONG>(::InterlockedIncrement(&m_references));
    }

    STDMETHODIMP_(ULONG) Release() override
    {
        return static_cast<ULONG>(::InterlockedDecrement(&m_references));
    }

    STDMETHODIMP GetClassID(CLSID* clsid) override
    {
        *clsid = CLSID_NULL;
        return S_OK;
    }

private:
    LONG m_references = 1;
    Microsoft::WRL::ComPtr<IUnknown> m_inner;
};
} // namespace velt::test
