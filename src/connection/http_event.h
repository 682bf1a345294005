#pragma once

#include <windows.h>

/// Hears how an HTTP exchange goes.
///
/// Each call comes on the thread that runs the exchange, which is the queue's worker, or on a
/// thread of the internet API, with no lock of ours held. A sink may use the queue in it, add
/// requests and cancel them. It must not wait for the exchange or its queue to end, because the
/// exchange waits for the sink. What a sink throws is traced, and the exchange goes on as if it had
/// returned; from OnStatus, with false.
///
/// A sink must be there until the exchange has returned: for a request of the queue, until its
/// completion is called, or until the queue is destroyed.
class CHTTPEvent
{
public:
    CHTTPEvent() = default;
    CHTTPEvent(const CHTTPEvent&) = delete;
    CHTTPEvent& operator=(const CHTTPEvent&) = delete;

    /// A failure: an error of the internet API or of the system, or an HTTP status other than 200;
    /// never 0. None for an exchange that delivers its body. OnComplete follows.
    virtual void OnError(DWORD error) = 0;

    /// The exchange is over, whatever became of it. Called once. Only statuses of the closing
    /// connection follow (INTERNET_STATUS_HANDLE_CLOSING, 70).
    virtual void OnComplete() = 0;

    /// A status of the internet API (INTERNET_STATUS_...); true asks for the exchange to be
    /// abandoned. That is done at INTERNET_STATUS_HANDLE_CREATED (60), _RECEIVING_RESPONSE (40) and
    /// _RESPONSE_RECEIVED (41), and nowhere else: the exchange then ends with OnError of
    /// ERROR_INTERNET_OPERATION_CANCELLED (12017), and what came of the body is not delivered.
    virtual bool OnStatus(DWORD status, DWORD_PTR value) = 0;

protected:
    ~CHTTPEvent() = default;
};

namespace velt
{
/// Tell the sink of an exchange, which may be null. What it throws is traced and goes no further.
/// An error of 0, which no system call that failed should leave, is told as
/// ERROR_INTERNET_INTERNAL_ERROR. By design, a status that nobody hears is answered with true.
void TellError(CHTTPEvent* sink, DWORD error) noexcept;
void TellComplete(CHTTPEvent* sink) noexcept;
bool TellStatus(CHTTPEvent* sink, DWORD status, DWORD_PTR value) noexcept;
} // namespace velt
