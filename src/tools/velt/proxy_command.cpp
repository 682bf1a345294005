#include "foundation/wide_text.h"
#include "internet/internet_proxy.h"
#include "internet/internet_settings.h"
#include "tools/velt/commands.h"

namespace velt::tool
{
ExitCode RunProxy(const CommandLine&, CommandContext& context)
{
    const CInternetProxy proxy;
    Report& results = context.Results();
    const std::wstring session = proxy.GetSessionProxy();
    if (session.empty())
    {
        results.AddNothing("proxy");
        return ExitCode::no;
    }
    const std::wstring from = std::wstring(L"HKEY_CURRENT_USER\\") +
                              (proxy.GetText().empty() ? kInternetSettingsKey : kLegacyProxyKey);
    results.Add("proxy", Utf8FromWide(session));
    results.Add("host", Utf8FromWide(proxy.GetHost()));
    results.Add("port", Utf8FromWide(proxy.GetPort()));
    results.Add("url", Utf8FromWide(proxy.GetUrl()));
    results.Add("from", Utf8FromWide(from));
    return ExitCode::done;
}
} // namespace velt::tool
