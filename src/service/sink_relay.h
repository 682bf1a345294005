#pragma once

#include "foundation/com_object.h"

#include <windows.h>

#include <oaidl.h>
#include <wrl/client.h>

#include <atomic>
#include <memory>

namespace velt
{
/// Stands for a sink in the sink's own apartment: the global interface table keeps it, and threads
/// of other apartments reach the sink through it. It is marshalled as IDispatch, so the events'
/// interface need not be registered, and a sink with several dispatch interfaces is still called on
/// the right one. By design it traces nothing: only the component itself calls it.
class CSinkRelay final : public ComObject<CSinkRelay, IDispatch>
{
public:
    /// Holds a sink's pointer for as long as the relay lives, null afterwards.
    using Place = std::atomic<IDispatch*>;

    /// Answered with the sink itself, as VT_UNKNOWN.
    static constexpr DISPID kDispidSink = -1000;

    /// `outer` is always null. `sink` is what the sink answers to the events' IID with.
    CSinkRelay(IUnknown* outer, Microsoft::WRL::ComPtr<IDispatch> sink,
               std::shared_ptr<Place> place) noexcept;

    CSinkRelay(const CSinkRelay&) = delete;
    CSinkRelay& operator=(const CSinkRelay&) = delete;

    ~CSinkRelay();

    STDMETHODIMP GetTypeInfoCount(UINT* count) override;
    STDMETHODIMP GetTypeInfo(UINT index, LCID locale, ITypeInfo** info) override;
    STDMETHODIMP GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, LCID locale,
                               DISPID* ids) override;
    STDMETHODIMP Invoke(DISPID id, REFIID iid, LCID locale, WORD flags, DISPPARAMS* parameters,
                        VARIANT* result, EXCEPINFO* exception, UINT* argumentError) override;

private:
    const Microsoft::WRL::ComPtr<IDispatch> m_sink;
    const std::shared_ptr<Place> m_place;
};
} // namespace velt
