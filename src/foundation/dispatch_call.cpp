#include "foundation/dispatch_call.h"

#include "foundation/failure_trace.h"

namespace velt
{
HRESULT DispatchGetTypeInfoCount(UINT* count) noexcept
{
    const UnscopedCall call("IDispatch::GetTypeInfoCount");
    if (!count)
    {
        return call.Return(E_POINTER);
    }
    *count = 1;
    return S_OK;
}

HRESULT DispatchGetTypeInfo(TypeInfoHolder& description, UINT index, ITypeInfo** info) noexcept
{
    const UnscopedCall call("IDispatch::GetTypeInfo");
    if (!info)
    {
        return call.Return(E_POINTER);
    }
    *info = nullptr;
    if (index != 0)
    {
        return call.Return(DISP_E_BADINDEX);
    }
    const HRESULT hr = description.Get(info);
    if (SUCCEEDED(hr))
    {
        (*info)->AddRef();
    }
    return call.Return(hr);
}

HRESULT DispatchGetIDsOfNames(TypeInfoHolder& description, REFIID iid, LPOLESTR* names, UINT count,
                              DISPID* ids) noexcept
{
    const UnscopedCall call("IDispatch::GetIDsOfNames");
    if (!::IsEqualIID(iid, IID_NULL))
    {
        return call.Return(DISP_E_UNKNOWNINTERFACE);
    }
    if (!names || !ids)
    {
        return call.Return(E_POINTER);
    }
    ITypeInfo* info = nullptr;
    HRESULT hr = description.Get(&info);
    if (SUCCEEDED(hr))
    {
        hr = info->GetIDsOfNames(names, count, ids);
    }
    return count > 0 && *names ? call.Return(hr, *names) : call.Return(hr);
}

HRESULT DispatchInvoke(TypeInfoHolder& description, void* target, DISPID id, REFIID iid, WORD flags,
                       DISPPARAMS* parameters, VARIANT* result, EXCEPINFO* exception,
                       UINT* argumentError) noexcept
{
    const UnscopedCall call("IDispatch::Invoke");
    if (!::IsEqualIID(iid, IID_NULL))
    {
        return call.Return(DISP_E_UNKNOWNINTERFACE, id);
    }
    if (!parameters)
    {
        return call.Return(E_POINTER, id);
    }
    ITypeInfo* info = nullptr;
    HRESULT hr = description.Get(&info);
    if (SUCCEEDED(hr))
    {
        hr = info->Invoke(target, id, flags, parameters, result, exception, argumentError);
    }
    return call.Return(hr, id);
}
} // namespace velt
