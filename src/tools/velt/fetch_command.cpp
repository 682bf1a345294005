#include "connection/queue_manager.h"
#include "foundation/library_utils.h"
#include "foundation/system_exception.h"
#include "foundation/wide_text.h"
#include "tools/common/output_file.h"
#include "tools/velt/commands.h"
#include "tools/velt/fetch_request.h"
#include "tools/velt/full_path.h"
#include "tools/velt/password_input.h"
#include "tools/velt/progress_display.h"
#include "tools/velt/url_file_name.h"

#include <algorithm>
#include <memory>

using CONNECTION_MANAGER::queue_manager;
using CONNECTION_MANAGER::url_options;

namespace velt::tool
{
namespace
{
constexpr DWORD kPeriodMs = 10;    // of the queue
constexpr DWORD kRefreshMs = 200;  // of the display
constexpr DWORD kPatienceMs = 500; // with an exchange that was abandoned

/// One URL of the command line.
struct Fetch
{
    std::wstring url;
    std::wstring file; // empty for standard output
    std::shared_ptr<FetchRequest> request;
};

/// Everything comes from the servers, nothing is kept of it, and no exchange opens a window; a
/// connection may serve several exchanges.
constexpr DWORD kRequestFlags = INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_CACHE_WRITE |
                                INTERNET_FLAG_PRAGMA_NOCACHE | INTERNET_FLAG_KEEP_CONNECTION |
                                INTERNET_FLAG_NO_UI;

url_options OptionsOf(const CommandLine& line)
{
    url_options options;
    options.flags = kRequestFlags;
    std::wstring data = line.Value("data");
    options.data =
        data.starts_with(L"@") ? ReadWholeFile(FullPath(data.substr(1))) : Utf8FromWide(data);
    options.verb = Utf8FromWide(line.Value("verb", options.data.empty() ? L"GET" : L"POST"));
    options.proxy = Utf8FromWide(line.Value("proxy"));
    options.acceptType = Utf8FromWide(line.Value("accept"));
    return options;
}

RequestHeader HeaderOf(const std::wstring& text)
{
    auto header = ParseRequestHeader(text);
    if (!header)
    {
        throw WrongUsage{L"not a header that can be sent: " + text};
    }
    return *std::move(header);
}

std::vector<RequestHeader> HeadersOf(const CommandLine& line)
{
    constexpr char kContentType[] = "Content-Type";
    std::vector<RequestHeader> headers;
    for (const std::wstring& text : line.Values("header"))
    {
        headers.push_back(HeaderOf(text));
        if (line.Has("content-type") && IsSameHeader(headers.back().name, kContentType))
        {
            throw WrongUsage{L"--content-type stands for that header: " + text};
        }
    }
    if (line.Has("content-type"))
    {
        headers.push_back(
            HeaderOf(WideFromUtf8(kContentType) + L": " + line.Value("content-type")));
    }
    return headers;
}

void CheckUsage(const CommandLine& line)
{
    if (line.Has("password") && line.Has("password-file"))
    {
        throw WrongUsage{L"--password and --password-file exclude each other"};
    }
    if ((line.Has("password") || line.Has("password-file")) && line.Value("user").empty())
    {
        throw WrongUsage{L"a password needs --user"};
    }
    if (line.Has("content-type") && !line.Has("data"))
    {
        throw WrongUsage{L"--content-type is that of --data"};
    }
    if (line.Has("output") && line.Has("folder"))
    {
        throw WrongUsage{L"--output and --folder exclude each other"};
    }
    if (line.Has("output") && line.operands.size() > 1)
    {
        throw WrongUsage{L"--output is for one URL; use --folder"};
    }
}

/// Where each body goes.
std::vector<Fetch> FilesOf(const CommandLine& line)
{
    std::vector<Fetch> fetches;
    std::set<std::string> taken;
    for (const std::wstring& url : line.operands)
    {
        Fetch fetch{url, {}, nullptr};
        if (line.Has("output"))
        {
            fetch.file = FullPath(line.Value("output"));
        }
        else if (line.Has("folder"))
        {
            const std::string name = TakeFileName(taken, FileNameFromUrl(Utf8FromWide(url)));
            fetch.file = FullPath(line.Value("folder") + L"\\" + WideFromUtf8(name));
        }
        fetches.push_back(std::move(fetch));
    }
    return fetches;
}

FetchRequest::BodyTarget TargetOf(const Fetch& fetch, const CommandContext& context)
{
    return [&context, file = fetch.file](const char* bytes, std::size_t count) {
        try
        {
            if (file.empty() && context.IsJson())
            {
                return; // a body would mix with the one object, which says how long it is
            }
            if (file.empty())
            {
                context.Output().WriteBytes({bytes, count});
                return;
            }
            OutputFile output(file);
            output.Write({bytes, count});
            output.Commit();
        }
        catch (const SystemException::Win32& e)
        {
            throw CommandFailure{HRESULT_FROM_WIN32(e.GetCode()),
                                 file.empty() ? L"standard output" : file};
        }
    };
}

/// All fetches of a command line, from the queue's point of view.
class FetchRun
{
public:
    /// The settings outlive it; what must be known before Run are their options and headers.
    FetchRun(const CommandLine& line, const FetchSettings& settings, CommandContext& context)
        : m_context(context),
          m_fetches(FilesOf(line)),
          m_changed(::CreateEventW(nullptr, FALSE, FALSE, nullptr))
    {
        for (Fetch& fetch : m_fetches)
        {
            fetch.request = MakeRequest(settings, fetch);
        }
    }

