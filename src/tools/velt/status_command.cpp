#include "foundation/wide_text.h"
#include "tools/velt/commands.h"
#include "tools/velt/component_registry.h"
#include "tools/velt/service_host.h"

namespace velt::tool
{
ExitCode RunStatus(const CommandLine&, CommandContext& context)
{
    const ServiceHost service;
    Report& results = context.Results();
    const auto add = [&](const char* name, const std::optional<std::wstring>& text) {
        if (text)
        {
            results.Add(name, Utf8FromWide(*text));
        }
        else
        {
            results.AddNothing(name);
        }
    };
    VARIANT_BOOL connected = VARIANT_FALSE;
    Require(service->get_IsConnected(&connected), L"the connection state");
    results.Add("connected", connected == VARIANT_TRUE);
    add("redirect", ServiceHost::TextOf(L"the redirect address",
                                        [&](BSTR* text) { return service->get_Redirect(text); }));
    add("domain", ServiceHost::TextOf(L"the cookie domain",
                                      [&](BSTR* text) { return service->GetDomain(text); }));
    add("serviceTag", ServiceHost::TextOf(L"the service tag", [&](BSTR* text) {
            return service->GetServiceTag(text);
        }));
    const ComponentRegistry registry(service.Library());
    const auto forMachine = registry.LibraryOf(RegistrationScope::machine);
    const auto forUser = registry.LibraryOf(RegistrationScope::user);
    add("registeredForMachine", forMachine);
    add("registeredForUser", forUser);
    results.Add("userHidesMachine", forMachine && forUser);
    add("version", service.Library().Version());
    add("library", service.Library().Path());
    return ExitCode::done;
}
} // namespace velt::tool
