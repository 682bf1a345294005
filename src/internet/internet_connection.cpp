#include "internet/internet_connection.h"

#include "internet/internet_exception.h"
#include "internet/internet_session.h"

namespace
{
constexpr DWORD kSessionContext = 1; // stands for the context of the session
} // namespace

CInternetConnection::CInternetConnection(CInternetSession* session, const wchar_t* server,
                                         INTERNET_PORT port, const wchar_t* user,
                                         const wchar_t* password, DWORD service, DWORD context)
    : m_context(context == kSessionContext ? session->GetContext() : context),
      m_handle(::InternetConnectW(session->GetHandle(), server, port, user, password, service, 0,
                                  m_context),
               session->GetRegisteredHandle()),
      m_session(session),
      m_serverName(server ? server : L""),
      m_port(port)
{
    if (!m_handle)
    {
        throw CInternetException(m_context);
    }
}

void CInternetConnection::Close() noexcept
{
    m_handle.Close();
}

CInternetConnection::~CInternetConnection() = default;

HINTERNET CInternetConnection::GetHandle() const noexcept
{
    return m_handle.Get();
}

const velt::RegisteredHandle& CInternetConnection::GetRegisteredHandle() const noexcept
{
    return m_handle;
}

DWORD CInternetConnection::GetContext() const noexcept
{
    return m_context;
}

CInternetSession* CInternetConnection::GetSession() const noexcept
{
    return m_session;
}

const std::wstring& CInternetConnection::GetServerName() const noexcept
{
    return m_serverName;
}

INTERNET_PORT CInternetConnection::GetPort() const noexcept
{
    return m_port;
}
