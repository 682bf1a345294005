#include "foundation/exception_to_hresult.h"

#include "foundation/failure_trace.h"
#include "foundation/system_exception.h"

#include <comdef.h>

#include <exception>
#include <new>

namespace velt
{
namespace
{
HRESULT Traced(HRESULT hr, const char* what) noexcept
{
    const HRESULT failure = FAILED(hr) ? hr : E_UNEXPECTED;
    TraceFailure(failure, what);
    return failure;
}
} // namespace

HRESULT HResultFromCurrentException() noexcept
{
    try
    {
        throw;
    }
    catch (const SystemException::HRESULT& e)
    {
        return Traced(e.GetCode(), e.what());
    }
    catch (const SystemException::Win32& e)
    {
        return Traced(HRESULT_FROM_WIN32(e.GetCode()), e.what());
    }
    catch (const _com_error& e)
    {
        return Traced(e.Error(), "COM error");
    }
    catch (const std::bad_alloc&)
    {
        return Traced(E_OUTOFMEMORY, "out of memory");
    }
    catch (const std::exception& e)
    {
        return Traced(E_UNEXPECTED, e.what());
    }
    catch (...)
    {
        return Traced(E_UNEXPECTED, "unknown exception");
    }
}

void TraceCurrentException() noexcept
{
    HResultFromCurrentException();
}

HRESULT ReportCurrentExceptionAs(HRESULT reported) noexcept
{
    TraceCurrentException();
    NoteTracedFailure(reported);
    return reported;
}
} // namespace velt
