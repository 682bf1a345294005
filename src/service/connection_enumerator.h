#pragma once

#include "service/cursor_enumerator.h"
#include "service/sink_list.h"

#include <windows.h>

#include <ocidl.h>

#include <cstddef>
#include <memory>

namespace velt
{
/// Walks over the sinks that were connected when it was made. Sinks that cannot be reached from the
/// calling thread any more are passed over. Any thread may call.
class CConnectionEnumerator final
    : public CursorEnumerator<CConnectionEnumerator, IEnumConnections, CONNECTDATA>
{
public:
    static constexpr CursorTraceNames kTraceNames = {
        "CConnectionEnumerator::Next", "CConnectionEnumerator::Skip",
        "CConnectionEnumerator::Reset", "CConnectionEnumerator::Clone"};

    /// `outer` is always null, `sinks` may be. The first sink is that at index `next`.
    CConnectionEnumerator(IUnknown* outer, std::shared_ptr<const SinkList::Sinks> sinks,
                          std::size_t next) noexcept;

    bool Give(std::size_t index, CONNECTDATA& connection) const noexcept;
    HRESULT CloneAt(std::size_t next, IEnumConnections** clone) const;

private:
    const std::shared_ptr<const SinkList::Sinks> m_sinks;
};
} // namespace velt
