#include "service/event_sink.h"

#include "foundation/system_exception.h"

#include <comdef.h>

#include <utility>

using Microsoft::WRL::ComPtr;

namespace velt
{
namespace
{
constexpr char kNotTold[] = "a sink was not told";

/// The class that unmarshals what a marshaler marshals inside the process.
bool UnmarshalClass(IUnknown& object, CLSID& clsid) noexcept
{
    ComPtr<IMarshal> marshaler;
    return SUCCEEDED(object.QueryInterface(IID_PPV_ARGS(&marshaler))) && marshaler &&
           SUCCEEDED(marshaler->GetUnmarshalClass(IID_IUnknown, &object, MSHCTX_INPROC, nullptr,
                                                  MSHLFLAGS_NORMAL, &clsid));
}

/// Whether an object may be called on any thread: it aggregates the system's free-threaded
/// marshaler, which hands out the pointer itself.
bool IsAgile(IUnknown& object) noexcept
{
    CLSID own{};
    CLSID freeThreaded{};
    ComPtr<IUnknown> marshaler;
    return UnmarshalClass(object, own) &&
           SUCCEEDED(::CoCreateFreeThreadedMarshaler(nullptr, &marshaler)) &&
           UnmarshalClass(*marshaler.Get(), freeThreaded) && ::IsEqualCLSID(own, freeThreaded);
}
} // namespace

EventSink::EventSink(DWORD cookie, const ComPtr<IDispatch>& sink) : m_cookie(cookie)
{
    if (IsAgile(*sink.Get()))
    {
        m_agile = sink;
        return;
    }
    m_place = std::make_shared<CSinkRelay::Place>(nullptr);
    ComPtr<IDispatch> relay;
    ThrowIfFailed(CreateComObject<CSinkRelay>(relay.GetAddressOf(), sink, m_place));
    m_entry = std::make_unique<TableEntry>(relay.Get());
}

EventSink::~EventSink()
{
    if (m_entry)
    {
        TableEntry::GiveUp(std::move(m_entry), m_home.IsSame(Apartment::Current()));
    }
}

void EventSink::Fire(const Apartment& here, DISPID method,
                     std::array<VARIANTARG, 2> arguments) const noexcept
{
    if (!m_connected)
    {
        return;
    }
    ComPtr<IDispatch> relay;
    IDispatch* sink = Direct(here);
    if (!sink)
    {
        const HRESULT hr = m_entry->Get(relay);
        if (FAILED(hr))
        {
            TraceSinkFailure(kNotTold, hr);
            return;
        }
        sink = relay.Get();
    }
    DISPPARAMS parameters{arguments.data(), nullptr, arguments.size(), 0};
    VARIANT result; // sinks may write to it without asking whether it is there
    ::VariantInit(&result);
    const HRESULT hr = sink->Invoke(method, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD,
                                    &parameters, &result, nullptr, nullptr);
    if (result.vt != VT_EMPTY)
    {
        ::VariantClear(&result);
    }
    if (FAILED(hr))
    {
        TraceSinkFailure(kNotTold, hr);
    }
}

HRESULT EventSink::Get(IUnknown** sink) const noexcept
{
    *sink = Direct(Apartment::Current());
    if (*sink)
    {
        (*sink)->AddRef();
        return S_OK;
    }
    ComPtr<IDispatch> relay;
    HRESULT hr = m_entry->Get(relay);
    if (FAILED(hr))
    {
        return hr;
    }
    DISPPARAMS none{};
    _variant_t itself;
    hr = relay->Invoke(CSinkRelay::kDispidSink, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_PROPERTYGET,
                       &none, &itself, nullptr, nullptr);
    if (FAILED(hr))
    {
        return hr;
    }
    if (itself.vt != VT_UNKNOWN || !itself.punkVal)
    {
        return E_UNEXPECTED;
    }
    *sink = itself.Detach().punkVal;
    return S_OK;
}

IDispatch* EventSink::Direct(const Apartment& here) const noexcept
{
    if (m_agile)
    {
        return m_agile.Get();
    }
    // The entry, which lives as long as this object, keeps the relay and the relay keeps the sink.
    // An apartment that ends lets them go, on its own thread, and has emptied the place by then.
    return m_home.IsSame(here) ? m_place->load() : nullptr;
}
} // namespace velt
