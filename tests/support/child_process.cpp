#include "tests/support/child_process.h"

#include "foundation/wide_text.h"

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

DWORD RunProcess(std::wstring commandLine, DWORD limitMs)
{
    const ChildProcess child = StartProcess(std::move(commandLine));
    if (::WaitForSingleObject(child.process.Get(), limitMs) != WAIT_OBJECT_0)
    {
        ::TerminateProcess(child.process.Get(), 98);
        throw std::runtime_error("a process does not end");
    }
    DWORD exitCode = 0;
    ::GetExitCodeProcess(child.process.Get(), &exitCode);
    return exitCode;
}
} // namespace velt::test
