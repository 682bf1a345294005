#pragma once

#include "foundation/com_object.h"
#include "foundation/type_info_holder.h"

#include <windows.h>

#include <oaidl.h>

namespace velt
{
/// IDispatch of a dual interface, served from the library's type library.
///
/// By design it opens no trace scope: the member that a late-bound call arrives at opens its own,
/// so that the trace of a call is the same whichever way it came.
template <class Dual>
class DispatchImpl : public Dual
{
public:
    DispatchImpl(const DispatchImpl&) = delete;
    DispatchImpl& operator=(const DispatchImpl&) = delete;

    STDMETHODIMP GetTypeInfoCount(UINT* count) override
    {
        if (!count)
        {
            return E_POINTER;
        }
        *count = 1;
        return S_OK;
    }

    STDMETHODIMP GetTypeInfo(UINT index, LCID, ITypeInfo** info) override
    {
        if (!info)
        {
            return E_POINTER;
        }
        *info = nullptr;
        if (index != 0)
        {
            return DISP_E_BADINDEX;
        }
        const HRESULT hr = s_typeInfo.Get(info);
        if (SUCCEEDED(hr))
        {
            (*info)->AddRef();
        }
        return hr;
    }

    STDMETHODIMP GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, LCID, DISPID* ids) override
    {
        if (!::IsEqualIID(iid, IID_NULL))
        {
            return DISP_E_UNKNOWNINTERFACE;
        }
        if (!names || !ids)
        {
            return E_POINTER;
        }
        ITypeInfo* info = nullptr;
        const HRESULT hr = s_typeInfo.Get(&info);
        return SUCCEEDED(hr) ? info->GetIDsOfNames(names, count, ids) : hr;
    }

    STDMETHODIMP Invoke(DISPID id, REFIID iid, LCID, WORD flags, DISPPARAMS* parameters,
                        VARIANT* result, EXCEPINFO* exception, UINT* argumentError) override
    {
        if (!::IsEqualIID(iid, IID_NULL))
        {
            return DISP_E_UNKNOWNINTERFACE;
        }
        if (!parameters)
        {
            return E_POINTER;
        }
        ITypeInfo* info = nullptr;
        const HRESULT hr = s_typeInfo.Get(&info);
        return SUCCEEDED(hr) ? info->Invoke(AutomationTarget(), id, AutomationFlags(flags),
                                            parameters, result, exception, argumentError)
                             : hr;
    }

protected:
    DispatchImpl() = default;
    ~DispatchImpl() = default;

    /// The object that late-bound calls arrive at. A class whose methods treat them differently
    /// from calls through the vtable answers with another implementation of the interface.
    virtual Dual* AutomationTarget() noexcept
    {
        return this;
    }

    /// What a late-bound call asks for: a method, a property get or put, or more than one of them.
    /// A class whose properties may be asked for as methods adds to it.
    virtual WORD AutomationFlags(WORD flags) noexcept
    {
        return flags;
    }

private:
    inline static constinit TypeInfoHolder s_typeInfo{__uuidof(Dual)};
};

template <class Dual>
struct InterfaceIds<DispatchImpl<Dual>>
{
    static bool Contains(REFIID iid) noexcept
    {
        return ::IsEqualIID(iid, __uuidof(Dual)) || ::IsEqualIID(iid, IID_IDispatch);
    }
};
} // namespace velt
