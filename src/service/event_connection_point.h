#pragma once

#include "service/sink_list.h"

#include <windows.h>

#include <ocidl.h>

#include <memory>

namespace velt
{
/// The connection point of IVeltHTTPServiceEvents. It is a part of its container: its references
/// are the container's. Any thread may call.
class EventConnectionPoint final : public IConnectionPoint
{
public:
    EventConnectionPoint(IConnectionPointContainer& container,
                         std::shared_ptr<SinkList> sinks) noexcept;

    EventConnectionPoint(const EventConnectionPoint&) = delete;
    EventConnectionPoint& operator=(const EventConnectionPoint&) = delete;

    ~EventConnectionPoint() = default;

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    STDMETHODIMP GetConnectionInterface(IID* iid) override;
    STDMETHODIMP GetConnectionPointContainer(IConnectionPointContainer** container) override;
    STDMETHODIMP Advise(IUnknown* sink, DWORD* cookie) override;
    STDMETHODIMP Unadvise(DWORD cookie) override;
    STDMETHODIMP EnumConnections(IEnumConnections** connections) override;

private:
    IConnectionPointContainer& m_container;
    const std::shared_ptr<SinkList> m_sinks;
};
} // namespace velt
