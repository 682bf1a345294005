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
ExitCode RunTraced(const CommandLine& line, CommandContext& context);

struct RunnerRow
{
    CommandId id;
    ExitCode (*run)(const CommandLine& line, CommandContext& context);
};
constexpr std::array<RunnerRow, 16> kRunners = {{
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
    {CommandId::traceOn, &RunTraced},
}};

void SayWrong(const CommandContext& context, std::wstring_view message, std::string_view topic)
{
    context.Message(message);
    const std::wstring command = topic.empty() ? std::wstring() : L" " + WideFromUtf8(topic);
    context.Message(L"try: velt" + command + L" --help");
}

/// Calls the command; every failure ends here. Nothing when it was used wrongly: a script may end
/// with the same number.
std::optional<ExitCode> Call(const CommandLine& line, CommandContext& context)
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
        SayWrong(context, wrong.message, line.command->name);
        return std::nullopt;
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

ExitCode Run(std::span<const std::wstring> arguments, bool json)
{
    ParsedCommandLine parsed = ParseCommandLine(arguments);
    auto* const line = std::get_if<CommandLine>(&parsed);
    CommandContext context(json || (line && line->json));
    if (const auto* wrong = std::get_if<UsageError>(&parsed))
    {
        SayWrong(context, wrong->message, wrong->topic);
        return ExitCode::usage;
    }
    if (const auto* help = std::get_if<HelpWanted>(&parsed))
    {
        context.Output().Write(HelpText(help->topic));
        return ExitCode::done;
    }
    if (!line)
    {
        context.Output().Write("velt " VELT_VERSION_TEXT "\n");
        return ExitCode::done;
    }
    line->json = context.IsJson();
    const std::optional<ExitCode> code = Call(*line, context);
    if (code && line->command->id != CommandId::traceOn)
    {
        context.Finish();
    }
    return code.value_or(ExitCode::usage);
}

ExitCode RunTraced(const CommandLine& line, CommandContext& context)
{
    const TraceWindow window(context.Messages());
    ::SetEnvironmentVariableW(L"VELT_TRACE", nullptr); // it would switch the component's trace off
    UTrace::State state; // the libraries in this program are traced as well
    UTrace::StartUp();
    return Run(line.operands, line.json);
}

int Main(std::span<wchar_t* const> arguments) noexcept
{
    SearchSystemFolderOnly();
    try
    {
        return static_cast<int>(
            Run(std::vector<std::wstring>(arguments.begin(), arguments.end()), false));
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
