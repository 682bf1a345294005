#pragma once

#include "internet/registered_handle.h"

#include <windows.h>

#include <wininet.h>

#include <string>

class CInternetSession;

/// A connection to one server. It ends with the session that it was opened from, which must be
/// there while it is used.
class CInternetConnection
{
public:
    CInternetConnection(const CInternetConnection&) = delete;
    CInternetConnection& operator=(const CInternetConnection&) = delete;

    /// Closes the handle; nothing happens the second time.
    virtual void Close() noexcept;

    virtual ~CInternetConnection();

    HINTERNET GetHandle() const noexcept; // null when it is not open
    const velt::RegisteredHandle& GetRegisteredHandle() const noexcept;
    DWORD GetContext() const noexcept;
    CInternetSession* GetSession() const noexcept;
    const std::wstring& GetServerName() const noexcept;
    INTERNET_PORT GetPort() const noexcept;

protected:
    /// Opens a connection for the service. A context of 1 means the session's. By design, a failure
    /// is a CInternetException with the connection's context value as its code.
    CInternetConnection(CInternetSession* session, const wchar_t* server, INTERNET_PORT port,
                        const wchar_t* user, const wchar_t* password, DWORD service, DWORD context);

private:
    DWORD m_context;
    velt::RegisteredHandle m_handle;
    CInternetSession* m_session;
    std::wstring m_serverName;
    INTERNET_PORT m_port;
};
