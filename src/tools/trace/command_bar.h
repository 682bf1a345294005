#pragma once

#include <windows.h>

namespace velt
{
/// The viewer's tool bar, with words for buttons; they send the commands of the menu to the parent,
/// which owns it. Throws SystemException::Win32.
HWND MakeCommandBar(HWND parent);
} // namespace velt
