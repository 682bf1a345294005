#include "tests/support/http_server.h"
#include "tests/torture/exchange_library.h"
#include "tests/torture/trial.h"

namespace velt::torture
{
namespace
{
using velt::test::HttpAnswer;
using velt::test::HttpExchange;
using velt::test::HttpServer;

constexpr char kBody[] = "the body";

template <class Function>
Function* Exported(const char* name)
{
    static const HMODULE library = [] {
        const HMODULE loaded = ::LoadLibraryW(L"torture_exchange.dll");
        if (!loaded)
        {
            throw std::runtime_error("torture_exchange.dll is not beside the program");
        }
        FaultEngine::Install(loaded);
        return loaded;
    }();
    return reinterpret_cast<Function*>(reinterpret_cast<void*>(::GetProcAddress(library, name)));
}

#define VELT_EXPORTED(function) Exported<decltype(function)>(#function)

/// Systems keep an entry of each server that they have met, so all exchanges have the same one.
class Server
{
public:
    Server() = default;

    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    ~Server() = default;

    static Server& Instance()
    {
        static Server server;
        return server;
    }

    /// While nobody asks it; what it was asked before is forgotten.
    std::string Answers(HttpServer::Answer answer)
    {
        m_server.Forget();
        m_answer = std::move(answer);
        return "http://127.0.0.1:" + std::to_string(m_server.Port()) + "/page";
    }

