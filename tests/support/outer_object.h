#pragma once

#include <windows.h>

#include <unknwn.h>
#include <wrl/client.h>

namespace velt::test
{
/// An outer object that aggregates another one: it answers for IUnknown and IServiceProvider itself
/// and hands every other question to the inner object's own unknown. `alive` tells whether it
/// lives.
class OuterObject final : public IServiceProvider
{
public:
    static Microsoft::WRL::ComPtr<OuterObject> Make(bool& alive)
    {
        Microsoft::WRL::ComPtr<OuterObject> outer;
        *outer.GetAddressOf() = new OuterObject(alive); // Attach of this compiler adds a reference
        return outer;
    }

    OuterObject(const OuterObject&) = delete;
    OuterObject& operator=(const OuterObject&) = delete;

    /// The place for the inner object's unknown, which asks for no reference on this object.
    void** Inner() noexcept
    {
        return reinterpret_cast<void**>(m_inner.ReleaseAndGetAddressOf());
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
            m_alive = false;
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
    explicit OuterObject(bool& alive) noexcept : m_alive(alive)
    {
        m_alive = true;
    }

    ~OuterObject() = default;

    bool& m_alive;
    LONG m_references = 1;
    Microsoft::WRL::ComPtr<IUnknown> m_inner;
};
} // namespace velt::test
