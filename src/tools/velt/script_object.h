#pragma once

#include "tools/velt/component.h"
#include "tools/velt/interrupt.h"
#include "tools/velt/script_events.h"
#include "tools/velt/script_host.h"

#include <windows.h>

#include <oaidl.h>

#include <span>
#include <string>
#include <vector>

namespace velt::tool
{
/// The object that scripts see as WScript. It lives in its owner's scope: references on it do not
/// keep it alive.
class ScriptObject final : public IDispatch
{
public:
    /// Everything referred to outlives the object. `arguments` are the script's.
    ScriptObject(ScriptHost& host, const CommandContext& context, const Interrupt& interrupt,
                 ScriptEvents& events, std::wstring file, std::vector<std::wstring> arguments);

    ScriptObject(const ScriptObject&) = delete;
    ScriptObject& operator=(const ScriptObject&) = delete;

    ~ScriptObject() = default;

    /// The lines that were kept for the one JSON object instead of being printed.
    const ReportValue::Texts& Lines() const noexcept
    {
        return m_lines;
    }

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;
    STDMETHODIMP GetTypeInfoCount(UINT* count) override;
    STDMETHODIMP GetTypeInfo(UINT index, LCID locale, ITypeInfo** info) override;
    STDMETHODIMP GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, LCID locale,
                               DISPID* ids) override;
    STDMETHODIMP Invoke(DISPID id, REFIID iid, LCID locale, WORD flags, DISPPARAMS* parameters,
                        VARIANT* result, EXCEPINFO* exception, UINT* argumentError) override;

private:
    /// Arguments of a call, the first one first.
    using Values = std::span<const _variant_t>;

    /// The object that scripts get from WScript.Arguments.
    class Arguments final : public IDispatch
    {
    public:
        explicit Arguments(std::vector<std::wstring> values) : m_values(std::move(values)) {}

        Arguments(const Arguments&) = delete;
        Arguments& operator=(const Arguments&) = delete;

        ~Arguments() = default;

        /// The text at a position from 0. Throws CommandFailure.
        _variant_t At(const _variant_t& index) const;

        STDMETHODIMP QueryInterface(REFIID iid, void** object) override;
        STDMETHODIMP_(ULONG) AddRef() override;
        STDMETHODIMP_(ULONG) Release() override;
        STDMETHODIMP GetTypeInfoCount(UINT* count) override;
        STDMETHODIMP GetTypeInfo(UINT index, LCID locale, ITypeInfo** info) override;
        STDMETHODIMP GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, LCID locale,
                                   DISPID* ids) override;
        STDMETHODIMP Invoke(DISPID id, REFIID iid, LCID locale, WORD flags, DISPPARAMS* parameters,
                            VARIANT* result, EXCEPINFO* exception, UINT* argumentError) override;

    private:
        const std::vector<std::wstring> m_values;
    };

    _variant_t Call(DISPID id, Values values);
    _variant_t GetArguments(Values values);
    void ConnectObject(Values values);
    _variant_t CreateObject(Values values);
    void Echo(Values values);
    void Sleep(Values values) const;

    ScriptHost& m_host;
    const CommandContext& m_context;
    const Interrupt& m_interrupt;
    ScriptEvents& m_events;
    const std::wstring m_file;
    Arguments m_arguments;
    ReportValue::Texts m_lines;
};
} // namespace velt::tool
