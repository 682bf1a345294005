#include "foundation/library_utils.h"
#include "foundation/wide_text.h"
#include "server/registration.h"
#include "tools/velt/commands.h"
#include "tools/velt/component_registry.h"
#include "tools/velt/registered_copy.h"

namespace velt::tool
{
namespace
{
/// Where to register, decided as the component itself decides unless the user is named.
RegistrationScope ScopeOf(const CommandLine& line) noexcept
{
    return line.Has("user") ? RegistrationScope::user : CurrentRegistrationScope();
}

const char* NameOf(RegistrationScope scope) noexcept
{
    return scope == RegistrationScope::user ? "user" : "machine";
}
} // namespace

ExitCode RunRegister(const CommandLine& line, CommandContext& context)
{
    const CLibraryUtils::SmartComInitializer com;
    const Component component;
    const RegistrationScope scope = ScopeOf(line);
    if (line.Has("user"))
    {
        RegisterForUser(component);
    }
    else
    {
        Require(component.Register(), L"DllRegisterServer");
    }
    const bool elevatedSees = IsSeenByElevated(scope);
    Report& results = context.Results();
    results.Add("scope", NameOf(scope));
    results.Add("library", Utf8FromWide(component.Path()));
    results.Add("elevatedSees", elevatedSees);
    if (!elevatedSees)
    {
        context.Message(
            L"programs that run elevated do not see a user's registration; velt register "
            L"by an administrator registers for the machine");
    }
    return ExitCode::done;
}

ExitCode RunUnregister(const CommandLine& line, CommandContext& context)
{
    const CLibraryUtils::SmartComInitializer com;
    const Component component;
    const RegistrationScope scope = ScopeOf(line);
    const ComponentRegistry registry(component);
    const auto library = registry.LibraryOf(scope);
    Report& results = context.Results();
    results.Add("scope", NameOf(scope));
    if (!library || !registry.IsOwn(*library))
    {
        results.Add("unregistered", false);
        context.Message(library ? L"another copy is registered, and stays so: " + *library
                                : std::wstring(L"the component is not registered"));
        return ExitCode::no;
    }
    registry.Erase(scope);
    results.Add("unregistered", true);
    results.Add("library", Utf8FromWide(*library));
    return ExitCode::done;
}
} // namespace velt::tool
