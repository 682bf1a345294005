#include "foundation/wide_text.h"
#include "internet/internet_proxy.h"
#include "tools/velt/commands.h"
#include "tools/velt/proxy_origin.h"

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
    results.Add("proxy", Utf8FromWide(session));
    results.Add("host", Utf8FromWide(proxy.GetHost()));
    results.Add("port", Utf8FromWide(proxy.GetPort()));
    results.Add("url", Utf8FromWide(proxy.GetUrl()));
    results.Add("from", Utf8FromWide(ProxyOrigin(proxy)));
    return ExitCode::done;
}
} // namespace velt::tool
