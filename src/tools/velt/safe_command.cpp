#include "foundation/wide_text.h"
#include "tools/velt/commands.h"
#include "tools/velt/service_host.h"

namespace velt::tool
{
ExitCode RunSafe(const CommandLine& line, CommandContext& context)
{
    const _bstr_t url(RequireHttpUrl(line.operands[0]).c_str());
    const ServiceHost service;
    const _bstr_t name(line.operands[1].c_str());
    if (line.Has("domain"))
    {
        Require(service->put_domain(_bstr_t(line.Value("domain").c_str())), L"the domain");
    }
    const auto read = [&] {
        return ServiceHost::TextOf(
            L"the value", [&](BSTR* text) { return service->SafeReadData(url, name, text); });
    };
    context.Results().Add("url", Utf8FromWide(line.operands[0]));
    context.Results().Add("name", Utf8FromWide(line.operands[1]));
    if (line.command->id == CommandId::safeGet)
    {
        const auto value = read();
        if (value)
        {
            context.Results().Add("value", Utf8FromWide(*value));
        }
        else
        {
            context.Results().AddNothing("value");
        }
        context.SetAnswer(value ? Utf8FromWide(*value) + "\n" : std::string());
        return ExitCodeFor(value.has_value());
    }
    const std::wstring& value = line.operands[2];
    Require(service->SafeWriteData(url, name, _bstr_t(value.c_str())), L"the value");
    const bool kept = read() == value; // S_OK alone says nothing
    context.Results().Add("kept", kept);
    context.SetAnswer({});
    if (!kept)
    {
        context.Message(L"the cookie store did not keep the value");
    }
    return ExitCodeFor(kept);
}
} // namespace velt::tool
