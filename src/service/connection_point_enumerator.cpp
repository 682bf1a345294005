#include "service/connection_point_enumerator.h"

namespace velt
{
CConnectionPointEnumerator::CConnectionPointEnumerator(IUnknown* outer, IConnectionPoint* point,
                                                       std::size_t next) noexcept
    : CursorEnumerator(outer, next, 1),
      m_point(point)
{
}

bool CConnectionPointEnumerator::Give(std::size_t, IConnectionPoint*& point) const noexcept
{
    m_point.CopyTo(&point);
    return true;
}

HRESULT CConnectionPointEnumerator::CloneAt(std::size_t next, IEnumConnectionPoints** clone) const
{
    return CreateComObject<CConnectionPointEnumerator>(clone, m_point.Get(), next);
}
} // namespace velt
