#include "tools/velt/script_host.h"

#include <algorithm>

using Microsoft::WRL::ComPtr;

namespace velt::tool
{
namespace
{
/// The texts of a script's failure, freed at the end.
struct ExceptionTexts : EXCEPINFO
{
    ExceptionTexts() : EXCEPINFO{} {}

    ExceptionTexts(const ExceptionTexts&) = delete;
    ExceptionTexts& operator=(const ExceptionTexts&) = delete;

    ~ExceptionTexts()
    {
        ::SysFreeString(bstrSource);
        ::SysFreeString(bstrDescription);
        ::SysFreeString(bstrHelpFile);
    }
};

/// The class of an engine by its ProgID. Throws CommandFailure.
CLSID EngineOf(const std::wstring& engine)
{
    CLSID clsid{};
    Require(::CLSIDFromProgID(engine.c_str(), &clsid), (L"script engine " + engine).c_str());
    return clsid;
}
} // namespace

ScriptHost::ScriptHost(const std::wstring& engine, std::wstring file, const CommandContext& context)
    : m_file(std::move(file)),
      m_context(context)
{
    Require(::CoCreateInstance(EngineOf(engine), nullptr, CLSCTX_INPROC_SERVER,
                               IID_PPV_ARGS(&m_engine)),
            (L"script engine " + engine).c_str());
    Require(m_engine.As(&m_parser), L"the engine's parser");
    Require(m_parser->InitNew(), L"the engine's parser");
    Require(m_engine->SetScriptSite(this), L"the engine's site");
}

ScriptHost::~ScriptHost()
{
    Close();
}

void ScriptHost::Close() noexcept
{
    if (m_open)
    {
        m_engine->Close();
        m_open = false;
    }
}

void ScriptHost::AddObject(const std::wstring& name, IDispatch* object)
{
    m_objects.emplace_back(name, object);
    Require(m_engine->AddNamedItem(name.c_str(), SCRIPTITEM_ISVISIBLE), L"a named item");
}

HRESULT ScriptHost::Run(const std::wstring& script)
{
    Require(m_engine->SetScriptState(SCRIPTSTATE_STARTED), L"the engine's start");
    ExceptionTexts exception;
    const HRESULT hr = m_parser->ParseScriptText(script.c_str(), nullptr, nullptr, nullptr, 0, 0,
                                                 SCRIPTTEXT_ISVISIBLE, nullptr, &exception);
    if (m_failure)
    {
        return m_failure->code;
    }
    return m_exitCode ? S_OK : hr;
}

void ScriptHost::CallFunction(const std::wstring& name, std::vector<_variant_t> arguments)
{
    ComPtr<IDispatch> globals;
    Require(m_engine->GetScriptDispatch(nullptr, &globals), L"the script's functions");
    std::wstring writable = name;
    LPOLESTR names[] = {writable.data()};
    DISPID id = DISPID_UNKNOWN;
    if (FAILED(globals->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id)))
    {
        return;
    }
    DISPPARAMS parameters{arguments.data(), nullptr, static_cast<UINT>(arguments.size()), 0};
    ExceptionTexts exception;
    // What the function fails with has been reported to the site.
    globals->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &parameters, nullptr,
                    &exception, nullptr);
}

STDMETHODIMP ScriptHost::QueryInterface(REFIID iid, void** object)
{
    if (!object)
    {
        return E_POINTER;
    }
    *object = nullptr;
    if (iid == IID_IUnknown || iid == IID_IActiveScriptSite)
    {
        *object = static_cast<IActiveScriptSite*>(this);
    }
    else if (iid == IID_IActiveScriptSiteWindow)
    {
        *object = static_cast<IActiveScriptSiteWindow*>(this);
    }
    return *object ? S_OK : E_NOINTERFACE;
}

STDMETHODIMP_(ULONG) ScriptHost::AddRef()
{
    return 1;
}

STDMETHODIMP_(ULONG) ScriptHost::Release()
{
    return 1;
}

STDMETHODIMP ScriptHost::GetLCID(LCID* locale)
{
    if (!locale)
    {
        return E_POINTER;
    }
    *locale = ::GetUserDefaultLCID();
    return S_OK;
}

STDMETHODIMP ScriptHost::GetItemInfo(LPCOLESTR name, DWORD mask, IUnknown** item, ITypeInfo** info)
{
    if (info)
    {
        *info = nullptr;
    }
    const auto found = std::find_if(m_objects.begin(), m_objects.end(),
                                    [&](const auto& object) { return object.first == name; });
    if (found == m_objects.end())
    {
        return TYPE_E_ELEMENTNOTFOUND;
    }
    if ((mask & SCRIPTINFO_IUNKNOWN) != 0)
    {
        if (!item)
        {
            return E_POINTER;
        }
        *item = found->second;
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
    if (m_exitCode)
    {
        return S_OK; // Quit ends the script this way
    }
    ExceptionTexts exception;
    DWORD context = 0;
    ULONG line = 0; // from 0
    LONG column = 0;
    error->GetExceptionInfo(&exception);
    error->GetSourcePosition(&context, &line, &column);
    const ScriptFailure failure{FAILED(exception.scode) ? exception.scode : E_FAIL,
                                exception.bstrSource ? exception.bstrSource : L"",
                                exception.bstrDescription ? exception.bstrDescription : L"",
                                std::int64_t{line} + 1, std::int64_t{column} + 1};
    m_context.Message(m_file + L"(" + std::to_wstring(failure.line) + L", " +
                      std::to_wstring(failure.column) + L"): " + failure.description);
    if (!m_failure)
    {
        m_failure = failure;
    }
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

STDMETHODIMP ScriptHost::GetWindow(HWND* window)
{
    if (!window)
    {
        return E_POINTER;
    }
    *window = nullptr; // of message boxes; they have no owner
    return S_OK;
}

STDMETHODIMP ScriptHost::EnableModeless(BOOL)
{
    return S_OK;
}
} // namespace velt::tool
