#include "service/connection_point_enumerator.h"

#include "foundation/com_method.h"

namespace velt
{
CConnectionPointEnumerator::CConnectionPointEnumerator(IUnknown* outer, IConnectionPoint* point,
                                                       std::size_t next) noexcept
    : ComObject(outer),
      m_point(point),
      m_cursor(next, 1)
{
}

STDMETHODIMP CConnectionPointEnumerator::Next(ULONG count, IConnectionPoint** points,
                                              ULONG* fetched)
{
    return ComMethod("CConnectionPointEnumerator::Next", [&] {
        if (fetched)
        {
            *fetched = 0;
        }
        if (!points || (!fetched && count != 1))
        {
            return E_POINTER;
        }
        ULONG copied = 0;
        std::size_t index = 0;
        while (copied < count && m_cursor.Take(index))
        {
            points[copied++] = m_point.Get();
            m_point.Get()->AddRef();
        }
        if (fetched)
        {
            *fetched = copied;
        }
        return copied == count ? S_OK : S_FALSE;
    });
}

STDMETHODIMP CConnectionPointEnumerator::Skip(ULONG count)
{
    return ComMethod("CConnectionPointEnumerator::Skip", [&] { return m_cursor.Skip(count); });
}

STDMETHODIMP CConnectionPointEnumerator::Reset()
{
    return ComMethod("CConnectionPointEnumerator::Reset", [&] {
        m_cursor.Reset();
        return S_OK;
    });
}

STDMETHODIMP CConnectionPointEnumerator::Clone(IEnumConnectionPoints** clone)
{
    return ComMethod("CConnectionPointEnumerator::Clone", [&] {
        return CreateComObject<CConnectionPointEnumerator>(nullptr, IID_IEnumConnectionPoints,
                                                           reinterpret_cast<void**>(clone),
                                                           m_point.Get(), m_cursor.Next());
    });
}
} // namespace velt
