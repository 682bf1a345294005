#pragma once

#include "tools/velt/interrupt.h"
#include "tools/velt/script_arguments.h"
#include "tools/velt/script_dispatch.h"
#include "tools/velt/script_events.h"
#include "tools/velt/script_host.h"
#include "tools/velt/script_stream.h"

#include <string>
#include <string_view>
#include <vector>

namespace velt::tool
{
/// What a script prints, line by line, when it is kept for the one JSON object.
class KeptLines
{
public:
    /// Text that goes on where the last one has ended.
    void Write(std::string_view text);

    /// Text that ends its line, whatever is in it.
    void WriteLine(std::string_view text);

    const ReportValue::Texts& Lines() const noexcept
    {
        return m_lines;
    }

private:
    ReportValue::Texts m_lines;
    bool m_open = false; // the last line has not ended
};

/// The object that scripts see as WScript.
class ScriptObject final : public ScriptDispatch
{
public:
    /// Everything referred to outlives the object. `arguments` are the script's.
    ScriptObject(ScriptHost& host, const CommandContext& context, const Interrupt& interrupt,
                 const Component& component, ScriptEvents& events, std::wstring file,
                 const std::vector<std::wstring>& arguments);

    ScriptObject(const ScriptObject&) = delete;
    ScriptObject& operator=(const ScriptObject&) = delete;

    /// Closes the host's engine, which may hold references on it.
    ~ScriptObject();

    /// The lines that were kept for the one JSON object instead of being printed.
    const ReportValue::Texts& Lines() const noexcept
    {
        return m_kept.Lines();
    }

private:
    _variant_t Call(DISPID id, Values values) override;
    HRESULT AfterCall() const noexcept override;

    void ConnectObject(Values values);
    _variant_t CreateObject(Values values);
    void Echo(Values values);
    void Print(std::string_view text);
    void Sleep(Values values) const;

    ScriptHost& m_host;
    const CommandContext& m_context;
    const Interrupt& m_interrupt;
    ScriptEvents& m_events;
    const std::wstring m_file;
    ScriptArguments m_arguments;
    ScriptOutput m_output;
    ScriptOutput m_messages;
    ScriptInput m_input;
    KeptLines m_kept;
};
} // namespace velt::tool
