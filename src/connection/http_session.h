#pragma once

#include "connection/http_event.h"
#include "internet/internet_session.h"

#include <windows.h>

#include <wininet.h>

template <class Request>
class CHTTPRequest;

/// The internet session of one HTTP exchange: hands status reports to the exchange's event sink,
/// and ends the exchange when the sink asks for it.
template <class Request>
class CHTTPSession final : public CInternetSession
{
public:
    /// `owner` outlives the session; null keeps it silent. `proxy` may be null.
    CHTTPSession(CHTTPRequest<Request>* owner, DWORD accessType, const wchar_t* proxy)
        : CInternetSession(L"Velt HTTP agent", kContext, accessType, proxy, nullptr, 0),
          m_owner(owner)
    {
    }

    void OnStatusCallback(DWORD_PTR, DWORD status, void* information,
                          DWORD informationLength) override
    {
        if (!m_owner)
        {
            return;
        }
        CHTTPEvent* const sink = m_owner->GetEvent();
        const DWORD error = ErrorOf(status, information, informationLength);
        if (error != ERROR_SUCCESS)
        {
            velt::TellError(sink, error);
            return;
        }
        const DWORD_PTR value =
            status == kEveryBit ? reinterpret_cast<DWORD_PTR>(information) : m_statusValue;
        if (velt::TellStatus(sink, status, value) && MayAbandonAt(status))
        {
            Close(); // makes the running exchange fail
        }
    }

private:
    static constexpr DWORD kContext = 1;
    static constexpr DWORD kEveryBit = 0xFFFFFFFF;

    /// The error that a completed operation reports; ERROR_SUCCESS for everything else.
    static DWORD ErrorOf(DWORD status, const void* information, DWORD informationLength) noexcept
    {
        if (status != INTERNET_STATUS_REQUEST_COMPLETE || !information ||
            informationLength < sizeof(INTERNET_ASYNC_RESULT))
        {
            return ERROR_SUCCESS;
        }
        return static_cast<const INTERNET_ASYNC_RESULT*>(information)->dwError;
    }

    static bool MayAbandonAt(DWORD status) noexcept
    {
        return status == INTERNET_STATUS_RECEIVING_RESPONSE ||
               status == INTERNET_STATUS_RESPONSE_RECEIVED ||
               status == INTERNET_STATUS_HANDLE_CREATED;
    }

    DWORD m_statusValue = 0; // handed out with ordinary reports
    CHTTPRequest<Request>* m_owner;
};
