#include "tests/tools/velt/velt_program.h"

#include "foundation/unique_file.h"
#include "tests/support/child_process.h"
#include "tests/support/component_library.h"

#include <array>
#include <stdexcept>
#include <utility>

namespace velt::test
{
/// A file that goes with its handle, which a child writes through a duplicate of.
class ProgramRun::Stream
{
public:
    Stream()
    {
        std::array<wchar_t, MAX_PATH> folder{};
        std::array<wchar_t, MAX_PATH> name{};
        ::GetTempPathW(MAX_PATH, folder.data());
        ::GetTempFileNameW(folder.data(), L"vlt", 0, name.data());
        SECURITY_ATTRIBUTES inherited{sizeof(inherited), nullptr, TRUE};
        m_file.Reset(::CreateFileW(name.data(), GENERIC_READ | GENERIC_WRITE | DELETE,
                                   FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                   &inherited, CREATE_ALWAYS, FILE_FLAG_DELETE_ON_CLOSE, nullptr));
        // A handle of its own to read by: one handle has one position.
        m_reader.Reset(::CreateFileW(name.data(), GENERIC_READ,
                                     FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                     nullptr, OPEN_EXISTING, 0, nullptr));
        if (!m_file || !m_reader)
        {
            throw std::runtime_error("no file for a program's output");
        }
    }

    HANDLE Get() const noexcept
    {
        return m_file.Get();
    }

    std::string Text() const
    {
        LARGE_INTEGER size{};
        ::GetFileSizeEx(m_reader.Get(), &size);
        std::string text(static_cast<std::size_t>(size.QuadPart), '\0');
        ::SetFilePointer(m_reader.Get(), 0, nullptr, FILE_BEGIN);
        DWORD read = 0;
        ::ReadFile(m_reader.Get(), text.data(), static_cast<DWORD>(text.size()), &read, nullptr);
        text.resize(read);
        return text;
    }

private:
    UniqueFile m_file;
    UniqueFile m_reader;
};

std::wstring VeltProgram()
{
    return ShippedFile(L"velt.exe");
}

std::wstring CommandLineOf(const std::vector<std::wstring>& arguments)
{
    std::wstring line;
    for (const std::wstring& argument : arguments)
    {
        line.append(line.empty() ? L"\"" : L" \"");
        std::size_t backslashes = 0;
        for (const wchar_t c : argument)
        {
            // Backslashes count double before a quote only.
            line.append(c == L'"' ? backslashes + 1 : 0, L'\\');
            backslashes = c == L'\\' ? backslashes + 1 : 0;
            line.push_back(c);
        }
        line.append(backslashes, L'\\').push_back(L'"');
    }
    return line;
}

ProgramRun::ProgramRun(const std::vector<std::wstring>& arguments, const std::wstring& program,
                       HANDLE output, DWORD flags, HANDLE input)
    : m_output(std::make_unique<Stream>()),
      m_messages(std::make_unique<Stream>())
{
    std::vector<std::wstring> all{program};
    all.insert(all.end(), arguments.begin(), arguments.end());
    STARTUPINFOW startup{};
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = input;
    startup.hStdOutput = output ? output : m_output->Get();
    startup.hStdError = m_messages->Get();
    ChildProcess child = StartProcess(CommandLineOf(all), flags, startup);
    m_process = std::move(child.process);
    m_processId = child.id;
}

ProgramRun::~ProgramRun()
{
    if (::WaitForSingleObject(m_process.Get(), 0) != WAIT_OBJECT_0)
    {
        ::TerminateProcess(m_process.Get(), 98);
        ::WaitForSingleObject(m_process.Get(), INFINITE);
    }
}

std::string ProgramRun::Output() const
{
    return m_output->Text();
}

std::string ProgramRun::Messages() const
{
    return m_messages->Text();
}

ProgramResult ProgramRun::Wait(DWORD limitMs)
{
    if (::WaitForSingleObject(m_process.Get(), limitMs) != WAIT_OBJECT_0)
    {
        throw std::runtime_error("velt.exe does not end: " + Output() + Messages());
    }
    DWORD exitCode = 0;
    ::GetExitCodeProcess(m_process.Get(), &exitCode);
    return {exitCode, Output(), Messages()};
}

ProgramResult RunVelt(const std::vector<std::wstring>& arguments, const std::wstring& program)
{
    return ProgramRun(arguments, program).Wait();
}
} // namespace velt::test
