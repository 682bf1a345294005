#include "service/event_connection_point.h"

#include "foundation/com_method.h"
#include "service/connection_enumerator.h"

#include <provider_lib.h>

#include <utility>

namespace velt
{
EventConnectionPoint::EventConnectionPoint(IConnectionPointContainer& container,
                                           std::shared_ptr<SinkList> sinks) noexcept
    : m_container(container),
      m_sinks(std::move(sinks))
{
}

STDMETHODIMP EventConnectionPoint::QueryInterface(REFIID iid, void** object)
{
    if (!object)
    {
        return E_POINTER;
    }
    const bool isKnown = ::IsEqualIID(iid, IID_IUnknown) || ::IsEqualIID(iid, IID_IConnectionPoint);
    *object = isKnown ? static_cast<IConnectionPoint*>(this) : nullptr;
    if (!isKnown)
    {
        return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
}

STDMETHODIMP_(ULONG) EventConnectionPoint::AddRef()
{
    return m_container.AddRef();
}

STDMETHODIMP_(ULONG) EventConnectionPoint::Release()
{
    return m_container.Release();
}

STDMETHODIMP EventConnectionPoint::GetConnectionInterface(IID* iid)
{
    return ComMethod("CVeltHTTPService::GetConnectionInterface", [&] {
        if (!iid)
        {
            return E_POINTER;
        }
        *iid = DIID_IVeltHTTPServiceEvents;
        return S_OK;
    });
}

STDMETHODIMP EventConnectionPoint::GetConnectionPointContainer(
    IConnectionPointContainer** container)
{
    return ComMethod("CVeltHTTPService::GetConnectionPointContainer", [&] {
        if (!container)
        {
            return E_POINTER;
        }
        *container = &m_container;
        m_container.AddRef();
        return S_OK;
    });
}

STDMETHODIMP EventConnectionPoint::Advise(IUnknown* sink, DWORD* cookie)
{
    return ComMethod("CVeltHTTPService::Advise", [&] {
        if (cookie)
        {
            *cookie = 0;
        }
        return sink && cookie ? m_sinks->Advise(sink, cookie) : E_POINTER;
    });
}

STDMETHODIMP EventConnectionPoint::Unadvise(DWORD cookie)
{
    return ComMethod("CVeltHTTPService::Unadvise", [&] { return m_sinks->Unadvise(cookie); });
}

STDMETHODIMP EventConnectionPoint::EnumConnections(IEnumConnections** connections)
{
    return ComMethod("CVeltHTTPService::EnumConnections", [&] {
        return CreateComObject<CConnectionEnumerator>(connections, m_sinks->Snapshot(),
                                                      std::size_t{0});
    });
}
} // namespace velt
