#pragma once

#include "internet/handle_registry.h"

#include <windows.h>

#include <wininet.h>

#include <memory>
#include <utility>

namespace velt
{
/// Owns one internet handle together with its entry in the handle registry. The handle is closed by
/// its owner only while it is open: it may end before, see HandleEntry. Closing keeps the thread's
/// last error. What was opened from the handle may outlive its owner.
class RegisteredHandle
{
public:
    RegisteredHandle() noexcept = default;

    /// Takes over the open handle of a session, or none. When there is no memory for the entry, the
    /// handle is closed and std::bad_alloc thrown.
    RegisteredHandle(HINTERNET handle, CInternetSession* session);

    /// The same for a handle, or none, that has just been opened from `parent`. A parent that was
    /// closed meanwhile has taken the handle with it, so that there is none to take over.
    RegisteredHandle(HINTERNET handle, const RegisteredHandle& parent);

    RegisteredHandle(const RegisteredHandle&) = delete;
    RegisteredHandle& operator=(const RegisteredHandle&) = delete;
    RegisteredHandle& operator=(RegisteredHandle&&) = delete;

    RegisteredHandle(RegisteredHandle&& other) noexcept
        : m_entry(std::move(other.m_entry)),
          m_isClosed(std::exchange(other.m_isClosed, true))
    {
    }

    ~RegisteredHandle();

    /// The handle; null when it is not open.
    HINTERNET Get() const noexcept
    {
        return *this ? m_entry->Handle() : nullptr;
    }

    explicit operator bool() const noexcept
    {
        return m_entry && m_entry->IsOpen();
    }

    /// Whether there is nothing to close: there never was a handle, or Close was called. One that
    /// has ended otherwise still waits for its Close.
    bool IsClosed() const noexcept
    {
        return m_isClosed;
    }

    /// Closes the handle if it is open, and removes its entry if that is there; nothing happens the
    /// second time.
    void Close() noexcept;

private:
    void Enter();

    std::shared_ptr<HandleEntry> m_entry;
    bool m_isClosed = true;
};
} // namespace velt
