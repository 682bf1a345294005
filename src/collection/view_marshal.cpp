#include "collection/view_marshal.h"

#include "foundation/com_method.h"

#include <objbase.h>
#include <wrl/client.h>

using Microsoft::WRL::ComPtr;

namespace velt
{
STDMETHODIMP ViewMarshal::GetUnmarshalClass(REFIID iid, void*, DWORD context, void* contextData,
                                            DWORD flags, CLSID* clsid)
{
    return ComMethod("CEnumVariantCol::GetUnmarshalClass", [&] {
        if (!clsid)
        {
            return E_POINTER;
        }
        IUnknown* const view = MarshalledObject();
        ComPtr<IMarshal> standard;
        const HRESULT hr =
            ::CoGetStandardMarshal(iid, view, context, contextData, flags, &standard);
        return SUCCEEDED(hr)
                   ? standard->GetUnmarshalClass(iid, view, context, contextData, flags, clsid)
                   : hr;
    });
}

STDMETHODIMP ViewMarshal::GetMarshalSizeMax(REFIID iid, void*, DWORD context, void* contextData,
                                            DWORD flags, DWORD* size)
{
    return ComMethod("CEnumVariantCol::GetMarshalSizeMax", [&] {
        if (!size)
        {
            return E_POINTER;
        }
        IUnknown* const view = MarshalledObject();
        ComPtr<IMarshal> standard;
        const HRESULT hr =
            ::CoGetStandardMarshal(iid, view, context, contextData, flags, &standard);
        return SUCCEEDED(hr)
                   ? standard->GetMarshalSizeMax(iid, view, context, contextData, flags, size)
                   : hr;
    });
}

STDMETHODIMP ViewMarshal::MarshalInterface(IStream* stream, REFIID iid, void*, DWORD context,
                                           void* contextData, DWORD flags)
{
    return ComMethod("CEnumVariantCol::MarshalInterface", [&] {
        if (!stream)
        {
            return E_POINTER;
        }
        IUnknown* const view = MarshalledObject();
        ComPtr<IMarshal> standard;
        const HRESULT hr =
            ::CoGetStandardMarshal(iid, view, context, contextData, flags, &standard);
        return SUCCEEDED(hr)
                   ? standard->MarshalInterface(stream, iid, view, context, contextData, flags)
                   : hr;
    });
}

STDMETHODIMP ViewMarshal::UnmarshalInterface(IStream* stream, REFIID iid, void** object)
{
    return ComMethod("CEnumVariantCol::UnmarshalInterface", [&] {
        if (!object)
        {
            return E_POINTER;
        }
        *object = nullptr;
        return stream ? ::CoUnmarshalInterface(stream, iid, object) : E_POINTER;
    });
}

STDMETHODIMP ViewMarshal::ReleaseMarshalData(IStream* stream)
{
    return ComMethod("CEnumVariantCol::ReleaseMarshalData",
                     [&] { return stream ? ::CoReleaseMarshalData(stream) : E_POINTER; });
}

STDMETHODIMP ViewMarshal::DisconnectObject(DWORD reserved)
{
    return ComMethod("CEnumVariantCol::DisconnectObject",
                     [&] { return ::CoDisconnectObject(MarshalledObject(), reserved); });
}
} // namespace velt
