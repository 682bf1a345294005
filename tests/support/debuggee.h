#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace velt::test
{
/// One call of OutputDebugString, as the debugger saw it.
struct DebugOutput
{
    DWORD thread;
    std::string text;
};

/// What a debugger saw of a process.
struct DebuggeeRun
{
    std::vector<DebugOutput> output;
    DWORD exitCode = 0;
};

/// Runs one test case of this program in a process of its own, to its end, with this thread as the
/// debugger. Such a test case is hidden ("[.child]"). Throws std::runtime_error when the process
/// cannot be started or does not end.
DebuggeeRun RunUnderDebugger(const std::string& testCase);

/// The same without a debugger; returns the exit code, which is 0 when the test case passed.
DWORD RunInChild(const std::string& testCase);
} // namespace velt::test
