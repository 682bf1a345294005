#pragma once

#include <windows.h>

#include <oaidl.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace velt::test
{
/// Calls members of an object as a script engine does.
class LateBound
{
public:
    explicit LateBound(IDispatch* object) noexcept : m_object(object) {}

    /// The DISPID of a name; DISPID_UNKNOWN when there is none.
    DISPID Find(const wchar_t* name) const
    {
        std::wstring copy(name);
        LPOLESTR names = copy.data();
        DISPID id = DISPID_UNKNOWN;
        return SUCCEEDED(m_object->GetIDsOfNames(IID_NULL, &names, 1, LOCALE_USER_DEFAULT, &id))
                   ? id
                   : DISPID_UNKNOWN;
    }

    /// Arguments are lent, in the order in which a script writes them. A failure of the member
    /// itself (DISP_E_EXCEPTION) is answered with the member's own code.
    HRESULT Invoke(DISPID id, WORD flags, std::vector<VARIANT> arguments = {},
                   VARIANT* result = nullptr, UINT* argumentError = nullptr) const
    {
        std::reverse(arguments.begin(), arguments.end());
        DISPPARAMS parameters{};
        parameters.rgvarg = arguments.data();
        parameters.cArgs = static_cast<UINT>(arguments.size());
        EXCEPINFO exception{};
        UINT ignored = 0;
        const HRESULT hr =
            m_object->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, &parameters, result,
                             &exception, argumentError ? argumentError : &ignored);
        ::SysFreeString(exception.bstrSource);
        ::SysFreeString(exception.bstrDescription);
        ::SysFreeString(exception.bstrHelpFile);
        return hr == DISP_E_EXCEPTION ? exception.scode : hr;
    }

    HRESULT Call(const wchar_t* name, std::vector<VARIANT> arguments = {},
                 VARIANT* result = nullptr) const
    {
        return Invoke(Find(name), DISPATCH_METHOD, std::move(arguments), result);
    }

    HRESULT Get(const wchar_t* name, std::vector<VARIANT> arguments, VARIANT* result) const
    {
        return Invoke(Find(name), DISPATCH_PROPERTYGET, std::move(arguments), result);
    }

private:
    IDispatch* m_object;
};
} // namespace velt::test
