#pragma once

#include <windows.h>

/// Hears how an HTTP exchange goes, on the worker or on a thread of the internet API.
class CHTTPEvent
{
public:
    CHTTPEvent() = default;
    CHTTPEvent(const CHTTPEvent&) = delete;
    CHTTPEvent& operator=(const CHTTPEvent&) = delete;

    /// A failure: an error of the internet API, or an HTTP status other than 200.
    virtual void OnError(DWORD error) = 0;

    /// The exchange is over, whatever became of it. Called once.
    virtual void OnComplete() = 0;

    /// A status of the internet API (INTERNET_STATUS_...); true asks for the exchange to be
    /// abandoned.
    virtual bool OnStatus(DWORD status, DWORD_PTR value) = 0;

protected:
    ~CHTTPEvent() = default;
};
