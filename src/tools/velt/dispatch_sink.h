#pragma once

#include <windows.h>

#include <oaidl.h>
#include <ocidl.h>
#include <wrl/client.h>

#include <functional>

namespace velt::tool
{
/// A sink of one event interface that hands each event to a function, on the thread of the
/// apartment that made it.
class DispatchSink final : public IDispatch
{
public:
    /// Gets the event's DISPID and its arguments, the last one first; its exceptions end there.
    using Handler = std::function<void(DISPID event, const DISPPARAMS& arguments)>;

    static Microsoft::WRL::ComPtr<IDispatch> Make(REFIID events, Handler handler);

    DispatchSink(const DispatchSink&) = delete;
    DispatchSink& operator=(const DispatchSink&) = delete;

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;
    STDMETHODIMP GetTypeInfoCount(UINT* count) override;
    STDMETHODIMP GetTypeInfo(UINT index, LCID locale, ITypeInfo** info) override;
    STDMETHODIMP GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, LCID locale,
                               DISPID* ids) override;
    STDMETHODIMP Invoke(DISPID id, REFIID iid, LCID locale, WORD flags, DISPPARAMS* arguments,
                        VARIANT* result, EXCEPINFO* exception, UINT* argumentError) override;

private:
    DispatchSink(REFIID events, Handler handler);
    ~DispatchSink() = default;

    const IID m_events;
    const Handler m_handler;
    LONG m_references = 1;
};

/// A sink's connection to a source, until the end of its life. Throws CommandFailure.
class SinkConnection
{
public:
    SinkConnection(IUnknown* source, REFIID events, IUnknown* sink);

    SinkConnection(const SinkConnection&) = delete;
    SinkConnection& operator=(const SinkConnection&) = delete;

    ~SinkConnection();

private:
    Microsoft::WRL::ComPtr<IConnectionPoint> m_point;
    DWORD m_cookie = 0;
};
} // namespace velt::tool
