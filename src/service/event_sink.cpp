#include "service/event_sink.h"

#include "foundation/com_module.h"
#include "foundation/library_utils.h"
#include "foundation/system_exception.h"
#include "foundation/utrace.h"

#include <comdef.h>

#include <exception>

using Microsoft::WRL::ComPtr;

namespace velt
{
namespace
{
constexpr char kNotTold[] = "a sink was not told";

ComPtr<IGlobalInterfaceTable> GlobalInterfaceTable()
{
    ComPtr<IGlobalInterfaceTable> table;
    ThrowIfFailed(ComModule::Current().GetGITPtr(&table));
    return table;
}

void TraceFailure(const char* what, HRESULT hr) noexcept
{
    try
    {
        UTrace::TraceLevel1("%s: 0x%08lX", what, static_cast<unsigned long>(hr));
    }
    catch (const std::exception&)
    {
        // A thread that cannot trace goes on to the next sink.
    }
}

HRESULT Revoke(DWORD registration) noexcept
{
    ComPtr<IGlobalInterfaceTable> table;
    const HRESULT hr = ComModule::Current().GetGITPtr(&table);
    return SUCCEEDED(hr) ? table->RevokeInterfaceFromGlobal(registration) : hr;
}
} // namespace

EventSink::EventSink(DWORD cookie, const ComPtr<IDispatch>& sink)
    : m_cookie(cookie),
      m_place(std::make_shared<CSinkRelay::Place>(nullptr))
{
    ComPtr<IDispatch> relay;
    ThrowIfFailed(CreateComObject<CSinkRelay>(relay.GetAddressOf(), sink, m_place));
    ThrowIfFailed(GlobalInterfaceTable()->RegisterInterfaceInGlobal(relay.Get(), IID_IDispatch,
                                                                    &m_registration));
}

EventSink::~EventSink()
{
    HRESULT hr = Revoke(m_registration);
    if (hr == CO_E_NOTINITIALIZED)
    {
        // The last reference can be given up on any thread, one without COM among them. What stayed
        // in the table would keep the sink and the library for good.
        const CLibraryUtils::SmartComInitializer com;
        hr = Revoke(m_registration);
    }
    if (FAILED(hr))
    {
        TraceFailure("a sink stays in the global interface table", hr);
    }
}

void EventSink::Fire(const Apartment& here, DISPID method,
                     std::array<VARIANTARG, 2> arguments) const noexcept
{
    if (!m_connected)
    {
        return;
    }
    // In its own apartment the sink is called directly: the registration, which lives as long as
    // this object, keeps the relay and the relay keeps the sink. An apartment that ends lets them
    // go, on its own thread, and has emptied the place by then.
    ComPtr<IDispatch> relay;
    IDispatch* sink = m_home.IsSame(here) ? m_place->load() : nullptr;
    if (!sink)
    {
        const HRESULT hr = Fetch(relay);
        if (FAILED(hr))
        {
            TraceFailure(kNotTold, hr);
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
        TraceFailure(kNotTold, hr);
    }
}

HRESULT EventSink::Get(IUnknown** sink) const noexcept
{
    *sink = nullptr;
    if (m_home.IsSame(Apartment::Current()))
    {
        *sink = m_place->load();
        if (*sink)
        {
            (*sink)->AddRef();
            return S_OK;
        }
    }
    ComPtr<IDispatch> relay;
    HRESULT hr = Fetch(relay);
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

HRESULT EventSink::Fetch(ComPtr<IDispatch>& relay) const noexcept
{
    ComPtr<IGlobalInterfaceTable> table;
    const HRESULT hr = ComModule::Current().GetGITPtr(&table);
    return SUCCEEDED(hr) ? table->GetInterfaceFromGlobal(m_registration, IID_PPV_ARGS(&relay)) : hr;
}
} // namespace velt