    FetchRun(const FetchRun&) = delete;
    FetchRun& operator=(const FetchRun&) = delete;

    ~FetchRun() = default;

    /// Runs them one after the other until all have ended or Ctrl+C has come.
    void Run()
    {
        m_startMs = ::GetTickCount64();
        queue_manager queue; // ends before the requests go
        for (const Fetch& fetch : m_fetches)
        {
            queue.add(fetch.request);
        }
        Require(queue.begin(kPeriodMs), L"the request queue");
        queue.OnTimer(); // the first one only arms it
        ProgressDisplay display(m_context.Messages());
        while (CountDone() < m_fetches.size() && !m_interrupt.IsSet())
        {
            const HANDLE events[] = {m_changed.Get(), m_interrupt.Event()};
            ::WaitForMultipleObjects(2, events, FALSE, display.IsShown() ? kRefreshMs : INFINITE);
            if (display.IsShown())
            {
                Show(display);
            }
        }
        // The exchange under way hears of Ctrl+C at its next status; one that has none is ended
        // with the queue.
        const ULONGLONG limit = ::GetTickCount64() + kPatienceMs;
        while (CountDone() < m_fetches.size() && ::GetTickCount64() < limit)
        {
            ::WaitForSingleObject(m_changed.Get(), kPeriodMs);
        }
    }

    /// Tells what became of each.
    ExitCode Finish()
    {
        ExitCode worst = ExitCode::done;
        ReportValue::Parts parts;
        for (const Fetch& fetch : m_fetches)
        {
            worst = std::max(worst, Finish(fetch, parts.emplace_back()));
        }
        m_context.Results().Add("fetched", ReportValue{std::move(parts)});
        m_context.SetAnswer({});
        return worst;
    }

private:
    std::shared_ptr<FetchRequest> MakeRequest(const FetchSettings& settings, const Fetch& fetch)
    {
        try
        {
            return std::make_shared<FetchRequest>(Utf8FromWide(fetch.url), settings, m_interrupt,
                                                  TargetOf(fetch, m_context),
                                                  [event = m_changed.Get()] { ::SetEvent(event); });
        }
        catch (const SystemException::HRESULT&)
        {
            throw WrongUsage{L"not an http or https URL: " + fetch.url};
        }
    }

    std::size_t CountDone() const
    {
        return static_cast<std::size_t>(
            std::count_if(m_fetches.begin(), m_fetches.end(),
                          [](const Fetch& fetch) { return fetch.request->IsDone(); }));
    }

    void Show(ProgressDisplay& display) const
    {
        FetchProgress progress{
            CountDone(), m_fetches.size(), "done", ::GetTickCount64() - m_startMs, 0, {}};
        std::string name;
        for (const Fetch& fetch : m_fetches)
        {
            progress.bytes += fetch.request->Bytes();
            if (name.empty() && !fetch.request->IsDone())
            {
                progress.phase = PhaseOf(fetch.request->Status());
                name = Utf8FromWide(fetch.url);
            }
        }
        progress.name = name;
        display.Show(progress);
    }

    ExitCode Finish(const Fetch& fetch, Report& report)
    {
        static const FetchOutcome kAbandoned{
            0, 0, CommandFailure{HRESULT_FROM_WIN32(ERROR_CANCELLED), L"the exchange"}};
        const FetchOutcome& outcome =
            fetch.request->IsDone() ? fetch.request->Outcome() : kAbandoned;
        report.Add("url", Utf8FromWide(fetch.url));
        if (outcome.failure)
        {
            AddFailure(report, *outcome.failure);
            m_context.Message(fetch.url + L": " + FailureMessage(*outcome.failure));
            return ExitCode::failed;
        }
        report.Add("status", static_cast<std::int64_t>(outcome.status));
        if (outcome.status < HTTP_STATUS_OK || outcome.status >= HTTP_STATUS_AMBIGUOUS)
        {
            m_context.Message(fetch.url + L": the server answered with status " +
                              std::to_wstring(outcome.status));
            return ExitCode::no;
        }
        if (outcome.status != HTTP_STATUS_OK)
        {
            m_context.Message(fetch.url + L": status " + std::to_wstring(outcome.status) +
                              L", whose body is not read");
            return ExitCode::done;
        }
        report.Add("bytes", static_cast<std::int64_t>(outcome.bytes));
        if (!fetch.file.empty())
        {
            report.Add("file", Utf8FromWide(fetch.file));
        }
        return ExitCode::done;
    }

    CommandContext& m_context;
    ULONGLONG m_startMs = 0;
    const Interrupt m_interrupt;
    std::vector<Fetch> m_fetches;
    UniqueKernelObject m_changed; // auto-reset; an exchange has ended
};
} // namespace

ExitCode RunFetch(const CommandLine& line, CommandContext& context)
{
    CheckUsage(line);
    const CLibraryUtils::SmartComInitializer com;
    FetchSettings settings{OptionsOf(line), line.Value("user"), line.Value("password"),
                           HeadersOf(line)};
    FetchRun run(line, settings, context);
    if (line.Has("password-file"))
    {
        settings.password =
            ReadPassword(line.Value("password-file"), settings.userName, context.Messages());
    }
    if (line.Has("folder"))
    {
        MakeFolder(FullPath(line.Value("folder")));
    }
    run.Run();
    return run.Finish();
}
} // namespace velt::tool
