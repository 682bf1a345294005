// A compiled host of the component's own libraries: it fetches through the request queue, watches
// each exchange on its event sink, checks the bodies, and asks whether the machine is connected.
//
// Run it beside the servers that scripts/with_servers.sh starts:
//   scripts/with_servers.sh scripts/in_wine.sh build/wine/fetch
//   build/release/samples/fetch_host.exe

#include "connection/queue_manager.h"
#include "connection/url_request.h"
#include "foundation/library_utils.h"
#include "foundation/unique_handle.h"
#include "internet/handle_registry.h"

#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>

using CONNECTION_MANAGER::queue_manager;
using CONNECTION_MANAGER::url_options;
using CONNECTION_MANAGER::url_request;

namespace
{
constexpr DWORD kPeriodMs = 10;
constexpr DWORD kLimitMs = 60'000;
constexpr std::size_t kLargeBytes = std::size_t{64} << 20;
constexpr int kEnough = 3; // times that an unanswerable question for credentials is put up with

std::string Setting(const char* name)
{
    const char* const value = std::getenv(name);
    if (!value)
    {
        throw std::runtime_error(std::string(name) + " is not set: run scripts/with_servers.sh");
    }
    return value;
}

/// Counts what an exchange reports, and tells when it is over. A server that asks for credentials
/// again and again is given up.
class Watcher final : public CHTTPEvent
{
public:
    Watcher() : m_complete(::CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}

    void OnError(DWORD error) override
    {
        std::printf("        error %lu\n", error);
    }

    void OnComplete() override
    {
        ::SetEvent(m_complete.Get());
    }

    bool OnStatus(DWORD status, DWORD_PTR) override
    {
        return ++m_statuses[status] > kEnough && status == INTERNET_STATUS_RECEIVING_RESPONSE &&
               m_impatient;
    }

    void GiveUpSoon()
    {
        m_impatient = true;
    }

    void Print() const
    {
        std::printf("        statuses:");
        for (const auto& [status, times] : m_statuses)
        {
            std::printf(" %lu x%d", status, times);
        }
        std::printf("\n");
    }

    void Wait() const
    {
        if (::WaitForSingleObject(m_complete.Get(), kLimitMs) != WAIT_OBJECT_0)
        {
            throw std::runtime_error("an exchange did not end");
        }
    }

private:
    velt::UniqueKernelObject m_complete;
    std::map<DWORD, int> m_statuses;
    bool m_impatient = false;
};

/// Fills in the body that the server's large page has: lines of 63 digits, each its own number.
bool IsLargeBody(const std::string& body)
{
    if (body.size() != kLargeBytes)
    {
        return false;
    }
    char line[65];
    for (std::size_t at = 0; at < body.size(); at += 64)
    {
        std::snprintf(line, sizeof(line), "%063u\n", static_cast<unsigned>(at / 64));
        if (body.compare(at, 64, line, 64) != 0)
        {
            return false;
        }
    }
    return true;
}

/// Queues one request and prints what came of it. Returns the body, empty without one.
std::string Fetch(queue_manager& queue, const url_options& options, bool giveUpSoon = false)
{
    std::printf("    %s %s%s%s\n", options.verb.c_str(), options.url.c_str(),
                options.proxy.empty() ? "" : " through ", options.proxy.c_str());
    Watcher watcher;
    if (giveUpSoon)
    {
        watcher.GiveUpSoon();
    }
    const auto request = std::make_shared<url_request>(options, &watcher, nullptr);
    queue.add(request);
    watcher.Wait();
    while (request.use_count() > 1) // the queue lets go of it a moment later
    {
        ::Sleep(1);
    }
    watcher.Print();
    const auto& body = request->GetBody();
    std::printf("        body: %s\n",
                body ? (std::to_string(body->size()) + " bytes").c_str() : "none");
    return body.value_or(std::string());
}

void Expect(bool condition, const char* what)
{
    std::printf("        %s: %s\n", what, condition ? "yes" : "NO");
    if (!condition)
    {
        throw std::runtime_error(std::string("not as expected: ") + what);
    }
}

void FetchAll(const std::string& site, const std::string& proxy)
{
    queue_manager queue;
    if (FAILED(queue.begin(kPeriodMs)))
    {
        throw std::runtime_error("the queue does not start");
    }
    url_options options;
    options.url = site + "/plain.txt";
    Expect(Fetch(queue, options) == "plain text\n", "the plain page is right");

    options.url = site + "/large";
    Expect(IsLargeBody(Fetch(queue, options)), "every byte of 64 MiB is right");

    options.url = site + "/no-such-page";
    Expect(Fetch(queue, options).empty(), "no body without the page");

    // By design the credentials go as narrow bytes where the API takes wide text, and the exchange
    // asks again for as long as the server says 401: the sink is what ends it.
    options.url = site + "/private/";
    options.userName = "user";
    options.password = "secret";
    const std::string secret = Fetch(queue, options, true);
    std::printf("        the private page: %s\n", secret.empty() ? "given up" : secret.c_str());

    url_options proxied;
    proxied.url = site + "/plain.txt";
    proxied.proxy = proxy;
    Expect(Fetch(queue, proxied) == "plain text\n", "the page through the proxy is right");
}

void AskForConnection(const std::string& site)
{
    std::printf("the machine's connection:\n");
    const velt::ConnectionProbe probe;
    DWORD flags = 0;
    std::printf("    connected state: %s\n", probe.IsConnected(&flags) == S_OK ? "yes" : "no");
    DWORD state = 0;
    const std::wstring url(site.begin(), site.end());
    const HRESULT hr = probe.CheckConnection(url.c_str(), &state);
    std::printf("    forced check of %s: 0x%08lX, state %lu\n", site.c_str(),
                static_cast<unsigned long>(hr), state);
    std::printf("    echo of 127.0.0.1: %s\n",
                probe.Ping("127.0.0.1", 1000) == S_OK ? "answered" : "not answered");
}
} // namespace

int main()
{
    try
    {
        const CLibraryUtils::SmartComInitializer com;
        const std::string site = "http://127.0.0.1:" + Setting("VELT_HTTP_PORT");
        std::printf("fetching through the request queue:\n");
        FetchAll(site, "127.0.0.1:" + Setting("VELT_PROXY_PORT"));
        std::printf("    handles left open: %zu\n", velt::HandleRegistry::Instance().Size());
        AskForConnection(site);
        return 0;
    }
    catch (const std::exception& e)
    {
        std::fprintf(stderr, "fetch_host: %s\n", e.what());
        return 1;
    }
    catch (...)
    {
        std::fprintf(stderr, "fetch_host: failed\n");
        return 1;
    }
}
