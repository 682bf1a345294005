#pragma once

#include "foundation/unique_handle.h"
#include "tests/support/test_thread.h"

#include <windows.h>

#include <string>

namespace velt::test
{
/// A process that a test has started. It outlives its handles.
struct ChildProcess
{
    UniqueKernelObject process;
    UniqueKernelObject thread;
    DWORD id = 0;
};

/// Starts a program by its command line. `startup` needs no size; when it names handles, the child
/// inherits them. A start that the system refuses is tried twice again, and stderr says so: Wine
/// loses one of many thousand new processes while the machine has much else to do. Throws
/// std::runtime_error with the system's code when it goes on refusing.
ChildProcess StartProcess(std::wstring commandLine, DWORD flags = 0, STARTUPINFOW startup = {});

/// Starts a program as StartProcess does and waits until it has ended; returns its exit code.
/// Throws std::runtime_error when it cannot be started or does not end within the limit.
DWORD RunProcess(std::wstring commandLine, DWORD limitMs = 2 * kWaitLimitMs,
                 STARTUPINFOW startup = {});

/// How a program ended, and what it wrote to both of its streams, without carriage returns.
struct ProcessOutput
{
    DWORD exitCode;
    std::string text;
};

/// Runs a console program as RunProcess does.
ProcessOutput RunForOutput(std::wstring commandLine);
} // namespace velt::test
