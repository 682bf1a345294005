#include "tools/trace/row_saver.h"

#include "foundation/wide_text.h"
#include "tools/common/output_file.h"
#include "tools/trace/trace_export.h"

#include <commdlg.h>

#include <array>

namespace velt
{
std::optional<std::wstring> AskForFile(HWND owner, SavedKind kind)
{
    const bool csv = kind == SavedKind::csv;
    std::array<wchar_t, 4096> path{};
    OPENFILENAMEW question{};
    question.lStructSize = sizeof(question);
    question.hwndOwner = owner;
    question.lpstrFilter = csv ? L"Comma-separated values (*.csv)\0*.csv\0"
                               : L"Text (*.txt)\0*.txt\0Comma-separated values (*.csv)\0*.csv\0";
    question.nFilterIndex = 1;
    question.lpstrFile = path.data();
    question.nMaxFile = static_cast<DWORD>(path.size());
    question.lpstrDefExt = csv ? L"csv" : L"txt";
    question.lpstrTitle = csv ? L"Save the table" : L"Save the shown records";
    question.Flags =
        OFN_EXPLORER | OFN_HIDEREADONLY | OFN_NOCHANGEDIR | OFN_OVERWRITEPROMPT | OFN_PATHMUSTEXIST;
    return ::GetSaveFileNameW(&question) ? std::optional<std::wstring>(path.data()) : std::nullopt;
}

void SaveRows(const std::wstring& path, const TraceSession& session, const TraceView& view)
{
    constexpr std::size_t kBufferBytes = std::size_t{256} << 10;
    OutputFile file(path);
    const bool csv = EndsInCsv(Utf8FromWide(path));
    std::string lines(csv ? kCsvHeading : "");
    for (std::size_t row = 0; row < view.Size(); ++row)
    {
        const TraceEntry entry = session.Store().At(view.SequenceAt(row));
        (csv ? AppendCsvLine : AppendTextLine)(lines, entry, session.Process(entry));
        if (lines.size() >= kBufferBytes)
        {
            file.Write(lines);
            lines.clear();
        }
    }
    file.Write(lines);
    file.Commit();
}
} // namespace velt
