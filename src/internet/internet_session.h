#pragma once

#include "internet/registered_handle.h"

#include <windows.h>

#include <wininet.h>

#include <cstdint>
#include <memory>

class CHttpConnection;

/// One session with the system internet API. Closing it ends what was opened from it, which fails
/// from then on as if it were closed. Used by one thread at a time; OnStatusCallback may be called
/// on threads of the internet API.
///
/// By design, failures are thrown as CInternetException with the session's context value as their
/// code; the thread's last error has the cause.
class CInternetSession
{
public:
    /// `context` is the context value of everything that is opened from the session. The texts may
    /// be null where the API allows it.
    CInternetSession(const wchar_t* agent, DWORD context, DWORD accessType, const wchar_t* proxy,
                     const wchar_t* proxyBypass, DWORD flags);

    CInternetSession(const CInternetSession&) = delete;
    CInternetSession& operator=(const CInternetSession&) = delete;

    /// Stops status callbacks and closes the handle; nothing happens the second time.
    virtual void Close() noexcept;

    /// Told about each status of a handle that belongs to the session. Hands it on to the callback
    /// that was installed before ours.
    virtual void OnStatusCallback(DWORD_PTR context, DWORD status, void* information,
                                  DWORD informationLength);

    virtual ~CInternetSession();

    /// Installs or removes the status callback. Returns 0 without an open handle, else 1.
    DWORD EnableStatusCallback(bool enable);

    /// Sets an option of the session; the result is ignored.
    void SetOption(DWORD option, void* buffer, DWORD length, DWORD flags) noexcept;

    /// Opens a connection to a server. User and password may be null.
    std::unique_ptr<CHttpConnection> GetHttpConnection(const wchar_t* server, INTERNET_PORT port,
                                                       const wchar_t* user,
                                                       const wchar_t* password);

    HINTERNET GetHandle() const noexcept; // null when it is not open
    const velt::RegisteredHandle& GetRegisteredHandle() const noexcept;
    DWORD GetContext() const noexcept;

private:
    /// The one callback that the internet API knows of us.
    static void CALLBACK StatusCallback(HINTERNET handle, DWORD_PTR context, DWORD status,
                                        void* information, DWORD informationLength) noexcept;

    DWORD m_context;
    velt::RegisteredHandle m_handle;
    INTERNET_STATUS_CALLBACK m_previousCallback = nullptr;
    std::uint32_t m_callbackEnabled = 0;
};
