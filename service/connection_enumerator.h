#pragma once

#include "foundation/com_object.h"
#include "service/cursor.h"
#include "service/sink_list.h"

#include <windows.h>

#include <ocidl.h>

#include <cstddef>
#include <memory>

namespace velt
{
/// Walks over the sinks that were connected when it was made. Sinks that cannot be reached from the
/// calling thread any more are passed over. Any thread may call.
class CConnectionEnumerator final : public ComObject<CConnectionEnumerator, IEnumConnections>
{
public:
    /// `outer` is always null, `sinks` may be. The first sink is that at index `next`.
    CConnectionEnumerator(IUnknown* outer, std::shared_ptr<const SinkList::Sinks> sinks,
                          std::size_t next) noexcept;

    /// Hands out up to `count` sinks, each with a reference, into an array of that size; S_FALSE
    /// when there were fewer. `fetched` may be null when one is asked for.
    STDMETHODIMP Next(ULONG count, CONNECTDATA* connections, ULONG* fetched) override;

    STDMETHODIMP Skip(ULONG count) override;
    STDMETHODIMP Reset() override;
    STDMETHODIMP Clone(IEnumConnections** clone) override;

private:
    const std::shared_ptr<const SinkList::Sinks> m_sinks;
    Cursor m_cursor;
};
} // namespace velt
