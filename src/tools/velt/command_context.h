#pragma once

#include "tools/common/console.h"
#include "tools/velt/command_line.h"
#include "tools/velt/report.h"

#include <windows.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velt::tool
{
/// What the program ends with. A script's Quit may end it with any other number.
enum class ExitCode : int
{
    done = 0,
    no = 1, // the answer is no, or nothing
    usage = 2,
    failed = 3,
};

constexpr ExitCode ExitCodeFor(bool yes) noexcept
{
    return yes ? ExitCode::done : ExitCode::no;
}

/// A command that is used wrongly in a way that the parser cannot see.
struct WrongUsage
{
    std::wstring message;
};

/// A failure, and what it was that failed.
struct CommandFailure
{
    HRESULT code;
    std::wstring what;
};

/// A failure of the last system call.
CommandFailure LastFailure(std::wstring what);

/// Throws CommandFailure when a call failed.
void Require(HRESULT hr, const wchar_t* what);

/// What failed, the system's text and the code.
std::wstring FailureMessage(const CommandFailure& failure);

/// Adds a failure to results: `failed`, what it was that failed, `code` and `text`.
void AddFailure(Report& results, const CommandFailure& failure);

/// The URL itself. Throws WrongUsage for one that is not of HTTP or HTTPS, or names no server.
const std::wstring& RequireHttpUrl(const std::wstring& url);

/// What a command works with.
class CommandContext
{
public:
    explicit CommandContext(bool json) noexcept : m_json(json) {}

    CommandContext(const CommandContext&) = delete;
    CommandContext& operator=(const CommandContext&) = delete;

    ~CommandContext() = default;

    /// Where results go.
    const Console& Output() const noexcept
    {
        return m_output;
    }

    bool IsJson() const noexcept
    {
        return m_json;
    }

    /// The results, printed when the command has ended.
    Report& Results() noexcept
    {
        return m_results;
    }

    /// What is printed instead of the results when they are printed as text.
    void SetAnswer(std::string answer)
    {
        m_answer = std::move(answer);
    }

    /// A line of text that is printed at once, unless the result is to be one JSON object.
    void Line(std::string_view text) const;

    /// A message to standard error; what cannot be written there is lost.
    void Message(std::wstring_view text) const noexcept;

    /// Where messages go.
    const Console& Messages() const noexcept
    {
        return m_messages;
    }

    /// Prints the results; as JSON, with the exit code.
    void Finish(ExitCode code);

    /// Reports a failure with its code and text.
    void Fail(const CommandFailure& failure);

    /// Reports wrong usage; `topic` is where help would help.
    void SayWrong(const std::wstring& message, std::string_view topic);

private:
    Console m_output{STD_OUTPUT_HANDLE};
    Console m_messages{STD_ERROR_HANDLE};
    bool m_json;
    Report m_results;
    std::optional<std::string> m_answer;
};
} // namespace velt::tool
