#pragma once

#include <windows.h>

#include <string_view>

namespace velt
{
/// Puts a text on the clipboard in place of what is there. Waits up to a second for a program that
/// has it open. Throws SystemException::Win32.
void CopyToClipboard(HWND owner, std::wstring_view text);
} // namespace velt
