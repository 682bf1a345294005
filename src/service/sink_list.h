#pragma once

#include "foundation/velt_critical_section.h"
#include "service/event_sink.h"

#include <windows.h>

#include <unknwn.h>

#include <memory>
#include <string_view>
#include <vector>

namespace velt
{
/// The sinks of one event interface. Any thread may call; sinks are called, and are given back,
/// while nothing is locked.
class SinkList
{
public:
    using Sinks = std::vector<std::shared_ptr<EventSink>>; // in the order of their cookies

    SinkList() = default;

    SinkList(const SinkList&) = delete;
    SinkList& operator=(const SinkList&) = delete;

    ~SinkList() = default;

    /// Connects a sink, on a thread of its apartment, and answers with its cookie.
    /// CONNECT_E_CANNOTCONNECT when it lacks the event interface, CONNECT_E_ADVISELIMIT when it
    /// cannot be stored.
    HRESULT Advise(IUnknown* sink, DWORD* cookie) noexcept;

    /// CONNECT_E_NOCONNECTION for a cookie that is nobody's.
    HRESULT Unadvise(DWORD cookie) noexcept;

    /// Disconnects all sinks.
    void Clear() noexcept;

    /// The sinks as they are now, null for none; the list of them does not change any more.
    std::shared_ptr<const Sinks> Snapshot() noexcept;

    /// Tells all sinks that the update work for a product has ended: Notify(self_upgrade, guid).
    /// On the calling thread, which has initialised COM. Nothing that a sink does gets out of it.
    void NotifySelfUpgrade(std::wstring_view installerGuid) noexcept;

private:
    /// The list, for a change; copied first while somebody looks at it. With the lock held.
    Sinks& Changeable();

    VeltCriticalSection m_lock;

    // guarded by m_lock
    std::shared_ptr<Sinks> m_sinks; // null before the first
    DWORD m_lastCookie = 0;
};
} // namespace velt
