#include "service/connection_enumerator.h"

#include "foundation/com_method.h"

#include <utility>

namespace velt
{
CConnectionEnumerator::CConnectionEnumerator(IUnknown* outer,
                                             std::shared_ptr<const SinkList::Sinks> sinks,
                                             std::size_t next) noexcept
    : ComObject(outer),
      m_sinks(std::move(sinks)),
      m_cursor(next, m_sinks ? m_sinks->size() : 0)
{
}

STDMETHODIMP CConnectionEnumerator::Next(ULONG count, CONNECTDATA* connections, ULONG* fetched)
{
    return ComMethod("CConnectionEnumerator::Next", [&] {
        if (fetched)
        {
            *fetched = 0;
        }
        if (!connections || (!fetched && count != 1))
        {
            return E_POINTER;
        }
        ULONG copied = 0;
        std::size_t index = 0;
        while (copied < count && m_cursor.Take(index))
        {
            const EventSink& sink = *(*m_sinks)[index];
            if (SUCCEEDED(sink.Get(&connections[copied].pUnk)))
            {
                connections[copied++].dwCookie = sink.Cookie();
            }
        }
        if (fetched)
        {
            *fetched = copied;
        }
        return copied == count ? S_OK : S_FALSE;
    });
}

STDMETHODIMP CConnectionEnumerator::Skip(ULONG count)
{
    return ComMethod("CConnectionEnumerator::Skip", [&] { return m_cursor.Skip(count); });
}

STDMETHODIMP CConnectionEnumerator::Reset()
{
    return ComMethod("CConnectionEnumerator::Reset", [&] {
        m_cursor.Reset();
        return S_OK;
    });
}

STDMETHODIMP CConnectionEnumerator::Clone(IEnumConnections** clone)
{
    return ComMethod("CConnectionEnumerator::Clone", [&] {
        return CreateComObject<CConnectionEnumerator>(nullptr, IID_IEnumConnections,
                                                      reinterpret_cast<void**>(clone), m_sinks,
                                                      m_cursor.Next());
    });
}
} // namespace velt
