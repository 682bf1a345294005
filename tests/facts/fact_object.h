#pragma once

#include "facts/fact_library.h"
#include "tests/facts/fact.h"

#include <windows.h>

#include <wrl/client.h>

namespace velt::facts
{
/// The library that this program carries.
inline Microsoft::WRL::ComPtr<ITypeLib> LoadFactLibrary()
{
    Microsoft::WRL::ComPtr<ITypeLib> library;
    Need(SUCCEEDED(::LoadTypeLibEx(ThisProgram().c_str(), REGKIND_NONE, &library)),
         "no type library");
    return library;
}

/// An object of the library, without state. It lives in the question's scope and says on which
/// thread its last reference was given up.
class FactObject final : public IVeltFact
{
public:
    /// With a free-threaded marshaler of its own, or without one.
    explicit FactObject(bool freeThreaded = false)
    {
        Need(SUCCEEDED(LoadFactLibrary()->GetTypeInfoOfGuid(IID_IVeltFact, &m_type)),
             "no interface in the type library");
        if (freeThreaded)
        {
            Need(SUCCEEDED(::CoCreateFreeThreadedMarshaler(this, &m_marshaler)), "no marshaler");
        }
    }

    FactObject(const FactObject&) = delete;
    FactObject& operator=(const FactObject&) = delete;

    ITypeInfo* Type() const noexcept
    {
        return m_type.Get();
    }

    /// The thread of the last Release so far.
    DWORD ReleasedBy() const noexcept
    {
        return m_releasedBy;
    }

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override
    {
        if (iid == IID_IMarshal && m_marshaler)
        {
            return m_marshaler->QueryInterface(iid, object);
        }
        const bool known = iid == IID_IUnknown || iid == IID_IDispatch || iid == IID_IVeltFact;
        *object = known ? this : nullptr;
        if (known)
        {
            AddRef();
        }
        return known ? S_OK : E_NOINTERFACE;
    }

    STDMETHODIMP_(ULONG) AddRef() override
    {
        return static_cast<ULONG>(::InterlockedIncrement(&m_references));
    }

    STDMETHODIMP_(ULONG) Release() override
    {
        m_releasedBy = ::GetCurrentThreadId();
        return static_cast<ULONG>(::InterlockedDecrement(&m_references));
    }

    STDMETHODIMP GetTypeInfoCount(UINT* count) override
    {
        *count = 1;
        return S_OK;
    }

    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo** type) override
    {
        return m_type.CopyTo(type);
    }

    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) override
    {
        return m_type->GetIDsOfNames(names, count, ids);
    }

    STDMETHODIMP Invoke(DISPID id, REFIID, LCID, WORD kind, DISPPARAMS* arguments, VARIANT* result,
                        EXCEPINFO* exception, UINT* position) override
    {
        return m_type->Invoke(static_cast<IVeltFact*>(this), id, kind, arguments, result, exception,
                              position);
    }

    STDMETHODIMP Take(long value, long* taken) override
    {
        *taken = value;
        return S_OK;
    }

    STDMETHODIMP get_Value(long* value) override
    {
        *value = 7;
        return S_OK;
    }

private:
    LONG m_references = 1;
    DWORD m_releasedBy = 0;
    Microsoft::WRL::ComPtr<ITypeInfo> m_type;
    Microsoft::WRL::ComPtr<IUnknown> m_marshaler;
};
} // namespace velt::facts
