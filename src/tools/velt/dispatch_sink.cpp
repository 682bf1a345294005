#include "tools/velt/dispatch_sink.h"

#include "foundation/exception_to_hresult.h"
#include "tools/velt/command_context.h"

using Microsoft::WRL::ComPtr;

namespace velt::tool
{
ComPtr<IDispatch> DispatchSink::Make(REFIID events, Handler handler)
{
    ComPtr<IDispatch> sink;
    auto* const made = new DispatchSink(events, std::move(handler));
    sink = made;
    made->Release(); // the first reference; the pointer has one of its own
    return sink;
}

DispatchSink::DispatchSink(REFIID events, Handler handler)
    : m_events(events),
      m_handler(std::move(handler))
{
}

STDMETHODIMP DispatchSink::QueryInterface(REFIID iid, void** object)
{
    if (!object)
    {
        return E_POINTER;
    }
    const bool known = iid == IID_IUnknown || iid == IID_IDispatch || iid == m_events;
    *object = known ? static_cast<IDispatch*>(this) : nullptr;
    if (!known)
    {
        return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
}

STDMETHODIMP_(ULONG) DispatchSink::AddRef()
{
    return static_cast<ULONG>(::InterlockedIncrement(&m_references));
}

STDMETHODIMP_(ULONG) DispatchSink::Release()
{
    const LONG left = ::InterlockedDecrement(&m_references);
    if (left == 0)
    {
        delete this;
    }
    return static_cast<ULONG>(left);
}

STDMETHODIMP DispatchSink::GetTypeInfoCount(UINT* count)
{
    if (!count)
    {
        return E_POINTER;
    }
    *count = 0;
    return S_OK;
}

STDMETHODIMP DispatchSink::GetTypeInfo(UINT, LCID, ITypeInfo** info)
{
    if (info)
    {
        *info = nullptr;
    }
    return DISP_E_BADINDEX;
}

STDMETHODIMP DispatchSink::GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*)
{
    return DISP_E_UNKNOWNNAME; // sources call by number
}

STDMETHODIMP DispatchSink::Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* arguments, VARIANT*,
                                  EXCEPINFO*, UINT*)
{
    if (!arguments)
    {
        return E_POINTER;
    }
    try
    {
        m_handler(id, *arguments);
        return S_OK;
    }
    catch (const CommandFailure& failure)
    {
        return failure.code;
    }
    catch (...)
    {
        return HResultFromCurrentException();
    }
}

SinkConnection::SinkConnection(IUnknown* source, REFIID events, IUnknown* sink)
{
    ComPtr<IConnectionPointContainer> container;
    Require(source->QueryInterface(IID_PPV_ARGS(&container)), L"the source's connection points");
    Require(container->FindConnectionPoint(events, &m_point), L"the events' connection point");
    Require(m_point->Advise(sink, &m_cookie), L"the connection of the events");
}

SinkConnection::~SinkConnection()
{
    m_point->Unadvise(m_cookie);
}
} // namespace velt::tool
