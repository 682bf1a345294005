#include "tests/support/sample_agent_server.h"

#include "foundation/unique_handle.h"
#include "tests/support/built_file.h"
#include "tests/support/child_process.h"
#include "tests/support/test_thread.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <stdexcept>

namespace velt::test
{
namespace
{
constexpr std::string_view kStarted = "started, process ";
constexpr std::string_view kEnded = "ended";

void WaitUntil(const std::function<bool()>& condition, const char* what)
{
    const ULONGLONG limit = ::GetTickCount64() + kWaitLimitMs;
    while (!condition())
    {
        if (::GetTickCount64() > limit)
        {
            throw std::runtime_error(what);
        }
        ::Sleep(5);
    }
}

/// The processes that the log tells of.
std::vector<UniqueKernelObject> Processes(const std::vector<std::string>& lines)
{
    std::vector<UniqueKernelObject> processes;
    for (const std::string& line : lines)
    {
        if (line.starts_with(kStarted))
        {
            const DWORD id = std::strtoul(line.c_str() + kStarted.size(), nullptr, 10);
            UniqueKernelObject process(::OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, id));
            if (process)
            {
                processes.push_back(std::move(process));
            }
        }
    }
    return processes;
}
} // namespace

std::wstring SampleAgentProgram()
{
    return BuiltFile(L"samples\\update_agent\\sample_agent.exe");
}

SampleAgentServer::SampleAgentServer(const std::string& settings)
    : SampleAgentServer(settings, SampleAgentProgram())
{
}

SampleAgentServer::SampleAgentServer(const std::string& settings, const std::wstring& program)
    : m_program(m_folder.File(L"sample_agent.exe"))
{
    Configure(settings);
    if (!::CopyFileW(program.c_str(), m_program.c_str(), TRUE) ||
        RunProcess(L'"' + m_program + L"\" /regserver") != 0)
    {
        throw std::runtime_error("the sample agent cannot be registered");
    }
}

SampleAgentServer::~SampleAgentServer()
{
    try
    {
        WaitForEnd();
        RunProcess(L'"' + m_program + L"\" /unregserver");
    }
    catch (const std::exception& failure)
    {
        std::fprintf(stderr, "%s; it has logged:\n", failure.what());
        for (const std::string& line : Lines())
        {
            std::fprintf(stderr, "    %s\n", line.c_str());
        }
        Kill(); // the registration goes with the prefix
    }
}

void SampleAgentServer::Configure(const std::string& settings) const
{
    const auto isWritten = [&] {
        try
        {
            m_folder.Write(L"update_agent.ini", settings);
            return true;
        }
        catch (const std::runtime_error&)
        {
            return false; // the agent is reading it
        }
    };
    WaitUntil(isWritten, "the sample agent cannot be configured");
}

std::vector<std::string> SampleAgentServer::Calls() const
{
    std::vector<std::string> calls = Lines();
    std::erase_if(calls, [](const std::string& line) {
        return line.starts_with(kStarted) || line == kEnded;
    });
    return calls;
}

void SampleAgentServer::WaitForCall(const std::string& call) const
{
    const auto hasCall = [&] {
        const std::vector<std::string> calls = Calls();
        return std::ranges::any_of(calls,
                                   [&](const std::string& line) { return line.starts_with(call); });
    };
    WaitUntil(hasCall, "the sample agent is not called");
}

void SampleAgentServer::CloseWindow() const
{
    const HWND window = ::FindWindowW(nullptr, L"Software Manager");
    if (!window || !::PostMessageW(window, WM_CLOSE, 0, 0))
    {
        throw std::runtime_error("the sample agent shows no window");
    }
}

void SampleAgentServer::Kill() const
{
    for (const UniqueKernelObject& process : Processes(Lines()))
    {
        ::TerminateProcess(process.Get(), 1);
        ::WaitForSingleObject(process.Get(), kWaitLimitMs);
    }
}

void SampleAgentServer::WaitForEnd() const
{
    const auto hasEnded = [&] {
        return std::ranges::all_of(Processes(Lines()), [](const UniqueKernelObject& process) {
            return ::WaitForSingleObject(process.Get(), 0) == WAIT_OBJECT_0;
        });
    };
    WaitUntil(hasEnded, "the sample agent does not end");
}

std::vector<std::string> SampleAgentServer::Lines() const
{
    constexpr std::size_t kTimeLength = 9; // "hh:mm:ss "
    std::vector<std::string> lines;
    std::ifstream file(m_folder.File(L"update_agent.log").c_str(), std::ios::binary);
    for (std::string line; std::getline(file, line);)
    {
        if (line.ends_with('\r') && line.size() > kTimeLength)
        {
            lines.push_back(line.substr(kTimeLength, line.size() - kTimeLength - 1));
        }
    }
    return lines;
}
} // namespace velt::test
