#pragma once

#include <windows.h>

#include <servprov.h>
#include <unknwn.h>
#include <wrl/client.h>

namespace velt::test
{
/// An object that aggregates another one: the controlling unknown of the aggregate. It answers to
/// IUnknown and IServiceProvider itself and leaves every other interface to the inner object.
class OuterObject final : public IServiceProvider
{
public:
    /// `alive`, unless null, tells from now on whether the object lives.
    static Microsoft::WRL::ComPtr<OuterObject> Make(bool* alive = nullptr)
    {
        Microsoft::WRL::ComPtr<OuterObject> outer;
        *outer.GetAddressOf() = new OuterObject(alive); // Attach of this compiler adds a reference
        return outer;
    }

    OuterObject(const OuterObject&) = delete;
    OuterObject& operator=(const OuterObject&) = delete;

    /// Makes the inner object, which this one then owns.
    HRESULT Aggregate(IClassFactory& factory)
    {
        return factory.CreateInstance(this, IID_IUnknown, InnerPlace());
    }

    /// The place for the inner object's own unknown.
    void** InnerPlace() noexcept
    {
        return reinterpret_cast<void**>(m_inner.ReleaseAndGetAddressOf());
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
        if (::IsEqualIID(iid, IID_IUnknown) || ::IsEqualIID(iid, __uuidof(IServiceProvider)))
        {
            *object = static_cast<IServiceProvider*>(this);
            AddRef();
            return S_OK;
        }
        *object = nullptr;
        return m_inner ? m_inner->QueryInterface(iid, object) : E_NOINTERFACE;
    }

    STDMETHODIMP_(ULONG) AddRef() override
    {
        return static_cast<ULONG>(::InterlockedIncrement(&m_references));
    }

    STDMETHODIMP_(ULONG) Release() override
    {
        const LONG left = ::InterlockedDecrement(&m_references);
        if (left == 0)
        {
            m_references = 1; // what the inner object does at its end must not end this one again
            delete this;
        }
        return static_cast<ULONG>(left);
    }

    STDMETHODIMP QueryService(REFGUID, REFIID, void** object) override
    {
        *object = nullptr;
        return E_NOINTERFACE;
    }

private:
    explicit OuterObject(bool* alive) noexcept : m_alive(alive)
    {
        if (m_alive)
        {
            *m_alive = true;
        }
    }

    ~OuterObject()
    {
        if (m_alive)
        {
            *m_alive = false;
        }
    }

    bool* m_alive;
    LONG m_references = 1;
    Microsoft::WRL::ComPtr<IUnknown> m_inner;
};
} // namespace velt::test
