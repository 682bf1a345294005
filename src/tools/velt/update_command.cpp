#include "foundation/wide_text.h"
#include "tools/velt/commands.h"
#include "tools/velt/dispatch_sink.h"
#include "tools/velt/installed_agent.h"
#include "tools/velt/interrupt.h"
#include "tools/velt/message_wait.h"
#include "tools/velt/service_host.h"

namespace velt::tool
{
namespace
{
constexpr std::uint32_t kDefaultLocale = 1033;
constexpr std::uint32_t kDefaultTimeoutS = 120;
constexpr std::uint32_t kLongestTimeoutS = 86'400;
constexpr DISPID kDispidNotify = 1;

/// A product as the command line names it.
struct Product
{
    _bstr_t guid;
    _bstr_t version;
    long locale;
};

std::uint32_t NumberOf(const CommandLine& line, const char* option, std::uint32_t otherwise,
                       std::uint32_t most)
{
    if (!line.Has(option))
    {
        return otherwise;
    }
    const auto number = ParseNumber(line.Value(option), 1, most);
    if (!number)
    {
        throw WrongUsage{L"not a number for --" + WideFromUtf8(option) + L": " +
                         line.Value(option)};
    }
    return *number;
}

Product ProductOf(const CommandLine& line)
{
    constexpr std::uint32_t kLongestLocale = 0x7FFFFFFF;
    if (line.operands.size() != 2)
    {
        throw WrongUsage{L"more is needed: GUID VERSION"};
    }
    if (!IsGuidText(line.operands[0]))
    {
        throw WrongUsage{L"not a GUID in braces: " + line.operands[0]};
    }
    return {line.operands[0].c_str(), line.operands[1].c_str(),
            static_cast<long>(NumberOf(line, "locale", kDefaultLocale, kLongestLocale))};
}

ExitCode Check(const CommandLine& line, CommandContext& context)
{
    const Product product = ProductOf(line);
    const ServiceHost service;
    VARIANT_BOOL available = VARIANT_FALSE;
    Require(service->IsUpdateOrMessageAvailable(product.guid, product.version, product.locale,
                                                line.Has("offline") ? VARIANT_FALSE : VARIANT_TRUE,
                                                &available),
            L"the question for updates");
    context.Results().Add("available", available == VARIANT_TRUE);
    return ExitCodeFor(available == VARIANT_TRUE);
}

/// Prints the service's events as they arrive, and keeps them for the results.
class EventLog
{
public:
    EventLog(const ServiceHost& service, const CommandContext& context)
        : m_context(context),
          m_connection(
              service.Get(), DIID_IVeltHTTPServiceEvents,
              DispatchSink::Make(DIID_IVeltHTTPServiceEvents, [this](DISPID event,
                                                                     const DISPPARAMS& arguments) {
                  OnEvent(event, arguments);
              }).Get())
    {
    }

    EventLog(const EventLog&) = delete;
    EventLog& operator=(const EventLog&) = delete;

    ~EventLog() = default;

    const ReportValue::Texts& Events() const noexcept
    {
        return m_events;
    }

private:
    void OnEvent(DISPID event, const DISPPARAMS& arguments)
    {
        std::string text = "event " + std::to_string(event);
        if (event == kDispidNotify && arguments.cArgs == 2)
        {
            text =
                "self_upgrade " + Utf8FromWide(_bstr_t(_variant_t(arguments.rgvarg[0])).GetBSTR());
        }
        m_context.Line(text);
        m_events.push_back(std::move(text));
    }

    const CommandContext& m_context;
    ReportValue::Texts m_events;
    const SinkConnection m_connection; // goes first
};

/// Why there is no update agent to work with; nothing when there is one. One that is registered is
/// not asked: it may be about to end with another program's work, and then does not answer.
std::optional<std::wstring> WhyNoAgent(const ServiceHost& service)
{
    if (const auto agent = FindUpdateAgent())
    {
        return agent->present
                   ? std::nullopt
                   : std::optional(L"the update agent's file is missing: " + agent->file);
    }
    VARIANT_BOOL answers = VARIANT_FALSE; // one that the registry does not show
    Require(service->IsUpdateOrMessageAvailable(nullptr, nullptr, kDefaultLocale, VARIANT_FALSE,
                                                &answers),
            L"the question for an update agent");
    return answers == VARIANT_TRUE ? std::nullopt
                                   : std::optional<std::wstring>(L"no update agent is installed");
}

void StartWork(const CommandLine& line, const ServiceHost& service)
{
    if (line.operands.empty())
    {
        Require(service->StartService(), L"StartService");
        return;
    }
    const Product product = ProductOf(line);
    const _bstr_t description(line.Value("description").c_str());
    Require(line.Has("background")
                ? service->StartUpdateService(product.guid, product.version, product.locale,
                                              description)
                : service->InvokeUpdate(product.guid, product.version, product.locale, description),
            L"the update");
}

ExitCode Start(const CommandLine& line, CommandContext& context)
{
    if (!line.operands.empty())
    {
        ProductOf(line); // before anything begins
    }
    if (!line.Has("wait") && (line.Has("background") || line.operands.empty()))
    {
        throw WrongUsage{L"queued work ends with this process: --wait lets it be done"};
    }
    const DWORD limitMs = NumberOf(line, "timeout", kDefaultTimeoutS, kLongestTimeoutS) * 1000;
    const Interrupt interrupt;
    const ServiceHost service;
    const EventLog log(service, context);
    const auto whyNot = WhyNoAgent(service);
    context.Results().Add("agent", !whyNot);
    if (whyNot)
    {
        context.Results().Add("ended", false);
        context.Results().Add("events", ReportValue{ReportValue::Texts()});
        context.SetAnswer({});
        context.Message(*whyNot);
        return ExitCode::no;
    }
    StartWork(line, service);
    bool ended = !log.Events().empty();
    if (line.Has("wait"))
    {
        ended = WaitWithMessages([&] { return !log.Events().empty(); }, interrupt.Event(), limitMs);
    }
    context.Results().Add("ended", ended);
    context.Results().Add("events", ReportValue{log.Events()});
    context.SetAnswer({}); // the events have been printed
    if (line.Has("wait") && !ended)
    {
        context.Message(interrupt.IsSet() ? L"interrupted" : L"the work has not ended in time");
    }
    return ExitCodeFor(ended || !line.Has("wait"));
}
} // namespace

ExitCode RunUpdate(const CommandLine& line, CommandContext& context)
{
    return line.command->id == CommandId::updateCheck ? Check(line, context) : Start(line, context);
}
} // namespace velt::tool
