#pragma once

#include "foundation/unique_file.h"
#include "tools/trace/trace_file_reader.h"
#include "tools/trace/trace_session.h"

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace velt
{
/// Asks in the system's dialog for a file to open; nothing when the user decides against it.
std::optional<std::wstring> AskForSavedFile(HWND owner);

/// Adds the records of a file that the viewer has saved to those of a session, part by part, and
/// behind them one that says what could not be read, if anything. Failures throw
/// SystemException::Win32, whose detail is the path, and std::bad_alloc.
class SavedFileOpening
{
public:
    /// The session must outlive it.
    SavedFileOpening(std::wstring path, TraceSession& session);

    SavedFileOpening(const SavedFileOpening&) = delete;
    SavedFileOpening& operator=(const SavedFileOpening&) = delete;

    ~SavedFileOpening() = default;

    /// Reads a part; returns whether that was the end.
    bool ReadPart();

    /// The file's name without its folder.
    const std::string& Name() const noexcept
    {
        return m_name;
    }

    /// What there is to say about it at the end.
    const std::string& Outcome() const noexcept
    {
        return m_outcome;
    }

private:
    void Finish();

    std::wstring m_path;
    TraceSession& m_session;
    UniqueFile m_file;
    std::string m_name;
    std::vector<char> m_part;
    std::int64_t m_lastUs = 0;
    TraceFileReader m_reader;
    std::string m_outcome;
};
} // namespace velt
