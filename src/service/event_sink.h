#pragma once

#include "service/apartment.h"
#include "service/sink_relay.h"
#include "service/table_entry.h"

#include <windows.h>

#include <oaidl.h>
#include <wrl/client.h>

#include <array>
#include <atomic>
#include <memory>

namespace velt
{
/// One connected sink. It may be used and destroyed on any thread: an agile sink is kept and called
/// directly, every other one through the global interface table, in its own apartment.
class EventSink
{
public:
    /// Connects a sink on a thread of its apartment; `sink` is what it answers to the events' IID
    /// with. Throws SystemException::HRESULT when it cannot be kept, and std::bad_alloc.
    EventSink(DWORD cookie, const Microsoft::WRL::ComPtr<IDispatch>& sink);

    EventSink(const EventSink&) = delete;
    EventSink& operator=(const EventSink&) = delete;

    /// Waits for no other apartment: a sink of another one is given back a moment later.
    ~EventSink();

    DWORD Cookie() const noexcept
    {
        return m_cookie;
    }

    /// From now on it is not called any more, also by firings that are under way.
    void Disconnect() noexcept
    {
        m_connected = false;
    }

    /// Invokes an event's method. `here` is the calling thread's apartment. The arguments, the last
    /// one first, are lent; each sink gets its own array of them, because one that writes to it
    /// must not harm the next. The sink's failures go no further than a trace.
    void Fire(const Apartment& here, DISPID method,
              std::array<VARIANTARG, 2> arguments) const noexcept;

    /// The sink itself, as the calling thread's apartment sees it, with a reference.
    HRESULT Get(IUnknown** sink) const noexcept;

private:
    /// The sink itself where it may be called directly, without a reference; null elsewhere.
    IDispatch* Direct(const Apartment& here) const noexcept;

    // constant after construction
    const DWORD m_cookie;
    const Apartment m_home = Apartment::Current();
    Microsoft::WRL::ComPtr<IDispatch> m_agile;  // null for a sink that is not
    std::shared_ptr<CSinkRelay::Place> m_place; // null for an agile sink, as the next one
    std::unique_ptr<TableEntry> m_entry;        // the relay's

    std::atomic<bool> m_connected = true;
};
} // namespace velt
