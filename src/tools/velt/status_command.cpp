#include "foundation/trace_record.h"
#include "foundation/wide_text.h"
#include "internet/internet_proxy.h"
#include "tools/velt/commands.h"
#include "tools/velt/findings.h"
#include "tools/velt/installed_agent.h"
#include "tools/velt/proxy_origin.h"
#include "tools/velt/registered_copy.h"
#include "tools/velt/service_host.h"

#include <wininet.h>

#include <algorithm>

namespace velt::tool
{
namespace
{
using Level = Findings::Level;

void AddText(Report& results, const char* name, const std::optional<std::wstring>& text)
{
    if (text)
    {
        results.Add(name, Utf8FromWide(*text));
    }
    else
    {
        results.AddNothing(name);
    }
}

const char* EditionName(bool is64Bit) noexcept
{
    return is64Bit ? "64-bit" : "32-bit";
}

/// Looks at the machine and at the component, and writes down what it sees: the facts into the
/// results, what they mean into the findings.
class Examination
{
public:
    Examination(const CommandLine& line, CommandContext& context)
        : m_line(line),
          m_context(context),
          m_results(context.Results())
    {
    }

    Examination(const Examination&) = delete;
    Examination& operator=(const Examination&) = delete;

    ~Examination() = default;

    ExitCode Run()
    {
        LookAtLibrary();
        LookAtRegistrations();
        LookAtUpdateAgent();
        LookForViewer();
        LookAtConnection();
        LookForProxy();
        std::string text = m_results.Text() + m_findings.Text();
        m_results.Add("registrations",
                      ReportValue{std::move(m_registrations)}); // as text: findings
        m_results.Add("findings", m_findings.Parts());
        m_context.SetAnswer(std::move(text));
        return ExitCodeFor(!m_findings.HasError());
    }

private:
    void Find(Level level, std::string_view about, const std::wstring& text)
    {
        m_findings.Add(level, about, Utf8FromWide(text));
    }

    /// The library beside the program. It is not loaded: that takes longer than all the rest, and
    /// what is registered is tried below.
    void LookAtLibrary()
    {
        m_results.Add("library", Utf8FromWide(m_own));
        m_results.Add("edition", EditionName(kIs64Bit));
        try
        {
            CheckLibrary(m_own);
            const std::wstring version = FileVersion(m_own);
            m_results.Add("version", Utf8FromWide(version));
            Find(Level::ok, "library", m_own + L": version " + version);
            if (m_line.Has("tag"))
            {
                AskService();
            }
        }
        catch (const CommandFailure& failure)
        {
            AddFailure(m_results, failure);
            Find(Level::error, "library",
                 FailureMessage(failure) + L"; put this edition's library beside this program");
        }
    }

    /// What only an object can answer. Throws CommandFailure.
    void AskService()
    {
        const ServiceHost service;
        AddText(m_results, "redirect",
                ServiceHost::TextOf(L"the redirect address",
                                    [&](BSTR* text) { return service->get_Redirect(text); }));
        AddText(m_results, "domain", ServiceHost::TextOf(L"the cookie domain", [&](BSTR* text) {
                    return service->GetDomain(text);
                }));
        AddText(m_results, "serviceTag", ServiceHost::TextOf(L"the service tag", [&](BSTR* text) {
                    return service->GetServiceTag(text);
                }));
    }

    void LookAtRegistrations()
    {
        const auto copies = FindRegisteredCopies(m_own);
        const auto find = [&](bool is64Bit, RegistrationScope scope) {
            for (const RegisteredCopy& copy : copies)
            {
                if (copy.is64Bit == is64Bit && copy.scope == scope)
                {
                    return copy.library;
                }
            }
            return std::optional<std::wstring>();
        };
        const auto forMachine = find(kIs64Bit, RegistrationScope::machine);
        const auto forUser = find(kIs64Bit, RegistrationScope::user);
        AddText(m_results, "registeredForMachine", forMachine);
        AddText(m_results, "registeredForUser", forUser);
        m_results.Add("userHidesMachine", forMachine && forUser);
        for (const RegisteredCopy& copy : copies)
        {
            LookAtCopy(copy, m_registrations.emplace_back());
            const bool last = copy.scope == RegistrationScope::user;
            if (!last)
            {
                continue;
            }
            const bool machineHasOne = find(copy.is64Bit, RegistrationScope::machine).has_value();
            if (copy.library && machineHasOne)
            {
                Find(Level::warning, "registration",
                     copy.Name() + L": hides the machine's registration from programs that run "
                                   L"without elevation; velt unregister --user takes it back");
            }
            else if (copy.library)
            {
                Find(Level::warning, "registration",
                     copy.Name() + L": programs that run elevated do not see it; velt register by "
                                   L"an administrator registers for the machine");
            }
            else if (!machineHasOne)
            {
                LookAtMissing(copy);
            }
        }
    }

    /// Nothing is registered for an edition.
    void LookAtMissing(const RegisteredCopy& copy)
    {
        const std::wstring edition = WideFromUtf8(EditionName(copy.is64Bit));
        Find(copy.IsOwnEdition() ? Level::warning : Level::ok, "registration",
             edition + L": not registered; " + edition +
                 L" programs find the classes by a manifest only, until velt register of that "
                 L"edition");
    }

