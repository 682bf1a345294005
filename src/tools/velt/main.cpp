#include "foundation/exception_to_hresult.h"
#include "foundation/system_exception.h"
#include "foundation/trace_state.h"
#include "foundation/utrace.h"
#include "foundation/velt_version.h"
#include "foundation/wide_text.h"
#include "tools/common/search_path.h"
#include "tools/velt/commands.h"
#include "tools/velt/help_text.h"
#include "tools/velt/trace_window.h"

#include <array>
#include <cstdlib>
#include <exception>
#include <new>
#include <optional>

// The run-time is not to replace arguments that look like patterns by the names of files.
extern "C" int _dowildcard;
int _dowildcard = 0;

namespace velt::tool
{
namespace
{
struct RunnerRow
{
    CommandId id;
    ExitCode (*run)(const CommandLine& line, CommandContext& context);
};
constexpr std::array<RunnerRow, 15> kRunners = {{
    {CommandId::status, &RunStatus},
    {CommandId::cookieGet, &RunCookie},
    {CommandId::cookieSet, &RunCookie},
    {CommandId::safeGet, &RunSafe},
    {CommandId::safeSet, &RunSafe},
    {CommandId::updateCheck, &RunUpdate},
    {CommandId::updateStart, &RunUpdate},
    {CommandId::eulaShow, &RunEula},
    {CommandId::collection, &RunCollection},
    {CommandId::script, &RunScript},
    {CommandId::fetch, &RunFetch},
    {CommandId::proxy, &RunProxy},
    {CommandId::ping, &RunPing},
    {CommandId::registerComponent, &RunRegister},
    {CommandId::unregisterComponent, &RunUnregister},
}};

/// Calls the command; every failure ends here.
ExitCode Call(const CommandLine& line, CommandContext& context)
{
    try
    {
        for (const RunnerRow& row : kRunners)
        {
            if (row.id == line.command->id)
            {
                return row.run(line, context);
            }
        }
        throw VeltException(__FILE__, __LINE__);
    }
    catch (const WrongUsage& wrong)
    {
        context.SayWrong(wrong.message, line.command->name);
        return ExitCode::usage;
    }
    catch (const CommandFailure& failure)
    {
        context.Fail(failure);
    }
    catch (...)
    {
        context.Fail({HResultFromCurrentException(), WideFromUtf8(line.command->name)});
    }
    return ExitCode::failed;
}

bool IsJson(const ParsedCommandLine& parsed)
{
    return std::visit([](const auto& each) { return each.json; }, parsed);
}

/// The same when it is `trace on`.
const CommandLine* AsTraceOn(const ParsedCommandLine& parsed) noexcept
{
    const auto* const line = std::get_if<CommandLine>(&parsed);
    return line && line->command->id == CommandId::traceOn ? line : nullptr;
}

/// The command that `trace on` is to run, as its operands have it; --json may stand before either.
ParsedCommandLine ParseTraced(const CommandLine& line)
{
    ParsedCommandLine parsed = ParseCommandLine(line.operands);
    bool json = line.json || IsJson(parsed);
    const bool again = AsTraceOn(parsed) != nullptr;
    while (const CommandLine* const inner = AsTraceOn(parsed))
    {
        ParsedCommandLine innermost = ParseCommandLine(inner->operands);
        parsed = std::move(innermost);
        json = json || IsJson(parsed);
    }
    if (again)
    {
        parsed = UsageError{L"the trace is on already", std::string(line.command->name)};
    }
    std::visit([json](auto& each) { each.json = json; }, parsed);
    return parsed;
}

/// What was asked for, `trace on` apart.
ExitCode Run(const ParsedCommandLine& parsed)
{
    CommandContext context(IsJson(parsed));
    ExitCode code = ExitCode::done;
    if (const auto* wrong = std::get_if<UsageError>(&parsed))
    {
        context.SayWrong(wrong->message, wrong->topic);
        code = ExitCode::usage;
    }
    else if (const auto* help = std::get_if<HelpWanted>(&parsed))
    {
        std::string text = HelpText(help->topic);
        context.Results().Add("help", text);
        context.SetAnswer(std::move(text));
    }
    else if (const auto* line = std::get_if<CommandLine>(&parsed))
    {
        code = Call(*line, context);
    }
    else
    {
        context.Results().Add("version", VELT_VERSION_TEXT);
        context.SetAnswer("velt " VELT_VERSION_TEXT "\n");
    }
    context.Finish(code);
    return code;
}

ExitCode RunTraced(const CommandLine& line)
{
    const Console messages(STD_ERROR_HANDLE);
    const ParsedCommandLine traced = ParseTraced(line);
    std::optional<TraceWindow> window;
    try
    {
        window.emplace(messages);
    }
    catch (const CommandFailure& failure)
    {
        CommandContext context(IsJson(traced));
        context.Fail(failure);
        context.Finish(ExitCode::failed);
        return ExitCode::failed;
    }
    ::SetEnvironmentVariableW(L"VELT_TRACE", nullptr); // it would switch the component's trace off
    UTrace::State state; // the libraries in this program are traced as well
    UTrace::StartUp();
    return Run(traced);
}

int Main(std::span<wchar_t* const> arguments) noexcept
{
    SearchSystemFolderOnly();
    try
    {
        const std::vector<std::wstring> words(arguments.begin(), arguments.end());
        const ParsedCommandLine parsed = ParseCommandLine(words);
        const CommandLine* const traceOn = AsTraceOn(parsed);
        return static_cast<int>(traceOn ? RunTraced(*traceOn) : Run(parsed));
    }
    catch (...)
    {
        // Nothing can be written, or memory is out; the exit code is all that is left to say.
        CommandContext(false).Message(
            FailureMessage({HResultFromCurrentException(), L"the output"}));
        return static_cast<int>(ExitCode::failed);
    }
}
} // namespace
} // namespace velt::tool

int wmain(int count, wchar_t** arguments)
{
    return velt::tool::Main({arguments + 1, static_cast<std::size_t>(count > 0 ? count - 1 : 0)});
}
