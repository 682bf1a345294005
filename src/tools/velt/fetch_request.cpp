#include "tools/velt/fetch_request.h"

#include "connection/http_request.h"
#include "foundation/wide_text.h"

#include <algorithm>
#include <utility>

namespace velt::tool
{
namespace
{
/// A server that asks for credentials again and again does not like them: by design, the exchange
/// itself goes on for as long as it asks.
constexpr std::uint32_t kMostSends = 6;

CONNECTION_MANAGER::url_options WithUrl(CONNECTION_MANAGER::url_options options,
                                        const std::string& url)
{
    options.url = url;
    return options;
}

/// Has a request send one more header. The first one of its name takes the place of the request's
/// own.
void AddHeader(HINTERNET file, const RequestHeader& header, bool again)
{
    const std::wstring line = WideFromUtf8(header.name + ": " + header.value + "\r\n");
    const DWORD how =
        again ? HTTP_ADDREQ_FLAG_ADD : HTTP_ADDREQ_FLAG_ADD | HTTP_ADDREQ_FLAG_REPLACE;
    if (!::HttpAddRequestHeadersW(file, line.c_str(), static_cast<DWORD>(line.size()), how))
    {
        throw CInternetException(::GetLastError());
    }
}

void SetText(HINTERNET file, DWORD option, std::wstring text)
{
    if (!::InternetSetOptionW(file, option, text.data(), static_cast<DWORD>(text.size())))
    {
        throw CInternetException(::GetLastError());
    }
}
} // namespace

FetchRequest::FetchRequest(const std::string& url, const FetchSettings& settings,
                           const Interrupt& interrupt, BodyTarget target,
                           std::function<void()> done)
    : url_request(WithUrl(settings.options, url), this, nullptr),
      m_settings(settings),
      m_interrupt(interrupt),
      m_target(std::move(target)),
      m_onDone(std::move(done))
{
}

DWORD FetchRequest::Step(CONNECTION_MANAGER::connection_object&, const std::vector<std::string>&,
                         bool) noexcept
{
    if (m_interrupt.IsSet())
    {
        Fail(ERROR_CANCELLED);
        return kFinished;
    }
    const bool answered = CHTTPRequest<FetchRequest>(this).Execute(*this);
    m_file = nullptr;
    m_outcome.bytes = m_bytes;
    if (m_outcome.failure)
    {
        return kFinished;
    }
    if (answered)
    {
        m_outcome.status = m_error == 0 ? HTTP_STATUS_OK : m_error.load();
    }
    else if (m_interrupt.IsSet())
    {
        Fail(ERROR_CANCELLED);
    }
    else if (m_sent > kMostSends)
    {
        m_outcome.status = HTTP_STATUS_DENIED;
    }
    else
    {
        Fail(m_error);
    }
    return kFinished;
}

void FetchRequest::Complete(CONNECTION_MANAGER::connection_object&, DWORD*)
{
    m_done = true;
    m_onDone();
}

void FetchRequest::OnBody(const char* body, DWORD lengthBytes)
{
    try
    {
        RequireWhole(lengthBytes);
        m_target(body, lengthBytes);
    }
    catch (CommandFailure& failure)
    {
        m_outcome.failure = std::move(failure);
    }
}

void FetchRequest::OnOpened(CHttpFile& file)
{
    m_file = &file;
    const HINTERNET handle = file.GetHandle();
    const auto& headers = m_settings.headers;
    for (auto header = headers.begin(); header != headers.end(); ++header)
    {
        const bool again = std::any_of(headers.begin(), header, [&](const RequestHeader& earlier) {
            return IsSameHeader(earlier.name, header->name);
        });
        AddHeader(handle, *header, again);
    }
    const bool given = !m_settings.userName.empty(); // and not in the URL
    const std::wstring userName = given ? m_settings.userName : WideFromUtf8(GetUserName());
    if (!userName.empty())
    {
        SetText(handle, INTERNET_OPTION_USERNAME, userName);
        SetText(handle, INTERNET_OPTION_PASSWORD,
                given ? m_settings.password : WideFromUtf8(GetPassword()));
    }
}

void FetchRequest::OnProgress(std::size_t sizeBytes) noexcept
{
    m_bytes = static_cast<std::uint32_t>(sizeBytes);
}

void FetchRequest::OnError(DWORD error)
{
    m_error = error;
}

void FetchRequest::OnComplete() {}

bool FetchRequest::OnStatus(DWORD status, DWORD_PTR)
{
    m_status = status;
    if (status == INTERNET_STATUS_SENDING_REQUEST)
    {
        ++m_sent;
    }
    else if (status == INTERNET_STATUS_REDIRECT)
    {
        m_sent = 0;
    }
    return m_interrupt.IsSet() || m_sent > kMostSends;
}

void FetchRequest::Fail(DWORD error) noexcept
{
    m_noExchange.code = HRESULT_FROM_WIN32(error);
    m_outcome.failure = std::move(m_noExchange);
}

void FetchRequest::RequireWhole(DWORD lengthBytes) const
{
    constexpr DWORD kUnknown = 0xFFFFFFFF;
    DWORD announced = kUnknown;
    DWORD size = sizeof(announced);
    m_file->QueryInfo(HTTP_QUERY_CONTENT_LENGTH | HTTP_QUERY_FLAG_NUMBER, &announced, &size,
                      nullptr);
    if (announced != kUnknown && announced > lengthBytes && GetVerb() != "HEAD")
    {
        throw CommandFailure{HRESULT_FROM_WIN32(ERROR_HANDLE_EOF), L"the body is incomplete"};
    }
}
} // namespace velt::tool
