#pragma once

#include <windows.h>

#include <unknwn.h>
#include <wrl/client.h>

namespace velt::test
{
/// An object that aggregates another one: the controlling unknown of the aggregate. It answers to
/// IUnknown itself and leaves every other interface to the inner object. Lives where it is
/// declared; the test looks at its count.
class OuterObject final : public IUnknown
{
public:
    /// Makes the inner object, which the outer one then owns.
    HRESULT Aggregate(IClassFactory& factory)
    {
        return factory.CreateInstance(this, IID_IUnknown,
                                      reinterpret_cast<void**>(m_inner.ReleaseAndGetAddressOf()));
    }

    IUnknown* Inner() const noexcept
    {
        return m_inner.Get();
    }

    void ReleaseInner()
    {
        m_inner.Reset();
    }

    ULONG References() const noexcept
    {
        return static_cast<ULONG>(m_references);
    }

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override
    {
        if (!object)
        {
            return E_POINTER;
        }
        *object = nullptr;
        if (::IsEqualIID(iid, IID_IUnknown))
        {
            *object = static_cast<IUnknown*>(this);
            AddRef();
            return S_OK;
        }
        return m_inner ? m_inner->QueryInterface(iid, object) : E_NOINTERFACE;
    }

    STDMETHODIMP_(ULONG) AddRef() override
    {
        return static_cast<ULONG>(::InterlockedIncrement(&m_references));
    }

    STDMETHODIMP_(ULONG) Release() override
    {
        return static_cast<ULONG>(::InterlockedDecrement(&m_references));
    }

private:
    Microsoft::WRL::ComPtr<IUnknown> m_inner;
    LONG m_references = 1; // the owner's
};
} // namespace velt::test
