#pragma once

#include "foundation/com_object.h"
#include "foundation/dispatch_call.h"
#include "foundation/type_info_holder.h"

#include <windows.h>

#include <oaidl.h>

namespace velt
{
/// IDispatch of a dual interface, served from the library's type library.
///
/// By design it opens no trace scope: the member that a late-bound call arrives at opens its own,
/// so that the trace of a call is the same whichever way it came. A call that is refused before its
/// member leaves a line, though.
template <class Dual>
class DispatchImpl : public Dual
{
public:
    DispatchImpl(const DispatchImpl&) = delete;
    DispatchImpl& operator=(const DispatchImpl&) = delete;

    STDMETHODIMP GetTypeInfoCount(UINT* count) override
    {
        return DispatchGetTypeInfoCount(count);
    }

    STDMETHODIMP GetTypeInfo(UINT index, LCID, ITypeInfo** info) override
    {
        return DispatchGetTypeInfo(s_typeInfo, index, info);
    }

    STDMETHODIMP GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, LCID, DISPID* ids) override
    {
        return DispatchGetIDsOfNames(s_typeInfo, iid, names, count, ids);
    }

    STDMETHODIMP Invoke(DISPID id, REFIID iid, LCID, WORD flags, DISPPARAMS* parameters,
                        VARIANT* result, EXCEPINFO* exception, UINT* argumentError) override
    {
        return DispatchInvoke(s_typeInfo, AutomationTarget(), id, iid, AutomationFlags(flags),
                              parameters, result, exception, argumentError);
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
