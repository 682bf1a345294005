#pragma once

#include "foundation/type_info_holder.h"

#include <windows.h>

#include <oaidl.h>

// What DispatchImpl does for every interface alike. The arguments are those of IDispatch's methods;
// a call that fails here, before its member, leaves a line in the trace.

namespace velt
{
HRESULT DispatchGetTypeInfoCount(UINT* count) noexcept;

HRESULT DispatchGetTypeInfo(TypeInfoHolder& description, UINT index, ITypeInfo** info) noexcept;

HRESULT DispatchGetIDsOfNames(TypeInfoHolder& description, REFIID iid, LPOLESTR* names, UINT count,
                              DISPID* ids) noexcept;

/// `target` is the implementation of the described interface that the call goes to.
HRESULT DispatchInvoke(TypeInfoHolder& description, void* target, DISPID id, REFIID iid, WORD flags,
                       DISPPARAMS* parameters, VARIANT* result, EXCEPINFO* exception,
                       UINT* argumentError) noexcept;
} // namespace velt
