#include "tools/trace/file_opener.h"

#include "foundation/system_exception.h"
#include "foundation/wide_text.h"
#include "tools/trace/trace_export.h"

#include <commdlg.h>

#include <array>
#include <utility>

namespace velt
{
namespace
{
constexpr DWORD kPart = DWORD{1} << 18; // bytes that are read at once
constexpr std::string_view kOwnSource = "velt-trace";

[[noreturn]] void ThrowFor(const std::wstring& path)
{
    SystemException::Win32 failure(::GetLastError());
    failure.SetDetail(Utf8FromWide(path));
    failure.Raise();
}
} // namespace

std::optional<std::wstring> AskForSavedFile(HWND owner)
{
    std::array<wchar_t, 4096> path{};
    OPENFILENAMEW question{};
    question.lStructSize = sizeof(question);
    question.hwndOwner = owner;
    question.lpstrFilter = L"Saved records (*.txt; *.csv)\0*.txt;*.csv\0All files\0*.*\0";
    question.nFilterIndex = 1;
    question.lpstrFile = path.data();
    question.nMaxFile = static_cast<DWORD>(path.size());
    question.lpstrTitle = L"Open saved records";
    question.Flags = OFN_EXPLORER | OFN_HIDEREADONLY | OFN_NOCHANGEDIR | OFN_FILEMUSTEXIST;
    return ::GetOpenFileNameW(&question) ? std::optional<std::wstring>(path.data()) : std::nullopt;
}

SavedFileOpening::SavedFileOpening(std::wstring path, TraceSession& session)
    : m_path(std::move(path)),
      m_session(session),
      // A recording may go on into it.
      m_file(::CreateFileW(m_path.c_str(), GENERIC_READ,
                           FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                           OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr)),
      m_name(Utf8FromWide(m_path.substr(m_path.find_last_of(L"\\/:") + 1))),
      m_part(kPart),
      m_reader([this](const TraceEntry& entry, std::string_view process) {
          m_lastUs = entry.arrivalUs;
          m_session.Add(entry, process);
      })
{
    if (!m_file)
    {
        ThrowFor(m_path);
    }
}

bool SavedFileOpening::ReadPart()
{
    DWORD size = 0;
    if (!::ReadFile(m_file.Get(), m_part.data(), kPart, &size, nullptr))
    {
        ThrowFor(m_path);
    }
    if (size == 0)
    {
        Finish();
        return true;
    }
    m_reader.Read({m_part.data(), size});
    return false;
}

void SavedFileOpening::Finish()
{
    m_reader.Finish();
    const std::string note = m_reader.Note(m_name);
    if (!note.empty())
    {
        TraceEntry entry;
        entry.arrivalUs = m_lastUs;
        entry.level = 1;
        entry.source = kOwnSource;
        entry.text = note;
        m_session.Add(entry, "");
    }
    const std::string read = FormatCount(m_reader.Records()) + " records of " + m_name;
    m_outcome = note.empty() ? read : read + "; " + note;
}
} // namespace velt
