#pragma once

#include "foundation/unique_handle.h"
#include "tests/support/test_thread.h"

#include <windows.h>

#include <memory>
#include <string>
#include <vector>

namespace velt::test
{
/// What a run of velt.exe ended with, and what it wrote. Line ends are as it wrote them.
struct ProgramResult
{
    DWORD exitCode;
    std::string output;
    std::string messages;
};

/// Full path of velt.exe as it is shipped.
std::wstring VeltProgram();

/// Arguments as a command line that programs divide into them again.
std::wstring CommandLineOf(const std::vector<std::wstring>& arguments);

/// A run of velt.exe, with both its streams piped into files. Failures of running throw
/// std::runtime_error.
class ProgramRun
{
public:
    /// `output` is where standard output goes instead; null for a file. `input` is what standard
    /// input comes from; null for nothing. Both are handles that are inherited.
    explicit ProgramRun(const std::vector<std::wstring>& arguments,
                        const std::wstring& program = VeltProgram(), HANDLE output = nullptr,
                        DWORD flags = 0, HANDLE input = nullptr);

    ProgramRun(const ProgramRun&) = delete;
    ProgramRun& operator=(const ProgramRun&) = delete;

    /// Ends a program that has not ended.
    ~ProgramRun();

    DWORD ProcessId() const noexcept
    {
        return m_processId;
    }

    /// What it has written by now.
    std::string Output() const;
    std::string Messages() const;

    /// Waits for its end, at most `limitMs` milliseconds.
    ProgramResult Wait(DWORD limitMs = 2 * kWaitLimitMs);

private:
    class Stream;

    std::unique_ptr<Stream> m_output;
    std::unique_ptr<Stream> m_messages;
    UniqueKernelObject m_process;
    DWORD m_processId = 0;
};

/// Runs velt.exe to its end.
ProgramResult RunVelt(const std::vector<std::wstring>& arguments,
                      const std::wstring& program = VeltProgram());
} // namespace velt::test
