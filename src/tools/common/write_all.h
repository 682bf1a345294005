#pragma once

#include <windows.h>

#include <string_view>

namespace velt
{
/// Writes every byte. Throws SystemException::Win32; ERROR_WRITE_FAULT when the system takes none
/// and calls that no failure.
void WriteAll(HANDLE file, std::string_view bytes);
} // namespace velt
