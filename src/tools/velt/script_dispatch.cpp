#include "tools/velt/script_dispatch.h"

#include "foundation/exception_to_hresult.h"
#include "tools/velt/command_context.h"

#include <algorithm>
#include <vector>

namespace velt::tool
{
namespace
{
/// A call's arguments, the first one first.
std::vector<_variant_t> ValuesOf(const DISPPARAMS& parameters)
{
    std::vector<_variant_t> values(parameters.cArgs);
    for (UINT i = 0; i < parameters.cArgs; ++i)
    {
        VARIANT& given = parameters.rgvarg[parameters.cArgs - 1 - i];
        Require(::VariantCopyInd(&values[i], &given), L"an argument");
    }
    return values;
}

/// Hands a failure to the script: the engine has words of its own for those of automation.
HRESULT HandOut(const CommandFailure& failure, EXCEPINFO* exception)
{
    if (HRESULT_FACILITY(failure.code) == FACILITY_DISPATCH || !exception)
    {
        return failure.code;
    }
    *exception = {};
    exception->scode = failure.code;
    exception->bstrSource = ::SysAllocString(L"velt");
    exception->bstrDescription = ::SysAllocString(failure.what.c_str());
    return DISP_E_EXCEPTION;
}
} // namespace

STDMETHODIMP ScriptDispatch::QueryInterface(REFIID iid, void** object)
{
    if (!object)
    {
        return E_POINTER;
    }
    *object = iid == IID_IUnknown || iid == IID_IDispatch ? static_cast<IDispatch*>(this) : nullptr;
    return *object ? S_OK : E_NOINTERFACE;
}

STDMETHODIMP_(ULONG) ScriptDispatch::AddRef()
{
    return 1;
}

STDMETHODIMP_(ULONG) ScriptDispatch::Release()
{
    return 1;
}

STDMETHODIMP ScriptDispatch::GetTypeInfoCount(UINT* count)
{
    *count = 0;
    return S_OK;
}

STDMETHODIMP ScriptDispatch::GetTypeInfo(UINT, LCID, ITypeInfo** info)
{
    *info = nullptr;
    return DISP_E_BADINDEX;
}

STDMETHODIMP ScriptDispatch::GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids)
{
    if (!names || !ids || count == 0)
    {
        return E_INVALIDARG;
    }
    std::fill(ids, ids + count, DISPID_UNKNOWN); // arguments have no names
    const auto found =
        std::find_if(m_members.begin(), m_members.end(), [&](const ScriptMember& member) {
            return member.name &&
                   ::CompareStringOrdinal(member.name, -1, names[0], -1, TRUE) == CSTR_EQUAL;
        });
    if (found == m_members.end())
    {
        return DISP_E_UNKNOWNNAME;
    }
    ids[0] = found->id;
    return count > 1 ? DISP_E_UNKNOWNNAME : S_OK;
}

STDMETHODIMP ScriptDispatch::Invoke(DISPID id, REFIID iid, LCID locale, WORD flags,
                                    DISPPARAMS* parameters, VARIANT* result, EXCEPINFO* exception,
                                    UINT* argumentError)
{
    try
    {
        const auto member = std::find_if(m_members.begin(), m_members.end(),
                                         [&](const ScriptMember& each) { return each.id == id; });
        // Engines ask for a property either way.
        const WORD kinds = member != m_members.end() && member->kind == ScriptMemberKind::method
                               ? DISPATCH_METHOD
                               : DISPATCH_METHOD | DISPATCH_PROPERTYGET;
        if (member == m_members.end() || (flags & kinds) == 0)
        {
            return DISP_E_MEMBERNOTFOUND;
        }
        if (member->kind == ScriptMemberKind::object && parameters->cArgs > 0)
        {
            const _variant_t object = Call(id, {});
            return object.pdispVal->Invoke(DISPID_VALUE, iid, locale, flags, parameters, result,
                                           exception, argumentError);
        }
        if (parameters->cArgs < member->leastArguments || parameters->cArgs > member->mostArguments)
        {
            return DISP_E_BADPARAMCOUNT;
        }
        _variant_t value = Call(id, ValuesOf(*parameters));
        const HRESULT hr = AfterCall();
        if (SUCCEEDED(hr) && result)
        {
            *result = value.Detach();
        }
        return hr;
    }
    catch (const CommandFailure& failure)
    {
        return HandOut(failure, exception);
    }
    catch (...)
    {
        return HResultFromCurrentException();
    }
}
} // namespace velt::tool
