#pragma once

#include "foundation/unique_file.h"
#include "tools/trace/trace_options.h"
#include "tools/trace/trace_store.h"

#include <windows.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace velt
{
/// What a recording is written to: a file, as text or CSV, that is whole up to a crash of either
/// program; with a limit, as many files as it takes, of which only the newest may be kept. An
/// existing file is replaced. Failures throw SystemException::Win32, whose detail is the path.
class RecordFile
{
public:
    RecordFile(std::string path, RecordFileLimits limits);

    /// Adds a record; it may wait until Flush.
    void Add(const TraceEntry& entry, std::string_view process);

    /// Writes what waits.
    void Flush();

private:
    void Open();

    const std::string m_path;
    const RecordFileLimits m_limits;
    const bool m_csv;
    int m_number = 1; // of the file that is open
    std::uint64_t m_written = 0;
    std::string m_waiting;
    UniqueFile m_file;
};
} // namespace velt
