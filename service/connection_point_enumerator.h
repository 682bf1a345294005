#pragma once

#include "foundation/com_object.h"
#include "service/cursor.h"

#include <windows.h>

#include <ocidl.h>
#include <wrl/client.h>

#include <cstddef>

namespace velt
{
/// Walks over the connection points of an object that has one. Any thread may call.
class CConnectionPointEnumerator final
    : public ComObject<CConnectionPointEnumerator, IEnumConnectionPoints>
{
public:
    /// `outer` is always null. `next` is 0, or 1 for the end.
    CConnectionPointEnumerator(IUnknown* outer, IConnectionPoint* point, std::size_t next) noexcept;

    /// `fetched` may be null when one is asked for.
    STDMETHODIMP Next(ULONG count, IConnectionPoint** points, ULONG* fetched) override;

    STDMETHODIMP Skip(ULONG count) override;
    STDMETHODIMP Reset() override;
    STDMETHODIMP Clone(IEnumConnectionPoints** clone) override;

private:
    const Microsoft::WRL::ComPtr<IConnectionPoint> m_point;
    Cursor m_cursor;
};
} // namespace velt
