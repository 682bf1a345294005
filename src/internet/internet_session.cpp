#include "internet/internet_session.h"

#include "foundation/exception_to_hresult.h"
#include "internet/handle_registry.h"
#include "internet/http_connection.h"
#include "internet/internet_exception.h"

namespace
{
/// The handle whose end is announced: the one that the information names.
HINTERNET ClosingHandle(HINTERNET handle, const void* information, DWORD informationLength) noexcept
{
    return information && informationLength >= sizeof(HINTERNET)
               ? *static_cast<const HINTERNET*>(information)
               : handle;
}
} // namespace

CInternetSession::CInternetSession(const wchar_t* agent, DWORD context, DWORD accessType,
                                   const wchar_t* proxy, const wchar_t* proxyBypass, DWORD flags)
    : m_context(context),
      m_handle(::InternetOpenW(agent, accessType, proxy, proxyBypass, flags), this)
{
    if (!m_handle)
    {
        throw CInternetException(m_context);
    }
}

void CInternetSession::Close() noexcept
{
    if (m_callbackEnabled != 0 && m_handle)
    {
        ::InternetSetStatusCallbackW(m_handle.Get(), nullptr);
        m_callbackEnabled = 0;
    }
    m_handle.Close();
}

void CInternetSession::OnStatusCallback(DWORD_PTR context, DWORD status, void* information,
                                        DWORD informationLength)
{
    if (m_previousCallback)
    {
        m_previousCallback(m_handle.Get(), context, status, information, informationLength);
    }
}

CInternetSession::~CInternetSession()
{
    CInternetSession::Close();
}

DWORD CInternetSession::EnableStatusCallback(bool enable)
{
    if (!m_handle)
    {
        return 0;
    }
    if (enable && m_callbackEnabled == 0)
    {
        const INTERNET_STATUS_CALLBACK previous =
            ::InternetSetStatusCallbackW(m_handle.Get(), &CInternetSession::StatusCallback);
        if (previous == INTERNET_INVALID_STATUS_CALLBACK)
        {
            throw CInternetException(m_context);
        }
        m_previousCallback = previous;
        m_callbackEnabled = 1;
    }
    else if (!enable && m_callbackEnabled != 0)
    {
        ::InternetSetStatusCallbackW(m_handle.Get(), nullptr);
        m_callbackEnabled = 0;
    }
    return 1;
}

void CInternetSession::SetOption(DWORD option, void* buffer, DWORD length, DWORD flags) noexcept
{
    ::InternetSetOptionExW(m_handle.Get(), option, buffer, length, flags);
}

std::unique_ptr<CHttpConnection> CInternetSession::GetHttpConnection(const wchar_t* server,
                                                                     INTERNET_PORT port,
                                                                     const wchar_t* user,
                                                                     const wchar_t* password)
{
    return std::make_unique<CHttpConnection>(this, server, port, user, password, m_context);
}

HINTERNET CInternetSession::GetHandle() const noexcept
{
    return m_handle.Get();
}

const velt::RegisteredHandle& CInternetSession::GetRegisteredHandle() const noexcept
{
    return m_handle;
}

DWORD CInternetSession::GetContext() const noexcept
{
    return m_context;
}

void CALLBACK CInternetSession::StatusCallback(HINTERNET handle, DWORD_PTR context, DWORD status,
                                               void* information, DWORD informationLength) noexcept
{
    velt::HandleRegistry& registry = velt::HandleRegistry::Instance();
    CInternetSession* const session = registry.Find(handle);
    if (status == INTERNET_STATUS_HANDLE_CLOSING)
    {
        registry.End(ClosingHandle(handle, information, informationLength));
    }
    if (session) // an unknown handle is one that was closed meanwhile
    {
        try
        {
            session->OnStatusCallback(context, status, information, informationLength);
        }
        catch (...)
        {
            velt::TraceCurrentException(); // it must not reach the internet API
        }
    }
}
