#include "tests/support/child_process.h"

#include "foundation/unique_file.h"
#include "foundation/wide_text.h"
#include "tests/support/temp_folder.h"

#include <cstdio>
#include <stdexcept>
#include <utility>

namespace velt::test
{
ChildProcess StartProcess(std::wstring commandLine, DWORD flags, STARTUPINFOW startup)
{
    constexpr int kAttempts = 3;
    constexpr DWORD kPauseMs = 500;
    startup.cb = sizeof(startup);
    const BOOL inherits = (startup.dwFlags & STARTF_USESTDHANDLES) != 0;
    for (int attempt = 1;; ++attempt)
    {
        PROCESS_INFORMATION process{};
        std::wstring line = commandLine; // which the system may write to
        if (::CreateProcessW(nullptr, line.data(), nullptr, nullptr, inherits, flags, nullptr,
                             nullptr, &startup, &process))
        {
            return {UniqueKernelObject(process.hProcess), UniqueKernelObject(process.hThread),
                    process.dwProcessId};
        }
        const std::string failure = Utf8FromWide(commandLine) + " cannot be started: error " +
                                    std::to_string(::GetLastError());
        if (attempt == kAttempts)
        {
            throw std::runtime_error(failure);
        }
        std::fprintf(stderr, "warning: %s\n", failure.c_str());
        ::Sleep(kPauseMs);
    }
}

DWORD RunProcess(std::wstring commandLine, DWORD limitMs, STARTUPINFOW startup)
{
    const ChildProcess child = StartProcess(std::move(commandLine), 0, startup);
    if (::WaitForSingleObject(child.process.Get(), limitMs) != WAIT_OBJECT_0)
    {
        ::TerminateProcess(child.process.Get(), 98);
        throw std::runtime_error("a process does not end");
    }
    DWORD exitCode = 0;
    ::GetExitCodeProcess(child.process.Get(), &exitCode);
    return exitCode;
}

ProcessOutput RunForOutput(std::wstring commandLine)
{
    const TempFolder folder(L"output");
    // A file, because services of the system that the program starts would keep the end of a pipe
    // open. Each write goes to its end, from whichever of the streams.
    SECURITY_ATTRIBUTES inherited{sizeof(inherited), nullptr, TRUE};
    const UniqueFile file(::CreateFileW(folder.File(L"output.txt").c_str(), FILE_APPEND_DATA,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited, CREATE_NEW,
                                        FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file)
    {
        throw std::runtime_error("no file for a program's output");
    }
    STARTUPINFOW startup{};
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = file.Get();
    startup.hStdError = file.Get();
    const DWORD exitCode = RunProcess(std::move(commandLine), 2 * kWaitLimitMs, startup);
    std::string text = folder.Read(L"output.txt");
    std::erase(text, '\r');
    return {exitCode, std::move(text)};
}
} // namespace velt::test
