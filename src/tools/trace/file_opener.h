#pragma once

#include "tools/trace/trace_session.h"

#include <windows.h>

#include <optional>
#include <string>

namespace velt
{
/// Asks in the system's dialog for a file to open; nothing when the user decides against it.
std::optional<std::wstring> AskForSavedFile(HWND owner);

/// Adds the records of a file that the viewer has saved to those of a session, and behind them one
/// that says what could not be read, if anything. Returns what there is to say about it. Throws
/// SystemException::Win32, whose detail is the path, and std::bad_alloc.
std::string OpenSavedFile(const std::wstring& path, TraceSession& session);
} // namespace velt
