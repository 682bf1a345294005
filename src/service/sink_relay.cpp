#include "service/sink_relay.h"

#include <utility>

namespace velt
{
CSinkRelay::CSinkRelay(IUnknown* outer, Microsoft::WRL::ComPtr<IDispatch> sink,
                       std::shared_ptr<Place> place) noexcept
    : ComObject(outer),
      m_sink(std::move(sink)),
      m_place(std::move(place))
{
    *m_place = m_sink.Get();
}

CSinkRelay::~CSinkRelay()
{
    *m_place = nullptr;
}

STDMETHODIMP CSinkRelay::GetTypeInfoCount(UINT* count)
{
    return m_sink->GetTypeInfoCount(count);
}

STDMETHODIMP CSinkRelay::GetTypeInfo(UINT index, LCID locale, ITypeInfo** info)
{
    return m_sink->GetTypeInfo(index, locale, info);
}

STDMETHODIMP CSinkRelay::GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, LCID locale,
                                       DISPID* ids)
{
    return m_sink->GetIDsOfNames(iid, names, count, locale, ids);
}

STDMETHODIMP CSinkRelay::Invoke(DISPID id, REFIID iid, LCID locale, WORD flags,
                                DISPPARAMS* parameters, VARIANT* result, EXCEPINFO* exception,
                                UINT* argumentError)
{
    if (id != kDispidSink)
    {
        return m_sink->Invoke(id, iid, locale, flags, parameters, result, exception, argumentError);
    }
    if (!result)
    {
        return E_POINTER;
    }
    ::VariantInit(result);
    result->vt = VT_UNKNOWN;
    result->punkVal = m_sink.Get();
    result->punkVal->AddRef();
    return S_OK;
}
} // namespace velt
