#include "service/sink_list.h"

#include "foundation/exception_to_hresult.h"
#include "foundation/velt_auto_critical_section.h"

#include <provider_lib.h>

#include <olectl.h>

#include <algorithm>

using Microsoft::WRL::ComPtr;

namespace velt
{
namespace
{
SinkList::Sinks::iterator Find(SinkList::Sinks& sinks, DWORD cookie) noexcept
{
    const auto found = std::lower_bound(sinks.begin(), sinks.end(), cookie,
                                        [](const std::shared_ptr<EventSink>& sink, DWORD sought) {
                                            return sink->Cookie() < sought;
                                        });
    return found != sinks.end() && (*found)->Cookie() == cookie ? found : sinks.end();
}
} // namespace

HRESULT SinkList::Advise(IUnknown* sink, DWORD* cookie) noexcept
{
    ComPtr<IDispatch> events;
    if (FAILED(sink->QueryInterface(DIID_IVeltHTTPServiceEvents,
                                    reinterpret_cast<void**>(events.GetAddressOf()))) ||
        !events)
    {
        return CONNECT_E_CANNOTCONNECT;
    }
    try
    {
        DWORD next = 0;
        {
            const VeltAutoCriticalSection lock(&m_lock);
            if (m_lastCookie == MAXDWORD)
            {
                return CONNECT_E_ADVISELIMIT; // a cookie never comes back
            }
            next = ++m_lastCookie;
        }
        const auto made = std::make_shared<EventSink>(next, events);
        const VeltAutoCriticalSection lock(&m_lock);
        Sinks& sinks = Changeable();
        // Mostly at the end: others may have come in between.
        const auto place = std::find_if(sinks.rbegin(), sinks.rend(),
                                        [&](const auto& other) { return other->Cookie() < next; });
        sinks.insert(place.base(), made);
        *cookie = next;
        return S_OK;
    }
    catch (...)
    {
        return ReportCurrentExceptionAs(CONNECT_E_ADVISELIMIT);
    }
}

HRESULT SinkList::Unadvise(DWORD cookie) noexcept
{
    std::shared_ptr<EventSink> removed; // given back without the lock
    try
    {
        const VeltAutoCriticalSection lock(&m_lock);
        if (!m_sinks || Find(*m_sinks, cookie) == m_sinks->end())
        {
            return CONNECT_E_NOCONNECTION;
        }
        Sinks& sinks = Changeable();
        const auto found = Find(sinks, cookie);
        removed = *found;
        sinks.erase(found);
    }
    catch (...)
    {
        return HResultFromCurrentException();
    }
    removed->Disconnect();
    return S_OK;
}

void SinkList::Clear() noexcept
{
    std::shared_ptr<Sinks> removed; // given back without the lock
    {
        const VeltAutoCriticalSection lock(&m_lock);
        removed.swap(m_sinks);
    }
    if (removed)
    {
        for (const std::shared_ptr<EventSink>& sink : *removed)
        {
            sink->Disconnect();
        }
    }
}

std::shared_ptr<const SinkList::Sinks> SinkList::Snapshot() noexcept
{
    const VeltAutoCriticalSection lock(&m_lock);
    return m_sinks;
}

SinkList::Sinks& SinkList::Changeable()
{
    if (!m_sinks)
    {
        m_sinks = std::make_shared<Sinks>();
    }
    else if (m_sinks.use_count() != 1)
    {
        m_sinks = std::make_shared<Sinks>(*m_sinks);
    }
    std::atomic_thread_fence(std::memory_order_acquire); // after the last look of another thread
    return *m_sinks;
}
} // namespace velt
