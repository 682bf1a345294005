#pragma once

#include "foundation/com_object.h"

#include <windows.h>

#include <objidl.h>

namespace velt
{
/// Has a collection marshalled as its automation view: whatever interface of the collection goes to
/// another apartment or process, the system's own marshaler is given the view's, so that no call
/// through a proxy arrives at the collection's vtable. What the marshaler frees after a call is
/// then a copy, early-bound and late-bound alike.
///
/// Marshalled data are the standard marshaler's, and so is the class that reads them: the members
/// that read serve a caller who asks this object all the same. No member opens a trace scope: the
/// system calls them on its own account. Failures are traced.
class ViewMarshal : public IMarshal
{
public:
    STDMETHODIMP GetUnmarshalClass(REFIID iid, void* object, DWORD context, void* contextData,
                                   DWORD flags, CLSID* clsid) override;
    STDMETHODIMP GetMarshalSizeMax(REFIID iid, void* object, DWORD context, void* contextData,
                                   DWORD flags, DWORD* size) override;
    STDMETHODIMP MarshalInterface(IStream* stream, REFIID iid, void* object, DWORD context,
                                  void* contextData, DWORD flags) override;
    STDMETHODIMP UnmarshalInterface(IStream* stream, REFIID iid, void** object) override;
    STDMETHODIMP ReleaseMarshalData(IStream* stream) override;
    STDMETHODIMP DisconnectObject(DWORD reserved) override;

protected:
    ViewMarshal() = default;
    ~ViewMarshal() = default;

    /// The view, as the unknown that is its identity.
    virtual IUnknown* MarshalledObject() noexcept = 0;
};

template <>
struct InterfaceIds<ViewMarshal>
{
    static bool Contains(REFIID iid) noexcept
    {
        return ::IsEqualIID(iid, IID_IMarshal);
    }
};
} // namespace velt
