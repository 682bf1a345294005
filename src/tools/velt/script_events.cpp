#include "tools/velt/script_events.h"

#include <provider_lib.h>

#include <oleauto.h>

#include <span>

using Microsoft::WRL::ComPtr;

namespace velt::tool
{
namespace
{
/// The pointer by which an object is known, whichever of its interfaces a script has.
ComPtr<IUnknown> IdentityOf(IUnknown* object)
{
    ComPtr<IUnknown> identity;
    Require(object ? object->QueryInterface(IID_PPV_ARGS(&identity)) : E_POINTER, L"the object");
    return identity;
}
} // namespace

ScriptEvents::ScriptEvents(const Component& component, ScriptHost& host) : m_host(host)
{
    ComPtr<ITypeLib> library;
    Require(::LoadTypeLibEx(component.Path().c_str(), REGKIND_NONE, &library), L"the type library");
    Require(library->GetTypeInfoOfGuid(DIID_IVeltHTTPServiceEvents, &m_events),
            L"the events' description");
}

void ScriptEvents::Connect(IUnknown* source, const std::wstring& prefix)
{
    const ComPtr<IUnknown> identity = IdentityOf(source);
    Disconnect(source);
    const auto sink = DispatchSink::Make(
        DIID_IVeltHTTPServiceEvents, [this, prefix](DISPID event, const DISPPARAMS& arguments) {
            const std::wstring name = NameOf(event);
            if (!name.empty())
            {
                const std::span<VARIANT> values(arguments.rgvarg, arguments.cArgs);
                m_host.CallFunction(prefix + name,
                                    std::vector<_variant_t>(values.begin(), values.end()));
            }
        });
    m_connections.push_back({identity, std::make_unique<SinkConnection>(
                                           source, DIID_IVeltHTTPServiceEvents, sink.Get())});
}

void ScriptEvents::Disconnect(IUnknown* source)
{
    const ComPtr<IUnknown> identity = IdentityOf(source);
    std::erase_if(m_connections, [&](const Connection& connection) {
        return connection.source.Get() == identity.Get();
    });
}

std::wstring ScriptEvents::NameOf(DISPID event) const
{
    BSTR name = nullptr;
    UINT count = 0;
    if (FAILED(m_events->GetNames(event, &name, 1, &count)) || count == 0)
    {
        return {};
    }
    const _bstr_t owner(name, false);
    return {name, ::SysStringLen(name)};
}
} // namespace velt::tool
