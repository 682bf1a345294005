#include "tests/support/debuggee.h"

#include "foundation/unique_handle.h"
#include "tests/support/catch_options.h"

#include <array>
#include <stdexcept>

namespace velt::test
{
namespace
{
constexpr DWORD kLimitMs = 600'000; // some children have much to do

/// Ends a process that is still running at the end of the scope.
class Child
{
public:
    Child(const std::string& testCase, DWORD flags)
    {
        std::array<char, MAX_PATH> program{};
        ::GetModuleFileNameA(nullptr, program.data(), static_cast<DWORD>(program.size()));
        std::string command = '"' + std::string(program.data()) +
                              "\" --reporter compact" VELT_FAIL_WITHOUT_TESTS " \"" + testCase +
                              '"';
        STARTUPINFOA startup{};
        startup.cb = sizeof(startup);
        PROCESS_INFORMATION information{};
        if (!::CreateProcessA(program.data(), command.data(), nullptr, nullptr, TRUE, flags,
                              nullptr, nullptr, &startup, &information))
        {
            throw std::runtime_error("the child process cannot be started");
        }
        m_process.Reset(information.hProcess);
        m_thread.Reset(information.hThread);
    }

    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    ~Child()
    {
        ::TerminateProcess(m_process.Get(), 98); // fails when it has ended, as it should have
    }

    HANDLE Process() const noexcept
    {
        return m_process.Get();
    }

private:
    UniqueKernelObject m_process;
    UniqueKernelObject m_thread;
};

std::string ReadText(HANDLE process, const OUTPUT_DEBUG_STRING_INFO& info)
{
    std::string text(info.nDebugStringLength, '\0');
    SIZE_T read = 0;
    ::ReadProcessMemory(process, info.lpDebugStringData, text.data(), text.size(), &read);
    text.resize(read);
    return text.substr(0, text.find('\0')); // the length counts the NUL
}
} // namespace

DebuggeeRun RunUnderDebugger(const std::string& testCase)
{
    const Child child(testCase, DEBUG_ONLY_THIS_PROCESS);
    DebuggeeRun run;
    for (;;)
    {
        DEBUG_EVENT event{};
        if (!::WaitForDebugEvent(&event, kLimitMs))
        {
            throw std::runtime_error("the debugged process does not end");
        }
        DWORD answer = DBG_CONTINUE;
        switch (event.dwDebugEventCode)
        {
        case OUTPUT_DEBUG_STRING_EVENT:
            run.output.push_back(
                {event.dwThreadId, ReadText(child.Process(), event.u.DebugString)});
            break;
        case EXCEPTION_DEBUG_EVENT:
            if (event.u.Exception.ExceptionRecord.ExceptionCode != EXCEPTION_BREAKPOINT)
            {
                answer = static_cast<DWORD>(DBG_EXCEPTION_NOT_HANDLED);
            }
            break;
        case CREATE_PROCESS_DEBUG_EVENT:
            ::CloseHandle(event.u.CreateProcessInfo.hFile);
            break;
        case LOAD_DLL_DEBUG_EVENT:
            ::CloseHandle(event.u.LoadDll.hFile);
            break;
        default:
            break;
        }
        const bool ended = event.dwDebugEventCode == EXIT_PROCESS_DEBUG_EVENT;
        if (ended)
        {
            run.exitCode = event.u.ExitProcess.dwExitCode;
        }
        ::ContinueDebugEvent(event.dwProcessId, event.dwThreadId, answer);
        if (ended)
        {
            return run;
        }
    }
}

DWORD RunInChild(const std::string& testCase)
{
    const Child child(testCase, 0);
    DWORD exitCode = STILL_ACTIVE;
    if (::WaitForSingleObject(child.Process(), kLimitMs) != WAIT_OBJECT_0 ||
        !::GetExitCodeProcess(child.Process(), &exitCode))
    {
        throw std::runtime_error("the child process does not end");
    }
    return exitCode;
}
} // namespace velt::test
