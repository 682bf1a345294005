#pragma once

#include "tests/support/temp_folder.h"

#include <string>
#include <vector>

namespace velt::test
{
/// Full path of the sample update agent as it was built.
std::wstring SampleAgentProgram();

/// The sample update agent, registered for the machine until the end of the scope: a program of its
/// own in a folder of the test's own. Failures throw std::runtime_error.
class SampleAgentServer
{
public:
    /// `settings` are those of its file; see samples/update_agent/update_agent.ini.
    explicit SampleAgentServer(const std::string& settings);

    /// That of another build, by its program's full path.
    SampleAgentServer(const std::string& settings, const std::wstring& program);

    SampleAgentServer(const SampleAgentServer&) = delete;
    SampleAgentServer& operator=(const SampleAgentServer&) = delete;

    /// Waits for its end, and ends what does not.
    ~SampleAgentServer();

    /// Takes the place of its settings.
    void Configure(const std::string& settings) const;

    /// What it has logged, without the times, and without its starts and ends.
    std::vector<std::string> Calls() const;

    /// Waits until it has logged a call that begins like this.
    void WaitForCall(const std::string& call) const;

    /// Closes the window that it shows for an update in the foreground.
    void CloseWindow() const;

    /// Ends each process of it at once, in the middle of whatever it does. The system may believe
    /// that it still runs; see docs/wine.md.
    void Kill() const;

    /// Waits until none of its processes runs any more.
    void WaitForEnd() const;

private:
    std::vector<std::string> Lines() const;

    TempFolder m_folder{L"agent"};
    std::wstring m_program;
};
} // namespace velt::test
