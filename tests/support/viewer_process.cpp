#include "tests/support/viewer_process.h"

#include "foundation/trace_record.h"
#include "tests/support/child_process.h"

#include <windows.h>

#include <commctrl.h>
#include <shlobj.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

namespace velt::test
{
namespace
{
/// Memory of another process, for messages whose structures the system does not carry over.
class RemoteMemory
{
public:
    RemoteMemory(HANDLE process, std::size_t size)
        : m_process(process),
          m_bytes(static_cast<std::byte*>(
              ::VirtualAllocEx(process, nullptr, size, MEM_COMMIT, PAGE_READWRITE)))
    {
        if (!m_bytes)
        {
            throw std::runtime_error("no memory in the viewer");
        }
    }

    RemoteMemory(const RemoteMemory&) = delete;
    RemoteMemory& operator=(const RemoteMemory&) = delete;

    ~RemoteMemory()
    {
        ::VirtualFreeEx(m_process, m_bytes, 0, MEM_RELEASE);
    }

    std::byte* Get() const noexcept
    {
        return m_bytes;
    }

private:
    HANDLE m_process;
    std::byte* m_bytes;
};

/// The end that a child writes to is inherited, the other one is not.
std::pair<UniqueKernelObject, UniqueKernelObject> MakePipe()
{
    SECURITY_ATTRIBUTES inherit{sizeof(inherit), nullptr, TRUE};
    UniqueKernelObject ours;
    UniqueKernelObject theirs;
    if (!::CreatePipe(ours.Put(), theirs.Put(), &inherit, 1 << 20) ||
        !::SetHandleInformation(ours.Get(), HANDLE_FLAG_INHERIT, 0))
    {
        throw std::runtime_error("no pipe");
    }
    return {std::move(ours), std::move(theirs)};
}

std::string ReadToEnd(HANDLE pipe)
{
    std::string text;
    std::array<char, 4096> part{};
    DWORD size = 0;
    while (::ReadFile(pipe, part.data(), static_cast<DWORD>(part.size()), &size, nullptr) &&
           size > 0)
    {
        text.append(part.data(), size);
    }
    return text;
}

bool BelongsTo(HWND window, DWORD processId) noexcept
{
    DWORD owner = 0;
    return window && ::GetWindowThreadProcessId(window, &owner) && owner == processId;
}
} // namespace

ViewerProcess::ViewerProcess(const std::wstring& arguments, const std::wstring& program,
                             Memory memory)
{
    if (memory == Memory::none)
    {
        ::RegDeleteKeyW(HKEY_CURRENT_USER, kSettings);
    }
    // Where the desktop has a process of its own, the first program with a window starts it, and it
    // inherits: it must not be the viewer, whose output would then never end.
    ::GetDesktopWindow();
    auto [output, outputEnd] = MakePipe();
    auto [errors, errorsEnd] = MakePipe();
    STARTUPINFOW startup{};
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = outputEnd.Get();
    startup.hStdError = errorsEnd.Get();
    ChildProcess child =
        StartProcess(L"\"" + program + L"\" " + arguments, CREATE_NEW_PROCESS_GROUP, startup);
    m_process = std::move(child.process);
    m_id = child.id;
    m_output = std::move(output);
    m_errors = std::move(errors);
}

ViewerProcess::~ViewerProcess()
{
    if (::WaitForSingleObject(m_process.Get(), 0) != WAIT_OBJECT_0)
    {
        ::PostMessageW(m_receiver, WM_CLOSE, 0, 0);
        if (!m_receiver || ::WaitForSingleObject(m_process.Get(), kWaitLimitMs) != WAIT_OBJECT_0)
        {
            ::TerminateProcess(m_process.Get(), 97);
            ::WaitForSingleObject(m_process.Get(), kWaitLimitMs);
        }
    }
}

void ViewerProcess::AwaitReceiver()
{
    if (!Eventually([&] {
            m_receiver = ::FindWindowW(kTraceViewerClass, nullptr);
            return BelongsTo(m_receiver, m_id);
        }))
    {
        throw std::runtime_error("the viewer cannot be found");
    }
}

void ViewerProcess::AwaitWindow()
{
    AwaitReceiver();
    AwaitFileWindow();
}

void ViewerProcess::AwaitFileWindow()
{
    if (!Eventually([&] {
            do
            {
                m_window = ::FindWindowExW(nullptr, m_window, L"VeltTraceViewer", nullptr);
            } while (m_window && !BelongsTo(m_window, m_id));
            return m_window && ::IsWindowVisible(m_window);
        }))
    {
        throw std::runtime_error("the viewer shows no window");
    }
}

bool ViewerProcess::AwaitRows(int rows) const
{
    return Eventually([&] { return Rows() == rows; });
}

int ViewerProcess::Rows() const noexcept
{
    return static_cast<int>(::SendMessageW(Child(kList), LVM_GETITEMCOUNT, 0, 0));
}

std::wstring ViewerProcess::Cell(int row, int column) const
{
    return CellOf(Child(kList), row, column);
}

std::wstring ViewerProcess::CellOf(HWND list, int row, int column) const
{
    return RemoteText(list, LVM_GETITEMTEXTW, row, column);
}

std::vector<std::wstring> ViewerProcess::Texts() const
{
    std::vector<std::wstring> texts;
    const int rows = Rows();
    for (int row = 0; row < rows; ++row)
    {
        texts.push_back(Cell(row, 4));
    }
    return texts;
}

std::wstring ViewerProcess::Status(int part) const
{
    return RemoteText(Child(kStatus), SB_GETTEXTW, part, 0);
}

bool ViewerProcess::AwaitStatus(int part, const std::wstring& text) const
{
    return Eventually([&] { return Status(part) == text; });
}

void ViewerProcess::Type(int field, const std::wstring& text) const
{
    ::SendMessageW(Child(field), WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text.c_str()));
}

