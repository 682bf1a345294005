#include "collection/view_marshal.h"

#include "foundation/failure_trace.h"

#include <objbase.h>
#include <wrl/client.h>

using Microsoft::WRL::ComPtr;

namespace velt
{
STDMETHODIMP ViewMarshal::GetUnmarshalClass(REFIID iid, void*, DWORD context, void* contextData,
                                            DWORD flags, CLSID* clsid)
{
    const UnscopedCall call("IMarshal::GetUnmarshalClass");
    if (!clsid)
    {
        return call.Return(E_POINTER);
    }
    IUnknown* const view = MarshalledObject();
    ComPtr<IMarshal> standard;
    HRESULT hr = ::CoGetStandardMarshal(iid, view, context, contextData, flags, &standard);
    if (SUCCEEDED(hr))
    {
        hr = standard->GetUnmarshalClass(iid, view, context, contextData, flags, clsid);
    }
    return call.Return(hr);
}

STDMETHODIMP ViewMarshal::GetMarshalSizeMax(REFIID iid, void*, DWORD context, void* contextData,
                                            DWORD flags, DWORD* size)
{
    const UnscopedCall call("IMarshal::GetMarshalSizeMax");
    if (!size)
    {
        return call.Return(E_POINTER);
    }
    IUnknown* const view = MarshalledObject();
    ComPtr<IMarshal> standard;
    HRESULT hr = ::CoGetStandardMarshal(iid, view, context, contextData, flags, &standard);
    if (SUCCEEDED(hr))
    {
        hr = standard->GetMarshalSizeMax(iid, view, context, contextData, flags, size);
    }
    return call.Return(hr);
}

STDMETHODIMP ViewMarshal::MarshalInterface(IStream* stream, REFIID iid, void*, DWORD context,
                                           void* contextData, DWORD flags)
{
    const UnscopedCall call("IMarshal::MarshalInterface");
    if (!stream)
    {
        return call.Return(E_POINTER);
    }
    IUnknown* const view = MarshalledObject();
    ComPtr<IMarshal> standard;
    HRESULT hr = ::CoGetStandardMarshal(iid, view, context, contextData, flags, &standard);
    if (SUCCEEDED(hr))
    {
        hr = standard->MarshalInterface(stream, iid, view, context, contextData, flags);
    }
    return call.Return(hr);
}

STDMETHODIMP ViewMarshal::UnmarshalInterface(IStream* stream, REFIID iid, void** object)
{
    const UnscopedCall call("IMarshal::UnmarshalInterface");
    if (!object)
    {
        return call.Return(E_POINTER);
    }
    *object = nullptr;
    return call.Return(stream ? ::CoUnmarshalInterface(stream, iid, object) : E_POINTER);
}

STDMETHODIMP ViewMarshal::ReleaseMarshalData(IStream* stream)
{
    const UnscopedCall call("IMarshal::ReleaseMarshalData");
    return call.Return(stream ? ::CoReleaseMarshalData(stream) : E_POINTER);
}

STDMETHODIMP ViewMarshal::DisconnectObject(DWORD reserved)
{
    const UnscopedCall call("IMarshal::DisconnectObject");
    return call.Return(::CoDisconnectObject(MarshalledObject(), reserved));
}
} // namespace velt
