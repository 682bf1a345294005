#pragma once

#include "tools/trace/trace_session.h"
#include "tools/trace/trace_view.h"

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>

namespace velt
{
enum class SavedKind : std::uint8_t
{
    textOrCsv, // the shown records
    csv,       // a table
};

/// Asks in the system's dialog where to save; nothing when the user decides against it.
std::optional<std::wstring> AskForFile(HWND owner, SavedKind kind);

/// Saves the rows of a view, whose dropped rows have been left out, as CSV when the name ends in
/// ".csv", else as text. Until the file is complete, what was there stays. Throws
/// SystemException::Win32 and std::bad_alloc.
void SaveRows(const std::wstring& path, const TraceSession& session, const TraceView& view);
} // namespace velt
