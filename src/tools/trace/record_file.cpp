#include "tools/trace/record_file.h"

#include "foundation/system_exception.h"
#include "foundation/wide_text.h"
#include "tools/common/write_all.h"
#include "tools/trace/numbered_name.h"
#include "tools/trace/trace_export.h"

#include <utility>

namespace velt
{
RecordFile::RecordFile(std::string path, RecordFileLimits limits)
    : m_path(std::move(path)),
      m_limits(limits),
      m_csv(EndsInCsv(m_path))
{
    Open();
    Flush();
}

void RecordFile::Add(const TraceEntry& entry, std::string_view process)
{
    const std::size_t before = m_waiting.size();
    (m_csv ? AppendCsvLine : AppendTextLine)(m_waiting, entry, process);
    if (m_limits.bytes == 0 || m_written + m_waiting.size() <= m_limits.bytes)
    {
        return;
    }
    // A record lies in one file: this one begins the next.
    const std::string record = m_waiting.substr(before);
    m_waiting.resize(before);
    Flush();
    ++m_number;
    Open();
    m_waiting += record;
    if (m_limits.files != 0 && m_number > m_limits.files)
    {
        // One that somebody reads stays; the recording goes on.
        ::DeleteFileW(WideFromUtf8(NumberedName(m_path, m_number - m_limits.files)).c_str());
    }
}

void RecordFile::Flush()
{
    WriteAll(m_file.Get(), m_waiting);
    m_written += m_waiting.size();
    m_waiting.clear();
}

void RecordFile::Open()
{
    const std::string path = NumberedName(m_path, m_number);
    m_file.Reset(::CreateFileW(WideFromUtf8(path).c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                               CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!m_file)
    {
        SystemException::Win32 failure(::GetLastError());
        failure.SetDetail(path);
        failure.Raise();
    }
    m_written = 0;
    m_waiting = m_csv ? kCsvHeading : "";
}
} // namespace velt
