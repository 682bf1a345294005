#include "tests/support/script_host.h"

#include "tests/support/late_bound.h"
#include "tests/support/variants.h"

#include <cstdio>
#include <stdexcept>

namespace velt::test
{
namespace
{
void Check(HRESULT hr, const char* step)
{
    if (FAILED(hr))
    {
        char text[80];
        std::snprintf(text, sizeof(text), "script host: %s: 0x%08lX", step,
                      static_cast<unsigned long>(hr));
        throw std::runtime_error(text);
    }
}
} // namespace

ScriptHost::ScriptHost(const wchar_t* engine)
{
    CLSID clsid;
    Check(::CLSIDFromProgID(engine, &clsid), "no such engine");
    Check(::CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(&m_engine)),
          "engine");
    Check(m_engine.As(&m_parser), "parser");
    Check(m_parser->InitNew(), "InitNew");
    Check(m_engine->SetScriptSite(this), "SetScriptSite");
}

ScriptHost::~ScriptHost()
{
    m_engine->Close();
}

void ScriptHost::AddObject(const std::wstring& name, IDispatch* object)
{
    m_objects[name] = object;
    Check(m_engine->AddNamedItem(name.c_str(), SCRIPTITEM_ISVISIBLE), "AddNamedItem");
}

ScriptError ScriptHost::Run(const std::wstring& statements)
{
    m_error = {};
    Check(m_engine->SetScriptState(SCRIPTSTATE_STARTED), "SetScriptState");
    EXCEPINFO exception{};
    const HRESULT hr = m_parser->ParseScriptText(statements.c_str(), nullptr, nullptr, nullptr, 0,
                                                 1, SCRIPTTEXT_ISVISIBLE, nullptr, &exception);
    if (FAILED(hr) && m_error.code == S_OK)
    {
        m_error.code = hr;
    }
    return m_error;
}

std::wstring ScriptHost::Value(const std::wstring& variable)
{
    Microsoft::WRL::ComPtr<IDispatch> globals;
    Check(m_engine->GetScriptDispatch(nullptr, &globals), "GetScriptDispatch");
    VARIANT value = OfType(VT_EMPTY);
    Check(LateBound(globals.Get()).Get(variable.c_str(), {}, &value), "variable");
    const HRESULT hr = ::VariantChangeType(&value, &value, VARIANT_ALPHABOOL, VT_BSTR);
    const std::wstring text = TextOf(value);
    ::VariantClear(&value);
    Check(hr, "variable as text");
    return text;
}

STDMETHODIMP ScriptHost::QueryInterface(REFIID iid, void** object)
{
    const bool known = iid == IID_IUnknown || iid == IID_IActiveScriptSite;
    *object = known ? static_cast<IActiveScriptSite*>(this) : nullptr;
    return known ? S_OK : E_NOINTERFACE;
}

STDMETHODIMP_(ULONG) ScriptHost::AddRef()
{
    return 1; // it lives in the test's scope
}

STDMETHODIMP_(ULONG) ScriptHost::Release()
{
    return 1;
}

STDMETHODIMP ScriptHost::GetLCID(LCID* locale)
{
    *locale = MAKELCID(MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US), SORT_DEFAULT);
    return S_OK;
}

STDMETHODIMP ScriptHost::GetItemInfo(LPCOLESTR name, DWORD mask, IUnknown** item, ITypeInfo** info)
{
    if (info)
    {
        *info = nullptr;
    }
    const auto found = m_objects.find(name);
    if (found == m_objects.end())
    {
        return TYPE_E_ELEMENTNOTFOUND;
    }
    if ((mask & SCRIPTINFO_IUNKNOWN) != 0)
    {
        *item = found->second.Get();
        (*item)->AddRef();
    }
    return S_OK;
}

STDMETHODIMP ScriptHost::GetDocVersionString(BSTR*)
{
    return E_NOTIMPL;
}

STDMETHODIMP ScriptHost::OnScriptTerminate(const VARIANT*, const EXCEPINFO*)
{
    return S_OK;
}

STDMETHODIMP ScriptHost::OnStateChange(SCRIPTSTATE)
{
    return S_OK;
}

STDMETHODIMP ScriptHost::OnScriptError(IActiveScriptError* error)
{
    EXCEPINFO exception{};
    error->GetExceptionInfo(&exception);
    m_error.code = exception.scode;
    m_error.description.assign(exception.bstrDescription ? exception.bstrDescription : L"");
    ::SysFreeString(exception.bstrSource);
    ::SysFreeString(exception.bstrDescription);
    ::SysFreeString(exception.bstrHelpFile);
    return S_OK;
}

STDMETHODIMP ScriptHost::OnEnterScript()
{
    return S_OK;
}

STDMETHODIMP ScriptHost::OnLeaveScript()
{
    return S_OK;
}
} // namespace velt::test