std::wstring ViewerProcess::TextOf(int child) const
{
    std::vector<wchar_t> text(10'000);
    const LRESULT length = ::SendMessageW(Child(child), WM_GETTEXT, text.size(),
                                          reinterpret_cast<LPARAM>(text.data()));
    return {text.data(), static_cast<std::size_t>(length)};
}

void ViewerProcess::Command(int id) const
{
    ::SendMessageW(m_window, WM_COMMAND, static_cast<WPARAM>(id), 0);
}

void ViewerProcess::Drop(const std::wstring& path) const
{
    // In its own memory, where the message means it; it is given up there when it has been read.
    struct Dropped
    {
        DROPFILES header{sizeof(DROPFILES), {}, FALSE, TRUE};
        std::array<wchar_t, MAX_PATH + 2> names{}; // ends with two zeros
    };
    Dropped dropped;
    std::copy(path.begin(), path.end(), dropped.names.begin());
    void* const memory =
        ::VirtualAllocEx(m_process.Get(), nullptr, sizeof(dropped), MEM_COMMIT, PAGE_READWRITE);
    if (!memory || path.size() > MAX_PATH ||
        !::WriteProcessMemory(m_process.Get(), memory, &dropped, sizeof(dropped), nullptr))
    {
        throw std::runtime_error("nothing can be dropped");
    }
    ::PostMessageW(m_window, WM_DROPFILES, reinterpret_cast<WPARAM>(memory), 0);
}

DWORD ViewerProcess::Close()
{
    ::PostMessageW(m_window ? m_window : m_receiver, WM_CLOSE, 0, 0);
    return AwaitExit();
}

DWORD ViewerProcess::AwaitExit()
{
    if (::WaitForSingleObject(m_process.Get(), kWaitLimitMs) != WAIT_OBJECT_0)
    {
        throw std::runtime_error("the viewer does not end");
    }
    DWORD code = 0;
    ::GetExitCodeProcess(m_process.Get(), &code);
    return code;
}

std::string ViewerProcess::Output()
{
    return ReadToEnd(m_output.Get());
}

std::string ViewerProcess::Errors()
{
    return ReadToEnd(m_errors.Get());
}

std::string ViewerProcess::OutputWaiting() const
{
    DWORD size = 0;
    ::PeekNamedPipe(m_output.Get(), nullptr, 0, nullptr, &size, nullptr);
    std::string text(size, '\0');
    ::PeekNamedPipe(m_output.Get(), text.data(), size, &size, nullptr, nullptr);
    text.resize(size);
    return text;
}

std::wstring ViewerProcess::RemoteText(HWND window, UINT message, int item, int part) const
{
    constexpr std::size_t kCharacters = 2048;
    const RemoteMemory memory(m_process.Get(), sizeof(LVITEMW) + kCharacters * sizeof(wchar_t));
    std::byte* const textAt = memory.Get() + sizeof(LVITEMW);
    LRESULT length = 0;
    if (message == SB_GETTEXTW)
    {
        length = LOWORD(::SendMessageW(window, message, static_cast<WPARAM>(item),
                                       reinterpret_cast<LPARAM>(textAt)));
    }
    else
    {
        LVITEMW question{};
        question.iSubItem = part;
        question.pszText = reinterpret_cast<wchar_t*>(textAt);
        question.cchTextMax = static_cast<int>(kCharacters);
        ::WriteProcessMemory(m_process.Get(), memory.Get(), &question, sizeof(question), nullptr);
        length = ::SendMessageW(window, message, static_cast<WPARAM>(item),
                                reinterpret_cast<LPARAM>(memory.Get()));
    }
    std::wstring text(static_cast<std::size_t>(length), L'\0');
    ::ReadProcessMemory(m_process.Get(), textAt, text.data(), text.size() * sizeof(wchar_t),
                        nullptr);
    return text;
}

bool SendRecord(HWND receiver, std::string_view text, std::int32_t level, std::string_view source,
                HWND sender)
{
    TraceRecord record = EncodeTraceRecord(level, 0, source, text);
    COPYDATASTRUCT data{kTraceMagic, static_cast<DWORD>(record.size), record.bytes.data()};
    return ::SendMessageW(receiver, WM_COPYDATA, reinterpret_cast<WPARAM>(sender),
                          reinterpret_cast<LPARAM>(&data)) != 0;
}

bool SendBytes(HWND receiver, std::string_view bytes, ULONG_PTR kind)
{
    std::string copy(bytes);
    COPYDATASTRUCT data{kind, static_cast<DWORD>(copy.size()), copy.data()};
    return ::SendMessageW(receiver, WM_COPYDATA, 0, reinterpret_cast<LPARAM>(&data)) != 0;
}
} // namespace velt::test
