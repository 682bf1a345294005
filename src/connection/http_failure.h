#pragma once

#include <windows.h>

namespace velt
{
/// The error by which an exchange reports the exception that is being handled; call it inside a
/// catch block only. An exception of the internet layer whose code is `context` has `cause`, the
/// thread's last error, for an error: by design, most of them carry their object's context value.
/// Lack of memory is ERROR_NOT_ENOUGH_MEMORY; everything else is traced and becomes
/// ERROR_INTERNET_INTERNAL_ERROR.
DWORD HttpFailureOfCurrentException(DWORD context, DWORD cause) noexcept;
} // namespace velt
