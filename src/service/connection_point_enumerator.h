#pragma once

#include "service/cursor_enumerator.h"

#include <windows.h>

#include <ocidl.h>
#include <wrl/client.h>

#include <cstddef>

namespace velt
{
/// Walks over the connection points of an object that has one. Any thread may call.
class CConnectionPointEnumerator final
    : public CursorEnumerator<CConnectionPointEnumerator, IEnumConnectionPoints, IConnectionPoint*>
{
public:
    static constexpr CursorTraceNames kTraceNames = {
        "CConnectionPointEnumerator::Next", "CConnectionPointEnumerator::Skip",
        "CConnectionPointEnumerator::Reset", "CConnectionPointEnumerator::Clone"};

    /// `outer` is always null. `next` is 0, or 1 for the end.
    CConnectionPointEnumerator(IUnknown* outer, IConnectionPoint* point, std::size_t next) noexcept;

    bool Give(std::size_t index, IConnectionPoint*& point) const noexcept;
    HRESULT CloneAt(std::size_t next, IEnumConnectionPoints** clone) const;

private:
    const Microsoft::WRL::ComPtr<IConnectionPoint> m_point;
};
} // namespace velt
