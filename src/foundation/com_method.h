#pragma once

#include "foundation/exception_to_hresult.h"
#include "foundation/failure_trace.h"
#include "foundation/utrace.h"

#include <windows.h>

namespace velt
{
/// Runs the body of a COM method or of an exported function: inside a trace scope with the
/// qualified name (a literal), with every exception turned into its HRESULT, and every failure
/// traced.
template <class Body>
HRESULT ComMethod(const char* function, Body&& body) noexcept
{
    try
    {
        UTrace::Function trace(function);
        HRESULT result = S_OK;
        try
        {
            result = body();
            if (FAILED(result))
            {
                TraceReturnedFailure(result);
            }
        }
        catch (...)
        {
            result = HResultFromCurrentException(); // inside the scope, which indents its trace
        }
        return trace.Return(result);
    }
    catch (...)
    {
        return HResultFromCurrentException(); // the scope itself could not be made
    }
}
} // namespace velt
