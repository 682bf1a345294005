#pragma once

#include "tools/velt/command_context.h"

#include <windows.h>

#include <activscp.h>
#include <comutil.h>
#include <wrl/client.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace velt::tool
{
/// What a script has failed with, and where. Lines and columns count from 1.
struct ScriptFailure
{
    HRESULT code;
    std::wstring source; // what reports it, such as the engine
    std::wstring description;
    std::int64_t line;
    std::int64_t column;
};

/// Hosts one of the system's script engines on the current thread, which has initialised COM. It
/// lives in its owner's scope: references on it do not keep it alive. Everything throws
/// CommandFailure.
class ScriptHost final : public IActiveScriptSite, public IActiveScriptSiteWindow
{
public:
    /// `engine` is the engine's ProgID. `file` is what messages call the script.
    ScriptHost(const std::wstring& engine, std::wstring file, const CommandContext& context);

    ScriptHost(const ScriptHost&) = delete;
    ScriptHost& operator=(const ScriptHost&) = delete;

    /// Closes the engine, which gives back all objects that the script holds.
    ~ScriptHost();

    /// The same before its end. Any number of calls.
    void Close() noexcept;

    /// Lets the script see an object by its name; the object stays the caller's.
    void AddObject(const std::wstring& name, IDispatch* object);

    /// Runs a script to its end. A failure that it does not handle is printed with its place.
    HRESULT Run(const std::wstring& script);

    /// Calls a function of the script's; nothing happens when it has none of that name.
    void CallFunction(const std::wstring& name, std::vector<_variant_t> arguments);

    /// Ends the script as soon as it comes back to the engine.
    void Quit(int exitCode) noexcept
    {
        m_exitCode = exitCode;
    }

    /// The first failure that the script did not handle.
    const std::optional<ScriptFailure>& Failure() const noexcept
    {
        return m_failure;
    }

    /// What the script has given to Quit.
    std::optional<int> QuitCode() const noexcept
    {
        return m_exitCode;
    }

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
    STDMETHODIMP GetWindow(HWND* window) override;
    STDMETHODIMP EnableModeless(BOOL enable) override;

private:
    const std::wstring m_file;
    const CommandContext& m_context;
    std::optional<ScriptFailure> m_failure;
    bool m_open = true;
    std::optional<int> m_exitCode;
    std::vector<std::pair<std::wstring, IDispatch*>> m_objects; // the callers'
    Microsoft::WRL::ComPtr<IActiveScript> m_engine;
    Microsoft::WRL::ComPtr<IActiveScriptParse> m_parser;
};
} // namespace velt::tool
