#pragma once

#include <windows.h>

#include <string>

namespace velt
{
/// The system's description of an HRESULT: from the message modules of its facility, else from the
/// system's own table. Empty when there is none; without line ends at its end.
/// Throws std::bad_alloc only.
std::wstring HResultText(HRESULT hr);

/// The system's description of a Win32 error number; otherwise as HResultText.
std::wstring Win32ErrorText(DWORD error);
} // namespace velt
