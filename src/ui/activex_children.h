#pragma once

#include "ui/dialog_template.h"

#include <windows.h>

#include <vector>

namespace velt
{
/// Makes the system's window class for hosts of ActiveX controls known, once a process. False when
/// the system has no such library.
bool InitActiveXHosts() noexcept;

/// Creates the hosts of the ActiveX controls of a dialog's template, and with them the controls;
/// the dialog destroys them. One that cannot be created is traced and left out. The calling thread
/// must be initialised for OLE.
void CreateActiveXChildren(HWND dialog, HINSTANCE module, const std::vector<ActiveXItem>& items);
} // namespace velt
