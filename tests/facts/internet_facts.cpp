#include "tests/facts/fact.h"
#include "tests/support/http_server.h"

#include <windows.h>

#include <wininet.h>

#include <algorithm>
#include <functional>
#include <utility>
#include <vector>

namespace velt::facts
{
namespace
{
using test::HttpAnswer;
using test::HttpExchange;
using test::HttpServer;

constexpr DWORD kNoCache = INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_CACHE_WRITE;

/// A session, a connection to a server of this machine and a request, closed in the other order.
class Request
{
public:
    explicit Request(INTERNET_PORT port, const wchar_t* path = L"/", DWORD flags = kNoCache,
                     const wchar_t* referer = nullptr)
        : session(::InternetOpenW(L"VeltFacts", INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0)),
          connection(::InternetConnectW(session, L"127.0.0.1", port, nullptr, nullptr,
                                        INTERNET_SERVICE_HTTP, 0, 0)),
          request(::HttpOpenRequestW(connection, L"GET", path, nullptr, referer, nullptr, flags, 1))
    {
        Need(request != nullptr, "no request");
    }

    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    ~Request()
    {
        ::InternetCloseHandle(request);
        ::InternetCloseHandle(connection);
        ::InternetCloseHandle(session);
    }

    bool Send() const
    {
        return ::HttpSendRequestW(request, nullptr, 0, nullptr, 0) != FALSE;
    }

    DWORD Status() const
    {
        DWORD status = 0;
        DWORD size = sizeof(status);
        ::HttpQueryInfoW(request, HTTP_QUERY_STATUS_CODE | HTTP_QUERY_FLAG_NUMBER, &status, &size,
                         nullptr);
        return status;
    }

    /// The whole body; 0, or the error of a read.
    DWORD Read() const
    {
        std::array<char, 512> part{};
        DWORD done = 0;
        do
        {
            if (!::InternetReadFile(request, part.data(), static_cast<DWORD>(part.size()), &done))
            {
                return ::GetLastError();
            }
        } while (done > 0);
        return 0;
    }

    HINTERNET session;
    HINTERNET connection;
    HINTERNET request;
};

std::string UnknownAccess()
{
    const HINTERNET session = ::InternetOpenW(L"VeltFacts", 77, nullptr, nullptr, 0);
    if (!session)
    {
        return "fails";
    }
    ::InternetCloseHandle(session);
    return "opens a session";
}

std::string EmptyAnswer()
{
    HttpServer server(std::string{});
    const Request request(server.Port());
    return request.Send() ? "status " + std::to_string(request.Status())
                          : ErrorNumber(::GetLastError());
}

std::string NoStatusLine()
{
    HttpServer server(std::string("this is no answer\r\n\r\n"));
    const Request request(server.Port());
    return request.Send() ? "status " + std::to_string(request.Status())
                          : ErrorNumber(::GetLastError());
}

std::string ResetAnswer()
{
    HttpServer server([](HttpExchange& exchange) {
        exchange.Send("HTTP/1.1 200 OK\r\nContent-Length: 5000\r\n\r\n0123456789");
        exchange.Reset();
    });
    const Request request(server.Port());
    if (!request.Send())
    {
        return "at sending, " + ErrorNumber(::GetLastError());
    }
    const DWORD error = request.Read();
    return error == 0 ? "taken for whole" : ErrorNumber(error);
}

std::string ShortAnswer()
{
    HttpServer server(std::string("HTTP/1.1 200 OK\r\nContent-Length: 5000\r\n\r\n0123456789"));
    const Request request(server.Port());
    Need(request.Send(), "not sent");
    const DWORD error = request.Read();
    return error == 0 ? "taken for whole" : ErrorNumber(error);
}

/// What a status callback sees while this is in scope; one at a time.
class Watch
{
public:
    Watch();

    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    ~Watch();

