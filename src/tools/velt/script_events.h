#pragma once

#include "tools/velt/component.h"
#include "tools/velt/dispatch_sink.h"
#include "tools/velt/script_host.h"

#include <windows.h>

#include <oaidl.h>
#include <wrl/client.h>

#include <memory>
#include <string>
#include <vector>

namespace velt::tool
{
/// Delivers the events of service objects to a script's functions. Everything throws
/// CommandFailure.
class ScriptEvents
{
public:
    /// Both outlive this object.
    ScriptEvents(const Component& component, ScriptHost& host);

    ScriptEvents(const ScriptEvents&) = delete;
    ScriptEvents& operator=(const ScriptEvents&) = delete;

    ~ScriptEvents() = default;

    /// From now on an event calls the function that is named by the prefix and the event, with the
    /// event's arguments. An object that is connected already gets another prefix.
    void Connect(IUnknown* source, const std::wstring& prefix);

    /// Nothing happens for an object that is not connected.
    void Disconnect(IUnknown* source);

private:
    struct Connection
    {
        Microsoft::WRL::ComPtr<IUnknown> source; // the pointer by which the object is known
        std::unique_ptr<SinkConnection> sink;
    };

    /// The name of an event in the component's type library; empty for an unknown one.
    std::wstring NameOf(DISPID event) const;

    ScriptHost& m_host;
    Microsoft::WRL::ComPtr<ITypeInfo> m_events;
    std::vector<Connection> m_connections;
};
} // namespace velt::tool
