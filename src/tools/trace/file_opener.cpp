#include "tools/trace/file_opener.h"

#include "foundation/system_exception.h"
#include "foundation/unique_file.h"
#include "foundation/wide_text.h"
#include "tools/trace/trace_export.h"
#include "tools/trace/trace_file_reader.h"

#include <commdlg.h>

#include <array>
#include <vector>

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

std::string OpenSavedFile(const std::wstring& path, TraceSession& session)
{
    // A recording may go on into it.
    const UniqueFile file(::CreateFileW(
        path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
        OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    if (!file)
    {
        ThrowFor(path);
    }
    std::int64_t lastUs = 0;
    TraceFileReader reader([&](const TraceEntry& entry, std::string_view process) {
        lastUs = entry.arrivalUs;
        session.Add(entry, process);
    });
    std::vector<char> part(kPart);
    DWORD size = 0;
    do
    {
        if (!::ReadFile(file.Get(), part.data(), kPart, &size, nullptr))
        {
            ThrowFor(path);
        }
        reader.Read({part.data(), size});
    } while (size > 0);
    reader.Finish();

    const std::string name = Utf8FromWide(path.substr(path.find_last_of(L"\\/:") + 1));
    const std::string note = reader.Note(name);
    if (!note.empty())
    {
        TraceEntry entry;
        entry.arrivalUs = lastUs;
        entry.level = 1;
        entry.source = kOwnSource;
        entry.text = note;
        session.Add(entry, "");
    }
    const std::string read = FormatCount(reader.Records()) + " records of " + name;
    return note.empty() ? read : read + "; " + note;
}
} // namespace velt
