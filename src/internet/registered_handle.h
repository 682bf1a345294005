#pragma once

#include <windows.h>

#include <wininet.h>

#include <utility>

class CInternetSession;

namespace velt
{
/// Owns one internet handle together with its entry in the handle registry: whoever has the one has
/// the other. Closing keeps the thread's last error.
class RegisteredHandle
{
public:
    RegisteredHandle() noexcept = default;

    /// Takes over an open handle, or none, and enters it for its session. When there is no memory
    /// for the entry, the handle is closed and std::bad_alloc thrown.
    RegisteredHandle(HINTERNET handle, CInternetSession* session);

    RegisteredHandle(const RegisteredHandle&) = delete;
    RegisteredHandle& operator=(const RegisteredHandle&) = delete;
    RegisteredHandle& operator=(RegisteredHandle&&) = delete;

    RegisteredHandle(RegisteredHandle&& other) noexcept
        : m_handle(std::exchange(other.m_handle, nullptr)),
          m_session(std::exchange(other.m_session, nullptr))
    {
    }

    ~RegisteredHandle();

    HINTERNET Get() const noexcept
    {
        return m_handle;
    }

    explicit operator bool() const noexcept
    {
        return m_handle != nullptr;
    }

    /// Closes the handle and removes its entry; nothing happens without a handle.
    void Close() noexcept;

private:
    HINTERNET m_handle = nullptr;
    CInternetSession* m_session = nullptr;
};
} // namespace velt
