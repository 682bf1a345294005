#pragma once

#include <windows.h>

#include <oaidl.h>

#include <functional>
#include <utility>

namespace velt::test
{
/// An automation object without members that counts its references, to be put into VARIANTs. It
/// lives in the test's scope: releasing does not free it. It starts with the test's own reference.
class StandInObject final : public IDispatch
{
public:
    StandInObject() = default;
    StandInObject(const StandInObject&) = delete;
    StandInObject& operator=(const StandInObject&) = delete;

    LONG References() const noexcept
    {
        return m_references;
    }

    /// Has a function called after each reference that is added or given back.
    void OnAddRef(std::function<void()> function)
    {
        m_onAddRef = std::move(function);
    }

    void OnRelease(std::function<void()> function)
    {
        m_onRelease = std::move(function);
    }

    /// A VARIANT with this object in it, without a reference of its own.
    VARIANT Lent() noexcept
    {
        VARIANT value;
        ::VariantInit(&value);
        value.vt = VT_DISPATCH;
        value.pdispVal = this;
        return value;
    }

    /// The same with a reference, for whoever takes the VARIANT over.
    VARIANT Given() noexcept
    {
        ++m_references;
        return Lent();
    }

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override
    {
        const bool known = iid == IID_IUnknown || iid == IID_IDispatch;
        *object = known ? this : nullptr;
        if (!known)
        {
            return E_NOINTERFACE;
        }
        AddRef();
        return S_OK;
    }

    STDMETHODIMP_(ULONG) AddRef() override
    {
        const LONG references = ::InterlockedIncrement(&m_references);
        if (m_onAddRef)
        {
            m_onAddRef();
        }
        return static_cast<ULONG>(references);
    }

    STDMETHODIMP_(ULONG) Release() override
    {
        const LONG references = ::InterlockedDecrement(&m_references);
        if (m_onRelease)
        {
            m_onRelease();
        }
        return static_cast<ULONG>(references);
    }

    STDMETHODIMP GetTypeInfoCount(UINT* count) override
    {
        *count = 0;
        return S_OK;
    }

    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo** info) override
    {
        *info = nullptr;
        return DISP_E_BADINDEX;
    }

    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID* ids) override
    {
        *ids = DISPID_UNKNOWN;
        return DISP_E_UNKNOWNNAME;
    }

    STDMETHODIMP Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                        UINT*) override
    {
        return DISP_E_MEMBERNOTFOUND;
    }

private:
    LONG m_references = 1;
    std::function<void()> m_onAddRef;
    std::function<void()> m_onRelease;
};
} // namespace velt::test
