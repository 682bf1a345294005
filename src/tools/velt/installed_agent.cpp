#include "tools/velt/installed_agent.h"

#include "tools/velt/registered_copy.h"
#include "update/update_agent_class.h"

#include <utility>

namespace velt::tool
{
namespace
{
/// The program in a command line, which may be quoted and have arguments.
std::wstring FileOf(const std::wstring& commandLine)
{
    if (commandLine.starts_with(L'"'))
    {
        return commandLine.substr(1, commandLine.find(L'"', 1) - 1);
    }
    for (std::size_t end = commandLine.find(L' '); end != commandLine.npos;
         end = commandLine.find(L' ', end + 1))
    {
        if (IsFile(commandLine.substr(0, end)))
        {
            return commandLine.substr(0, end); // as the system reads it
        }
    }
    return commandLine;
}
} // namespace

std::optional<InstalledAgent> FindUpdateAgent()
{
    for (const bool is64Bit : {kIs64Bit, !kIs64Bit})
    {
        for (const wchar_t* const key : {L"LocalServer32", L"InprocServer32"})
        {
            if (auto server = ReadClassText(HKEY_CLASSES_ROOT, {}, kUpdateAgentClass, key, is64Bit))
            {
                InstalledAgent agent{*std::move(server), {}};
                agent.file = FileOf(agent.server);
                agent.present = IsFile(agent.file);
                return agent;
            }
        }
    }
    return std::nullopt;
}
} // namespace velt::tool
