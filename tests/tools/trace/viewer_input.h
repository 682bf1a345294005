#pragma once

#include <windows.h>

#include <initializer_list>

namespace velt::test
{
/// Presses keys together, as a keyboard does, once the window is in front.
void Press(HWND window, std::initializer_list<WORD> keys);

/// The child of a window of another process that has the keyboard.
HWND FocusOf(HWND window) noexcept;

/// The visible dialog of a process; null when there is none.
HWND DialogOf(DWORD processId);
} // namespace velt::test
