#include "service/connection_enumerator.h"

#include <utility>

namespace velt
{
CConnectionEnumerator::CConnectionEnumerator(IUnknown* outer,
                                             std::shared_ptr<const SinkList::Sinks> sinks,
                                             std::size_t next) noexcept
    : CursorEnumerator(outer, next, sinks ? sinks->size() : 0),
      m_sinks(std::move(sinks))
{
}

bool CConnectionEnumerator::Give(std::size_t index, CONNECTDATA& connection) const noexcept
{
    const EventSink& sink = *(*m_sinks)[index];
    if (FAILED(sink.Get(&connection.pUnk)))
    {
        return false;
    }
    connection.dwCookie = sink.Cookie();
    return true;
}

HRESULT CConnectionEnumerator::CloneAt(std::size_t next, IEnumConnections** clone) const
{
    return CreateComObject<CConnectionEnumerator>(clone, m_sinks, next);
}
} // namespace velt
