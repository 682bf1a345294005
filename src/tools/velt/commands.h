#pragma once

#include "tools/velt/command_context.h"
#include "tools/velt/command_line.h"

namespace velt::tool
{
/// Each carries out one command, or two that belong together, in the file that is named for it, and
/// leaves the results in the context. They throw WrongUsage, CommandFailure and what the
/// component's libraries throw.
ExitCode RunStatus(const CommandLine& line, CommandContext& context);
ExitCode RunCookie(const CommandLine& line, CommandContext& context);
ExitCode RunSafe(const CommandLine& line, CommandContext& context);
ExitCode RunUpdate(const CommandLine& line, CommandContext& context);
ExitCode RunEula(const CommandLine& line, CommandContext& context);
ExitCode RunCollection(const CommandLine& line, CommandContext& context);
ExitCode RunScript(const CommandLine& line, CommandContext& context);
ExitCode RunFetch(const CommandLine& line, CommandContext& context);
ExitCode RunProxy(const CommandLine& line, CommandContext& context);
ExitCode RunPing(const CommandLine& line, CommandContext& context);
ExitCode RunRegister(const CommandLine& line, CommandContext& context);
ExitCode RunUnregister(const CommandLine& line, CommandContext& context);
} // namespace velt::tool
