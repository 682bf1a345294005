#include "connection/http_event.h"

#include "foundation/exception_to_hresult.h"

#include <wininet.h>

namespace velt
{
void TellError(CHTTPEvent* sink, DWORD error) noexcept
try
{
    if (sink)
    {
        sink->OnError(error == ERROR_SUCCESS ? ERROR_INTERNET_INTERNAL_ERROR : error);
    }
}
catch (...)
{
    TraceCurrentException();
}

void TellComplete(CHTTPEvent* sink) noexcept
try
{
    if (sink)
    {
        sink->OnComplete();
    }
}
catch (...)
{
    TraceCurrentException();
}

bool TellStatus(CHTTPEvent* sink, DWORD status, DWORD_PTR value) noexcept
try
{
    return !sink || sink->OnStatus(status, value);
}
catch (...)
{
    TraceCurrentException();
    return false;
}
} // namespace velt
