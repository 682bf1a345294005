#pragma once

#include "service/apartment.h"
#include "service/sink_relay.h"

#include <windows.h>

#include <oaidl.h>
#include <wrl/client.h>

#include <array>
#include <atomic>
#include <memory>

namespace velt
{
/// One connected sink. It may be used and destroyed on any thread: the global interface table keeps
/// the sink and gives it back in its own way.
class EventSink
{
public:
    /// Connects a sink on a thread of its apartment; `sink` is what it answers to the events' IID
    /// with. Throws SystemException::HRESULT when it cannot be kept, and std::bad_alloc.
    EventSink(DWORD cookie, const Microsoft::WRL::ComPtr<IDispatch>& sink);

    EventSink(const EventSink&) = delete;
    EventSink& operator=(const EventSink&) = delete;

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
    /// Something to call in the calling thread's apartment that is not the sink's.
    HRESULT Fetch(Microsoft::WRL::ComPtr<IDispatch>& relay) const noexcept;

    // constant after construction
    const DWORD m_cookie;
    const Apartment m_home = Apartment::Current();
    const std::shared_ptr<CSinkRelay::Place> m_place;
    DWORD m_registration = 0; // in the global interface table

    std::atomic<bool> m_connected = true;
};
} // namespace velt