    std::vector<std::pair<HINTERNET, DWORD>> statuses;
    HINTERNET toClose = nullptr;
    DWORD closeAt = 0;
    bool otherThread = false;
    DWORD thread = ::GetCurrentThreadId();
};

Watch* g_watch = nullptr;

Watch::Watch()
{
    g_watch = this;
}

Watch::~Watch()
{
    g_watch = nullptr;
}

void CALLBACK Observe(HINTERNET handle, DWORD_PTR, DWORD status, void*, DWORD) noexcept
{
    if (!g_watch)
    {
        return;
    }
    g_watch->otherThread |= ::GetCurrentThreadId() != g_watch->thread;
    if (g_watch->statuses.size() < 1000)
    {
        g_watch->statuses.emplace_back(handle, status);
    }
    if (status == g_watch->closeAt && g_watch->toClose)
    {
        ::InternetCloseHandle(std::exchange(g_watch->toClose, nullptr));
    }
}

std::string StatusThreads()
{
    HttpServer server(HttpAnswer("200 OK", "x"));
    const Request request(server.Port());
    Watch watch;
    ::InternetSetStatusCallbackW(request.request, &Observe);
    request.Send();
    request.Read();
    ::InternetSetStatusCallbackW(request.request, nullptr);
    return Choose(watch.otherThread, "some on other threads", "on the caller's thread");
}

std::string CloseInCallback()
{
    HttpServer server(HttpAnswer("200 OK", "x"));
    const Request request(server.Port());
    Watch watch;
    watch.toClose = request.session;
    watch.closeAt = INTERNET_STATUS_REQUEST_SENT;
    ::InternetSetStatusCallbackW(request.request, &Observe);
    return request.Send() ? "TRUE" : ErrorNumber(::GetLastError());
}

std::string SessionsEnd()
{
    Watch watch;
    const HINTERNET session =
        ::InternetOpenW(L"VeltFacts", INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0);
    ::InternetSetStatusCallbackW(session, &Observe);
    const HINTERNET connection = ::InternetConnectW(session, L"127.0.0.1", 80, nullptr, nullptr,
                                                    INTERNET_SERVICE_HTTP, 0, 1);
    const HINTERNET request =
        ::HttpOpenRequestW(connection, L"GET", L"/", nullptr, nullptr, nullptr, kNoCache, 1);
    Need(request != nullptr, "no request");
    ::InternetCloseHandle(session);
    const auto closed = [&](HINTERNET handle) {
        return std::find(watch.statuses.begin(), watch.statuses.end(),
                         std::pair<HINTERNET, DWORD>(handle, INTERNET_STATUS_HANDLE_CLOSING)) !=
               watch.statuses.end();
    };
    const bool both = closed(request) && closed(connection);
    const bool later = ::InternetCloseHandle(request) != FALSE;
    const DWORD error = ::GetLastError();
    return std::string(both ? "at once" : "not at once") + ", a later close answers " +
           (later ? "TRUE" : "FALSE with " + ErrorNumber(error));
}

/// A server that wants a user; what of him came in the end.
std::string Authorization(const std::vector<std::string>& requests)
{
    for (const std::string& request : requests)
    {
        constexpr std::string_view kHead = "Authorization: Basic ";
        const auto at = request.find(kHead);
        if (at != std::string::npos)
        {
            const auto start = at + kHead.size();
            return "sent as " + request.substr(start, request.find('\r', start) - start);
        }
    }
    return "not sent";
}

std::string AnswerTo(HttpExchange& exchange)
{
    return exchange.Request().find("Authorization:") == std::string::npos
               ? HttpAnswer("401 Unauthorized", "", "WWW-Authenticate: Basic realm=\"facts\"\r\n")
               : HttpAnswer("200 OK", "x");
}

/// A user "us" with the password "pw", set as wide texts or as bytes, on the session or the
/// request.
std::string Credentials(bool onSession, bool wide)
{
    HttpServer server([](HttpExchange& exchange) { exchange.Send(AnswerTo(exchange)); });
    const HINTERNET session =
        ::InternetOpenW(L"VeltFacts", INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0);
    const auto set = [wide](HINTERNET handle, DWORD option, const char* narrow,
                            const wchar_t* text) {
        return wide ? ::InternetSetOptionW(handle, option, const_cast<wchar_t*>(text), 2)
                    : ::InternetSetOptionA(handle, option, const_cast<char*>(narrow), 2);
    };
    BOOL taken = TRUE;
    if (onSession)
    {
        taken = set(session, INTERNET_OPTION_USERNAME, "us", L"us") &&
                set(session, INTERNET_OPTION_PASSWORD, "pw", L"pw");
    }
    const DWORD error = ::GetLastError();
    const HINTERNET connection = ::InternetConnectW(session, L"127.0.0.1", server.Port(), nullptr,
                                                    nullptr, INTERNET_SERVICE_HTTP, 0, 0);
    const HINTERNET request = ::HttpOpenRequestW(connection, L"GET", L"/", nullptr, nullptr,
                                                 nullptr, kNoCache | INTERNET_FLAG_NO_UI, 1);
    if (!onSession)
    {
        taken = set(request, INTERNET_OPTION_USERNAME, "us", L"us") &&
                set(request, INTERNET_OPTION_PASSWORD, "pw", L"pw");
    }
    std::string answer = taken ? "taken" : "refused with " + ErrorNumber(error);
    // Whoever has the system take credentials sends a second time after a refusal.
    for (int i = 0; i < 2 && request; ++i)
    {
        ::HttpSendRequestW(request, nullptr, 0, nullptr, 0);
        std::array<char, 64> rest{};
        DWORD done = 0;
        ::InternetReadFile(request, rest.data(), static_cast<DWORD>(rest.size()), &done);
    }
    ::InternetCloseHandle(request);
    ::InternetCloseHandle(connection);
    ::InternetCloseHandle(session);
    return answer + ", " + Authorization(server.Requests());
}

std::string SessionCredentials()
{
    return Credentials(true, true);
}

std::string SessionCredentialsAsBytes()
{
    return Credentials(true, false);
}

std::string RequestCredentials()
{
    return Credentials(false, true);
}

std::string Crack(const wchar_t* url)
{
    std::array<wchar_t, 4096> host{};
    std::array<wchar_t, 4096> path{};
    URL_COMPONENTSW parts{};
    parts.dwStructSize = sizeof(parts);
    parts.lpszHostName = host.data();
    parts.dwHostNameLength = static_cast<DWORD>(host.size());
    parts.lpszUrlPath = path.data();
    parts.dwUrlPathLength = static_cast<DWORD>(path.size());
    if (!::InternetCrackUrlW(url, 0, 0, &parts))
    {
        return ErrorNumber(::GetLastError());
    }
    return "port " + std::to_string(parts.nPort);
}

std::string GopherUrl()
{
    return Crack(L"gopher://127.0.0.1/1x");
}

std::string LongUrl()
{
    return Crack((L"http://127.0.0.1/" + std::wstring(3000, L'x')).c_str());
}

std::string EmptyReferer()
{
    HttpServer server(HttpAnswer("200 OK", "x"));
    const Request request(server.Port(), L"/", kNoCache, L"");
    Need(request.Send(), "not sent");
    return Choose(server.Requests().at(0).find("Referer:") == std::string::npos, "sends none",
                  "sends an empty one");
}

/// A name of the loopback address for each question, so that none sees another one's cookies.
std::wstring CookieUrl(const wchar_t* path)
{
    return std::wstring(L"http://127.0.0.1/veltfacts/") + path;
}

/// Whether a cookie that ended long ago is taken out, which shows that its date was understood.
std::string CookieDate(const char* expires)
{
    const std::wstring url = CookieUrl(L"date");
    const std::string narrow(url.begin(), url.end());
    Need(::InternetSetCookieA(narrow.c_str(), nullptr, "velt=1"), "no cookie");
    const std::string ended = std::string("velt=2; expires=") + expires;
    ::InternetSetCookieA(narrow.c_str(), nullptr, ended.c_str());
    std::array<char, 256> text{};
    auto size = static_cast<DWORD>(text.size());
    const bool there = ::InternetGetCookieA(narrow.c_str(), nullptr, text.data(), &size) &&
                       std::string(text.data()).find("velt=") != std::string::npos;
    return !there ? "understood"
                  : Choose(std::string(text.data()).find("velt=2") != std::string::npos,
                           "not understood", "the cookie is refused");
}

std::string PaddedDate()
{
    return CookieDate("Sat, 5-May-2007  9: 4: 0 GMT");
}

std::string PlainDate()
{
    return CookieDate("Sat, 05-May-2007 09:04:00 GMT");
}

std::string CookieSizes()
{
    const std::wstring url = CookieUrl(L"sizes");
    Need(::InternetSetCookieW(url.c_str(), nullptr, L"velt=123456"), "no cookie"); // 11 characters
    DWORD asked = 0;
    const BOOL without = ::InternetGetCookieW(url.c_str(), nullptr, nullptr, &asked);
    std::array<wchar_t, 256> text{};
    DWORD small = 4;
    const BOOL cut = ::InternetGetCookieW(url.c_str(), nullptr, text.data(), &small);
    const DWORD error = ::GetLastError();
    auto large = static_cast<DWORD>(text.size());
    const BOOL whole = ::InternetGetCookieW(url.c_str(), nullptr, text.data(), &large);
    return "asked " + std::string(without ? "TRUE " : "FALSE ") + std::to_string(asked) +
           ", small " + (cut ? "TRUE " : ErrorNumber(error) + " ") + std::to_string(small) +
           ", whole " + (whole ? "TRUE " : "FALSE ") + std::to_string(large);
}

/// How many of two requests for the same reach the server.
std::string Cached(const char* headers)
{
    HttpServer server(HttpAnswer("200 OK", "x", headers));
    const std::wstring url = L"http://127.0.0.1:" + std::to_wstring(server.Port()) + L"/cached";
    for (int i = 0; i < 2; ++i)
    {
        const Request request(server.Port(), L"/cached", 0);
        Need(request.Send() && request.Read() == 0, "not read");
    }
    ::DeleteUrlCacheEntryW(url.c_str());
    return std::to_string(server.Requests().size()) + " request(s)";
}

std::string CachedWithoutHeaders()
{
    return Cached("");
}

std::string CachedWithAge()
{
    return Cached("Cache-Control: max-age=3600\r\n");
}

std::string CachedWithDate()
{
    return Cached("Last-Modified: Sat, 05 May 2007 09:04:00 GMT\r\n");
}

constexpr Fact kFacts[] = {
    {"internet.unknown-access", &UnknownAccess},
    {"internet.empty-answer", &EmptyAnswer},
    {"internet.no-status-line", &NoStatusLine},
    {"internet.reset-answer", &ResetAnswer},
    {"internet.short-answer", &ShortAnswer},
    {"internet.status-threads", &StatusThreads},
    {"internet.close-in-callback", &CloseInCallback},
    {"internet.sessions-end", &SessionsEnd},
    {"internet.session-credentials", &SessionCredentials},
    {"internet.session-credentials-as-bytes", &SessionCredentialsAsBytes},
    {"internet.request-credentials", &RequestCredentials},
    {"internet.gopher-url", &GopherUrl},
    {"internet.long-url", &LongUrl},
    {"internet.empty-referer", &EmptyReferer},
    {"internet.padded-cookie-date", &PaddedDate},
    {"internet.plain-cookie-date", &PlainDate},
    {"internet.cookie-sizes", &CookieSizes},
    {"internet.cached-without-headers", &CachedWithoutHeaders},
    {"internet.cached-with-age", &CachedWithAge},
    {"internet.cached-with-date", &CachedWithDate},
};
} // namespace

std::span<const Fact> InternetFacts()
{
    return kFacts;
}
} // namespace velt::facts
