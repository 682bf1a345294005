#pragma once

#include <windows.h>

#include <activscp.h>
#include <wrl/client.h>

#include <map>
#include <string>

namespace velt::test
{
/// What a script ended with.
struct ScriptError
{
    HRESULT code = S_OK;
    std::wstring description;
};

/// Hosts one of the system's script engines on the current thread, which has initialised COM.
/// Scripts see the objects that were added by their names. Failures of the hosting itself throw
/// std::runtime_error.
class ScriptHost final : public IActiveScriptSite
{
public:
    /// `engine` is the engine's ProgID: "JScript" or "VBScript".
    explicit ScriptHost(const wchar_t* engine);

    ScriptHost(const ScriptHost&) = delete;
    ScriptHost& operator=(const ScriptHost&) = delete;

    /// Closes the engine, which gives back all objects that the scripts still hold.
    ~ScriptHost();

    void AddObject(const std::wstring& name, IDispatch* object);

    /// Runs statements to their end; the first error that they do not handle, or code S_OK.
    ScriptError Run(const std::wstring& statements);

    /// The value of a global variable as a text, as the engine itself writes it.
    std::wstring Value(const std::wstring& variable);

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;
    STDMETHODIMP GetLCID(LCID* locale) override;
    STDMETHODIMP GetItemInfo(LPCOLESTR name, DWORD mask, IUnknown** item,
                             ITypeInfo** info) override;
    STDMETHODIMP GetDocVersionString(BSTR* version) override;
    STDMETHODIMP OnScriptTerminate(const VARIANT* result, const EXCEPINFO* exception) override;
    STDMETHODIMP OnStateChange(SCRIPTSTATE state) override;
    STDMETHODIMP OnScriptError(IActiveScriptError* error) override;
    STDMETHODIMP OnEnterScript() override;
    STDMETHODIMP OnLeaveScript() override;

private:
    ScriptError m_error;
    std::map<std::wstring, Microsoft::WRL::ComPtr<IDispatch>> m_objects;
    Microsoft::WRL::ComPtr<IActiveScript> m_engine;
    Microsoft::WRL::ComPtr<IActiveScriptParse> m_parser;
};
} // namespace velt::test
