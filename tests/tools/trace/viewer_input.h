#pragma once

#include "tests/support/viewer_process.h"

#include <windows.h>

#include <initializer_list>
#include <string>

namespace velt::test
{
/// Presses keys together, as a keyboard does, once the window is in front.
void Press(HWND window, std::initializer_list<WORD> keys);

/// Opens the menu View of a viewer by its letter, once more where it is open; the first item is
/// chosen then. Returns what drops down, or null when nothing does.
HWND OpenViewMenu(HWND window);

/// Closes the menu of a viewer that is open, if one is, and waits until it is gone.
void CloseMenu(HWND window);

/// Clicks at a place of the screen where this window is, once the pointer is there. Throws
/// std::runtime_error where the system takes no mouse.
void ClickAt(HWND window, const POINT& place);

/// The child of a window of another process that has the keyboard.
HWND FocusOf(HWND window) noexcept;

/// A visible dialog of a process, but not this one; null when there is none.
HWND DialogOf(DWORD processId, HWND other = nullptr);

/// Carries a command of the viewer out that opens a dialog; returns the dialog, or null when it
/// does not come.
HWND OpenDialog(const ViewerProcess& viewer, int command);

/// Names a file in the system's dialog for files, once it is there, and confirms; returns the
/// dialog, or null when it does not come. `other` is another dialog of the process.
HWND NameFile(DWORD processId, const std::wstring& path, HWND other = nullptr);

/// The message box of a process, and what it says; null when there is none. `others` are dialogs of
/// the process that are none.
HWND BoxOf(DWORD processId, std::wstring& text);
} // namespace velt::test
