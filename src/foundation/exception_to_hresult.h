#pragma once

#include <windows.h>

namespace velt
{
/// The HRESULT of the exception that is being handled; call it inside a catch block only. It writes
/// a level 1 trace first.
///
/// SystemException::HRESULT and _com_error keep their code, SystemException::Win32 becomes
/// HRESULT_FROM_WIN32, std::bad_alloc is E_OUTOFMEMORY and everything else E_UNEXPECTED. The answer
/// is never a success code.
HRESULT HResultFromCurrentException() noexcept;

/// Writes that trace, for those whom the exception does not concern further.
void TraceCurrentException() noexcept;

/// Writes that trace for a failure that is reported by a code of its own, and returns this code: no
/// other line is written for it.
HRESULT ReportCurrentExceptionAs(HRESULT reported) noexcept;
} // namespace velt
