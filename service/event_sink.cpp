#include "service/event_sink.h"

#include "foundation/com_module.h"
#include "foundation/system_exception.h"
#include "foundation/utrace.h"

#include <comdef.h>

#include <array>
#include <exception>

using Microsoft::WRL::ComPtr;

namespace velt
{
namespace
{
ComPtr<IGlobalInterfaceTable> GlobalInterfaceTable()
{
    ComPtr<IGlobalInterfaceTable> table;
    ThrowIfFailed(ComModule::Current().GetGITPtr(&table));
    return table;
}

void TraceFailure(HRESULT hr) noexcept
{
    try
    {
        UTrace::TraceLevel1("a sink was not told: 0x%08lX", static_cast<unsigned long>(hr));
    }
    catch (const std::exception&)
    {
        // A thread that cannot trace goes on to the next sink.
    }
}
} // namespace

EventSink::EventSink(DWORD cookie, const ComPtr<IDispatch>& sink)
    : m_cookie(cookie),
      m_place(std::make_shared<CSinkRelay::Place>(nullptr))
{
    ComPtr<IDispatch> relay;
    ThrowIfFailed(CreateComObject<CSinkRelay>(
        nullptr, IID_IDispatch, reinterpret_cast<void**>(relay.GetAddressOf()), sink, m_place));
    ThrowIfFailed(GlobalInterfaceTable()->RegisterInterfaceInGlobal(relay.Get(), IID_IDispatch,
                                                                    &m_registration));
}

EventSink::~EventSink()
{
    ComPtr<IGlobalInterfaceTable> table;
    if (SUCCEEDED(ComModule::Current().GetGITPtr(&table)))
    {
        table->RevokeInterfaceFromGlobal(m_registration);
    }
}

void EventSink::Fire(const Apartment& here, DISPID method,
                     const DISPPARAMS& parameters) const noexcept
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
            TraceFailure(hr);
            return;
        }
        sink = relay.Get();
    }
    // A copy for each sink, because one that writes to it must not harm the next.
    std::array<VARIANTARG, 2> arguments;
    DISPPARAMS given = parameters;
    given.cArgs = given.cArgs < arguments.size() ? given.cArgs : arguments.size();
    for (UINT i = 0; i < given.cArgs; ++i)
    {
        arguments[i] = parameters.rgvarg[i];
    }
    given.rgvarg = arguments.data();
    VARIANT result; // sinks may write to it without asking whether it is there
    ::VariantInit(&result);
    const HRESULT hr = sink->Invoke(method, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &given,
                                    &result, nullptr, nullptr);
    if (result.vt != VT_EMPTY)
    {
        ::VariantClear(&result);
    }
    if (FAILED(hr))
    {
        TraceFailure(hr);
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
    return SUCCEEDED(hr)
               ? table->GetInterfaceFromGlobal(m_registration, IID_IDispatch,
                                               reinterpret_cast<void**>(relay.GetAddressOf()))
               : hr;
}
} // namespace velt
