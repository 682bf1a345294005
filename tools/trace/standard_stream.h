#pragma once

#include <windows.h>

#include <string_view>

namespace velt
{
/// Writes UTF-8 text to STD_OUTPUT_HANDLE or STD_ERROR_HANDLE: characters to a console, the bytes
/// as they are to a file or a pipe. Throws SystemException::Win32.
void WriteStandard(DWORD stream, std::string_view text);
} // namespace velt