    INTERNET_PORT Port() const noexcept
    {
        return m_server.Port();
    }

private:
    HttpServer::Answer m_answer;
    HttpServer m_server{[this](HttpExchange& exchange) { m_answer(exchange); }};
};

const velt::test::RefusingPort& NobodysPort()
{
    static const velt::test::RefusingPort port;
    return port;
}

std::string UrlOf(INTERNET_PORT port)
{
    return "http://127.0.0.1:" + std::to_string(port) + "/page";
}

/// One outcome, told once: a body, or an error. `error` is the ordinary one; 0 for a body.
void CheckOutcome(Trial& trial, HRESULT hr, const ExchangeOutcome& outcome, DWORD error,
                  const std::string& body)
{
    const bool hasBegun = SUCCEEDED(hr) && outcome.completions > 0;
    trial.Check(outcome.completions <= 1, "completed more than once");
    trial.Check(!outcome.hasBody || outcome.errors == 0, "a body and an error");
    trial.Check(!hasBegun || outcome.hasBody || outcome.errors > 0, "neither a body nor an error");
    trial.Check(!outcome.hasBody || outcome.body == body, "the body is not whole");
    trial.CheckOrdinary(outcome.completions == 1, "not completed");
    trial.CheckOrdinary(outcome.lastError == error, "error " + std::to_string(outcome.lastError));
    trial.CheckOrdinary(outcome.hasBody == (error == 0), "another outcome");
    trial.Check(VELT_EXPORTED(TortureOpenHandles)() == 0, "internet handles are left");
}

void Fetch(Trial& trial, const std::string& url, DWORD error, const std::string& body,
           const char* user = nullptr, const char* data = nullptr)
{
    auto* const fetch = VELT_EXPORTED(TortureFetch);
    ExchangeOutcome outcome;
    const HRESULT hr = trial.Act(
        [&] { return fetch(url.c_str(), user, user ? "secret" : nullptr, data, &outcome); });
    CheckOutcome(trial, hr, outcome, error, body);
}

void FetchFrom(Trial& trial, const HttpServer::Answer& answer, DWORD error,
               const std::string& body = {}, const char* user = nullptr, const char* data = nullptr)
{
    Fetch(trial, Server::Instance().Answers(answer), error, body, user, data);
}

void CutOff(HttpExchange& exchange)
{
    exchange.Reset();
}

/// An exchange that is cut off, and not read.
void CutOffBare()
{
    Server& server = Server::Instance();
    server.Answers(&CutOff);
    const HINTERNET session =
        ::InternetOpenW(L"bare", INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0);
    const HINTERNET connection = ::InternetConnectW(session, L"127.0.0.1", server.Port(), nullptr,
                                                    nullptr, INTERNET_SERVICE_HTTP, 0, 0);
    const HINTERNET request =
        ::HttpOpenRequestW(connection, L"GET", L"/page", nullptr, nullptr, nullptr,
                           INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_CACHE_WRITE, 0);
    ::HttpSendRequestW(request, nullptr, 0, nullptr, 0);
    for (const HINTERNET handle : {request, connection, session})
    {
        ::InternetCloseHandle(handle);
    }
}

/// What the system is asked about its proxies.
void AskForProxyBare()
{
    INTERNET_PER_CONN_OPTIONW option{};
    option.dwOption = INTERNET_PER_CONN_FLAGS;
    INTERNET_PER_CONN_OPTION_LISTW list{};
    list.dwSize = sizeof(list);
    list.dwOptionCount = 1;
    list.pOptions = &option;
    DWORD size = sizeof(list);
    ::InternetQueryOptionW(nullptr, INTERNET_OPTION_PER_CONNECTION_OPTION, &list, &size);
}
} // namespace

void AddExchangeOperations(std::vector<Operation>& operations)
{
    const auto add = [&](const char* room, const char* name, std::function<void(Trial&)> run) {
        operations.push_back({room, name, std::move(run)});
    };
    add("connection", "An exchange: a body", [](Trial& trial) {
        FetchFrom(
            trial, [](HttpExchange& exchange) { exchange.Send(HttpAnswer("200 OK", kBody)); }, 0,
            kBody);
    });
    add("connection", "An exchange: an empty body", [](Trial& trial) {
        FetchFrom(
            trial, [](HttpExchange& exchange) { exchange.Send(HttpAnswer("200 OK", "")); }, 0);
    });
    add("connection", "An exchange: data is sent", [](Trial& trial) {
        FetchFrom(
            trial, [](HttpExchange& exchange) { exchange.Send(HttpAnswer("200 OK", kBody)); }, 0,
            kBody, nullptr, "name=value");
    });
    add("connection", "An exchange: not found", [](Trial& trial) {
        FetchFrom(
            trial, [](HttpExchange& exchange) { exchange.Send(HttpAnswer("404 No", kBody)); },
            HTTP_STATUS_NOT_FOUND);
    });
    add("connection", "An exchange: moved", [](Trial& trial) {
        FetchFrom(
            trial,
            [](HttpExchange& exchange) {
                const bool isFirst = exchange.Request().find("/page") != std::string::npos;
                exchange.Send(isFirst ? HttpAnswer("302 Found", "", "Location: /other\r\n")
                                      : HttpAnswer("200 OK", kBody));
            },
            0, kBody);
    });
    add("connection", "An exchange: a password is asked for", [](Trial& trial) {
        FetchFrom(
            trial,
            [](HttpExchange& exchange) {
                const bool isKnown = exchange.Number() > 0;
                exchange.Send(
                    isKnown ? HttpAnswer("200 OK", kBody)
                            : HttpAnswer("401 Who", "", "WWW-Authenticate: Basic realm=\"r\"\r\n"));
            },
            0, kBody, "user");
    });
    operations.push_back(
        {"connection", "An exchange: cut off",
         [](Trial& trial) { FetchFrom(trial, &CutOff, ERROR_HTTP_INVALID_SERVER_RESPONSE); },
         &CutOffBare});
    add("connection", "An exchange: nobody listens", [](Trial& trial) {
        Fetch(trial, UrlOf(NobodysPort().Port()), ERROR_INTERNET_CANNOT_CONNECT, {});
    });
    operations.push_back(
        {"connection", "An exchange: no URL", [](Trial& trial) {
             auto* const fetch = VELT_EXPORTED(TortureFetch);
             ExchangeOutcome outcome;
             trial.Act(
                 [&] { return fetch("ftp://127.0.0.1/", nullptr, nullptr, nullptr, &outcome); },
                 E_INVALIDARG);
             trial.Check(outcome.completions == 0, "completed");
         }});
    add("connection", "A queue with an exchange", [](Trial& trial) {
        const std::string url = Server::Instance().Answers(
            [](HttpExchange& exchange) { exchange.Send(HttpAnswer("200 OK", kBody)); });
        auto* const queue = VELT_EXPORTED(TortureQueue);
        ExchangeOutcome outcome;
        const DWORD limitMs = trial.HasFaults() ? 4000 : 30'000; // a worker may end by its fault
        const HRESULT hr =
            trial.Act([&] { return queue(url.c_str(), limitMs, &outcome); }, S_OK, {E_FAIL});
        CheckOutcome(trial, hr, outcome, 0, kBody);
    });
    operations.push_back({"connection", "The connected state", [](Trial& trial) {
                              auto* const probe = VELT_EXPORTED(TortureProbe);
                              DWORD flags = 0;
                              trial.Act([&] { return probe(&flags); }, S_OK, {S_FALSE});
                          }});
    operations.push_back({"connection", "A connection that is checked",
                          [](Trial& trial) {
                              const std::wstring url = L"http://127.0.0.1:" +
                                                       std::to_wstring(NobodysPort().Port()) + L"/";
                              auto* const check = VELT_EXPORTED(TortureCheckConnection);
                              DWORD state = 0;
                              trial.Act([&] { return check(url.c_str(), &state); }, E_FAIL, {S_OK});
                          },
                          &AskForProxyBare});
    operations.push_back({"connection", "An echo", [](Trial& trial) {
                              auto* const ping = VELT_EXPORTED(TorturePing);
                              HRESULT hr = E_UNEXPECTED;
                              trial.Do([&] { hr = ping("127.0.0.1"); });
                              trial.Check(hr == S_OK || hr == E_FAIL || hr == E_OUTOFMEMORY,
                                          "another answer");
                          }});
    operations.push_back({"internet", "The proxy and its settings",
                          [](Trial& trial) {
                              auto* const settings = VELT_EXPORTED(TortureProxySettings);
                              trial.Act([&] { return settings(); });
                          },
                          &AskForProxyBare});
    operations.push_back({"internet", "A connection's properties", [](Trial& trial) {
                              auto* const properties = VELT_EXPORTED(TortureProperties);
                              trial.Act([&] { return properties(); });
                          }});
}
} // namespace velt::torture
