#pragma once

#include "foundation/unique_handle.h"
#include "tests/support/test_thread.h"

#include <windows.h>

#include <stdexcept>
#include <string>

namespace velt::test
{
/// Runs a program with its command line and waits until it has ended; returns its exit code.
/// Throws std::runtime_error when it cannot be started or does not end within the limit.
inline DWORD RunProcess(std::wstring commandLine, DWORD limitMs = 2 * kWaitLimitMs)
{
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process{};
    if (!::CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                          &startup, &process))
    {
        throw std::runtime_error("a process cannot be started");
    }
    const UniqueKernelObject handle(process.hProcess);
    const UniqueKernelObject thread(process.hThread);
    if (::WaitForSingleObject(handle.Get(), limitMs) != WAIT_OBJECT_0)
    {
        ::TerminateProcess(handle.Get(), 98);
        throw std::runtime_error("a process does not end");
    }
    DWORD exitCode = 0;
    ::GetExitCodeProcess(handle.Get(), &exitCode);
    return exitCode;
}
} // namespace velt::test
