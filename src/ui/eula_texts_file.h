#pragma once

#include "ui/eula_texts.h"

#include <windows.h>

#include <functional>
#include <string>

namespace velt
{
/// Reads a texts file through the system's XML document object, which is made on this thread.
///
/// Each child element of the root whose name is RECORD is one text: its first child node holds the
/// key, its last one the value, whatever their names are. A file that is missing or not
/// well-formed, a URL in place of its path, or a system without the document object, gives no
/// texts.
///
/// The document loads in its own time. Until it has, but for 5 s at the most, the thread's messages
/// are dispatched, those of `dialog` with its keyboard interface; there are no texts when one of
/// them makes `isOver()` true, ends the dialog's window or tells the thread to quit. After the 5 s
/// the texts that have arrived are taken. Throws std::bad_alloc, and _com_error for want of memory
/// too.
EulaTexts ReadEulaTexts(const std::wstring& path, HWND dialog, const std::function<bool()>& isOver);
} // namespace velt
