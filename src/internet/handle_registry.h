#pragma once

#include "foundation/win_critical_section.h"

#include <windows.h>

#include <wininet.h>

#include <atomic>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <utility>

class CInternetSession;

namespace velt
{
/// One internet handle, from its opening to its end. Its owner has it, what was opened from it, and
/// the registry for as long as the system may speak of the handle.
///
/// Whoever closes a handle closes what was opened from it: the system ends those and gives their
/// values out again, to anybody. So each handle ends once, by the first of these: its owner closes
/// it, the system announces its end, or the one that it was opened from ends.
class HandleEntry
{
public:
    /// The handle of a session.
    HandleEntry(HINTERNET handle, CInternetSession* session) noexcept
        : m_handle(handle),
          m_session(session)
    {
    }

    /// A handle that was opened from another one.
    HandleEntry(HINTERNET handle, std::shared_ptr<const HandleEntry> parent) noexcept
        : m_handle(handle),
          m_parent(std::move(parent))
    {
    }

    HandleEntry(const HandleEntry&) = delete;
    HandleEntry& operator=(const HandleEntry&) = delete;

    ~HandleEntry() = default;

    /// The value, which is somebody else's when the handle is not open any more.
    HINTERNET Handle() const noexcept
    {
        return m_handle;
    }

    bool IsOpen() const noexcept
    {
        const HandleEntry* entry = this;
        while (entry && !entry->m_ended)
        {
            entry = entry->m_parent.get();
        }
        return !entry; // neither it nor what it was opened from has ended
    }

    /// Ends the handle. Whether it was open: then, and only then, it is the caller's to close.
    bool End() noexcept
    {
        const bool wasOpen = IsOpen();
        return !m_ended.exchange(true) && wasOpen;
    }

    /// The session that the handle belongs to; null once that is destroyed.
    CInternetSession* Session() const noexcept
    {
        const HandleEntry* first = this;
        while (first->m_parent)
        {
            first = first->m_parent.get();
        }
        return first->m_session;
    }

    /// The session is destroyed.
    void ForgetSession() noexcept
    {
        m_session = nullptr;
    }

private:
    const HINTERNET m_handle;
    const std::shared_ptr<const HandleEntry> m_parent;
    std::atomic<CInternetSession*> m_session = nullptr;
    std::atomic<bool> m_ended = false;
};

/// The handles of which the internet API may speak; one per process. Status callbacks arrive with
/// nothing but a handle and find their session here. Any thread may call.
class HandleRegistry
{
public:
    HandleRegistry() = default;

    HandleRegistry(const HandleRegistry&) = delete;
    HandleRegistry& operator=(const HandleRegistry&) = delete;

    ~HandleRegistry() = default;

    static HandleRegistry& Instance();

    /// Enters a handle that has just been opened; another one of that value ends and leaves.
    /// Throws std::bad_alloc.
    void Insert(std::shared_ptr<HandleEntry> entry);

    /// Removes an entry; nothing happens when it has left. Another one of the same value stays.
    void Remove(const HandleEntry& entry) noexcept;

    /// The session that a handle belongs to, null for an unknown one.
    CInternetSession* Find(HINTERNET handle) noexcept;

    /// The system has announced a handle's end: it ends and leaves.
    void End(HINTERNET handle) noexcept;

    /// How many handles are entered.
    std::size_t Size() noexcept;

private:
    WinCriticalSection m_lock;

    // guarded by m_lock
    std::map<HINTERNET, std::shared_ptr<HandleEntry>, std::less<>> m_entries;
};
} // namespace velt
