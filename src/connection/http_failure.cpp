#include "connection/http_failure.h"

#include "foundation/exception_to_hresult.h"
#include "internet/internet_exception.h"

#include <wininet.h>

#include <new>

namespace velt
{
DWORD HttpFailureOfCurrentException(DWORD context, DWORD cause) noexcept
{
    try
    {
        throw;
    }
    catch (const CInternetException& e)
    {
        return e.GetCode() == context ? cause : e.GetCode();
    }
    catch (const std::bad_alloc&)
    {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    catch (...)
    {
        TraceCurrentException(); // of the request: its accessors, or what takes the body
        return ERROR_INTERNET_INTERNAL_ERROR;
    }
}
} // namespace velt
