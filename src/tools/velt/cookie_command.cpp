#include "foundation/wide_text.h"
#include "tools/velt/commands.h"
#include "tools/velt/service_host.h"

#include <algorithm>

namespace velt::tool
{
namespace
{
/// Whether the pair is one of a URL's cookies, which come as "name=value; name=value".
bool HoldsPair(std::wstring_view cookies, std::wstring_view pair)
{
    while (!cookies.empty())
    {
        const std::size_t end = std::min(cookies.find(L';'), cookies.size());
        std::wstring_view each = cookies.substr(0, end);
        each.remove_prefix(std::min(each.find_first_not_of(L' '), each.size()));
        if (each == pair)
        {
            return true;
        }
        cookies.remove_prefix(std::min(end + 1, cookies.size()));
    }
    return false;
}

std::optional<std::wstring> Read(const ServiceHost& service, const _bstr_t& url)
{
    return ServiceHost::TextOf(L"the cookies",
                               [&](BSTR* text) { return service->ReadData(url, nullptr, text); });
}
} // namespace

ExitCode RunCookie(const CommandLine& line, CommandContext& context)
{
    const _bstr_t url(RequireHttpUrl(line.operands[0]).c_str());
    const ServiceHost service;
    context.Results().Add("url", Utf8FromWide(line.operands[0]));
    if (line.command->id == CommandId::cookieGet)
    {
        const auto cookies = Read(service, url);
        if (cookies)
        {
            context.Results().Add("cookies", Utf8FromWide(*cookies));
        }
        else
        {
            context.Results().AddNothing("cookies");
        }
        context.SetAnswer(cookies ? Utf8FromWide(*cookies) + "\n" : std::string());
        return ExitCodeFor(cookies.has_value());
    }
    const std::wstring& name = line.operands[1];
    const std::wstring& value = line.operands[2];
    Require(service->WriteData(url, _bstr_t(name.c_str()), _bstr_t(value.c_str())), L"the cookie");
    // The component answers S_OK also when the store refused; what is there tells.
    const auto cookies = Read(service, url);
    const bool kept =
        cookies && HoldsPair(*cookies, name + L"=" + value.substr(0, value.find(L';')));
    context.Results().Add("kept", kept);
    context.SetAnswer({});
    if (!kept)
    {
        context.Message(L"the cookie store did not keep the cookie");
    }
    return ExitCodeFor(kept);
}
} // namespace velt::tool