    void LookAtCopy(const RegisteredCopy& copy, Report& part)
    {
        part.Add("edition", EditionName(copy.is64Bit));
        part.Add("scope", copy.scope == RegistrationScope::machine ? "machine" : "user");
        AddText(part, "library", copy.library);
        if (!copy.library)
        {
            return;
        }
        const std::wstring name = copy.Name() + L": " + *copy.library;
        const std::wstring remedy =
            std::wstring(L"; register the copy that is to be used: velt register") +
            (copy.scope == RegistrationScope::user ? L" --user" : L"");
        const bool present = IsFile(*copy.library);
        part.Add("elevatedSees", IsSeenByElevated(copy.scope));
        part.Add("present", present);
        if (!present)
        {
            Find(Level::error, "registration", name + L": there is no such file" + remedy);
            return;
        }
        std::optional<std::wstring> version;
        try
        {
            version = FileVersion(*copy.library);
        }
        catch (const CommandFailure&)
        {
            // Without a version; what is wrong with the file is found out below.
        }
        AddText(part, "version", version);
        part.Add("own", IsSamePath(*copy.library, m_own));
        const std::wstring known = name + (version ? L", version " + *version : std::wstring());
        try
        {
            const bool tried = Try(copy);
            if (tried)
            {
                part.Add("creatable", true);
            }
            else
            {
                part.AddNothing("creatable");
            }
            Find(Level::ok, "registration",
                 known + (tried ? L": makes objects" : L": not tried; " + OtherProgram(copy)));
        }
        catch (const CommandFailure& failure)
        {
            part.Add("creatable", false);
            AddFailure(part, failure);
            Find(Level::error, "registration",
                 known + L": makes no objects: " + FailureMessage(failure) + remedy);
        }
        if (copy.several)
        {
            Find(Level::warning, "registration",
                 copy.Name() + L": the classes are registered with different files" + remedy);
        }
        else if (copy.IsOwnEdition() && !IsSamePath(*copy.library, m_own))
        {
            Find(Level::warning, "registration",
                 copy.Name() + L": another copy than the one beside this program is used" + remedy);
        }
    }

    /// Has a registered copy make an object, as COM would. False for one of the other edition,
    /// which this process cannot load. Throws CommandFailure.
    static bool Try(const RegisteredCopy& copy)
    {
        if (copy.IsOwnEdition())
        {
            const CLibraryUtils::SmartComInitializer com;
            const Component library(*copy.library);
            library.Create<IUnknown>(CLSID_CVeltHTTPService);
            return true;
        }
        RequireEdition(*copy.library, copy.is64Bit);
        return false;
    }

    /// Who can try a copy of the other edition: its program, which packages put into the next
    /// folder.
    static std::wstring OtherProgram(const RegisteredCopy& copy)
    {
        std::wstring folder = FileBesideProgram(L"");
        folder.pop_back();
        folder.resize(std::min(folder.rfind(L'\\'), folder.size()));
        const std::wstring program =
            folder + (copy.is64Bit ? L"\\x64\\velt.exe" : L"\\x86\\velt.exe");
        return IsFile(program) ? program + L" status does"
                               : WideFromUtf8(EditionName(copy.is64Bit)) + L" velt status does";
    }

    void LookAtUpdateAgent()
    {
        const auto agent = FindUpdateAgent();
        m_results.Add("agentInstalled", agent.has_value());
        AddText(m_results, "agent", agent ? std::optional(agent->server) : std::nullopt);
        if (!agent)
        {
            Find(Level::warning, "agent",
                 L"no update agent is installed; updates need the one that a product installs");
        }
        else if (!agent->present)
        {
            Find(Level::error, "agent",
                 L"the update agent's file is missing: " + agent->file +
                     L"; install the product that it belongs to again");
        }
        else
        {
            Find(Level::ok, "agent", L"the update agent is " + agent->server);
        }
    }

    void LookForViewer()
    {
        const HWND window = ::FindWindowW(kTraceViewerClass, nullptr);
        DWORD process = 0;
        if (window)
        {
            ::GetWindowThreadProcessId(window, &process);
        }
        m_results.Add("viewerListening", window != nullptr);
        if (window)
        {
            m_results.Add("viewerProcess", static_cast<std::int64_t>(process));
        }
        else
        {
            m_results.AddNothing("viewerProcess");
        }
        Find(Level::ok, "viewer",
             window ? L"a trace viewer is listening: process " + std::to_wstring(process)
                    : std::wstring(L"no trace viewer is listening; velt-trace shows the trace of "
                                   L"programs that start after it"));
    }

    void LookAtConnection()
    {
        DWORD flags = 0;
        const bool online = ::InternetGetConnectedState(&flags, 0) != FALSE;
        m_results.Add("connected", online);
        m_results.Add("connectedFrom", "InternetGetConnectedState");
        m_results.Add("connectedFlags", static_cast<std::int64_t>(flags));
        if (online)
        {
            Find(Level::ok, "connection", L"the system says that the machine is connected");
        }
        else
        {
            Find(Level::warning, "connection",
                 L"the system says that the machine is not connected; look at its network");
        }
    }

    void LookForProxy()
    {
        const CInternetProxy proxy;
        const std::wstring session = proxy.GetSessionProxy();
        const bool direct = session.empty();
        AddText(m_results, "proxy", direct ? std::nullopt : std::optional(session));
        AddText(m_results, "proxyFrom", direct ? std::nullopt : std::optional(ProxyOrigin(proxy)));
        Find(Level::ok, "proxy",
             direct ? std::wstring(L"no proxy is used")
                    : L"the proxy is " + session + L", from " + ProxyOrigin(proxy));
    }

    const CommandLine& m_line;
    CommandContext& m_context;
    Report& m_results;
    Findings m_findings;
    ReportValue::Parts m_registrations;
    const std::wstring m_own = Component::OwnPath();
};
} // namespace

ExitCode RunStatus(const CommandLine& line, CommandContext& context)
{
    return Examination(line, context).Run();
}
} // namespace velt::tool
