// What the request queue costs, each measure beside a known one in the same run and process. Runs
// beside the servers of scripts/with_servers.sh.

#include "connection/queue_manager.h"
#include "connection/url_request.h"
#include "foundation/find_function.h"
#include "foundation/library_utils.h"
#include "foundation/system_exception.h"
#include "foundation/unique_handle.h"
#include "foundation/utrace.h"
#include "foundation/wide_text.h"
#include "internet/file_url.h"
#include "internet/parse_url.h"
#include "internet/proxy_text.h"
#include "tests/benchmarks/paired.h"
#include "tests/benchmarks/table.h"
#include "tests/support/process_usage.h"

#include <winsock2.h>

#include <windows.h>

#include <wininet.h>

#include <comdef.h>
#include <psapi.h>
#include <wrl/client.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

using CONNECTION_MANAGER::connection_object;
using CONNECTION_MANAGER::queue_manager;
using CONNECTION_MANAGER::url_options;
using CONNECTION_MANAGER::url_request;
using Microsoft::WRL::ComPtr;
using velt::bench::MeasurePaired;
using velt::bench::NanosecondsOf;
using velt::bench::PairedTimes;

namespace
{
constexpr std::size_t kLargeBytes = std::size_t{64} << 20;
constexpr DWORD kLimitMs = 60'000;
constexpr DWORD kPollMs = 10; // the worker's

void Check(bool condition, const char* what)
{
    if (!condition)
    {
        throw std::runtime_error(what);
    }
}

/// Waits for the end of an exchange and lets everything go on.
class Ending final : public CHTTPEvent
{
public:
    Ending() : m_complete(::CreateEventW(nullptr, FALSE, FALSE, nullptr)) {}

    void OnError(DWORD error) override
    {
        m_error = error;
    }

    void OnComplete() override
    {
        ::SetEvent(m_complete.Get());
    }

    bool OnStatus(DWORD, DWORD_PTR) override
    {
        return false;
    }

    void Wait()
    {
        Check(::WaitForSingleObject(m_complete.Get(), kLimitMs) == WAIT_OBJECT_0, "no end came");
        Check(m_error == 0, "an exchange failed");
    }

private:
    velt::UniqueKernelObject m_complete;
    DWORD m_error = 0;
};

/// A request that measures its step.
class TimedRequest final : public url_request
{
public:
    TimedRequest(const url_options& options, CHTTPEvent* event)
        : url_request(options, event, nullptr)
    {
    }

    DWORD Step(connection_object& connection, const std::vector<std::string>& hosts,
               bool mayConnect) override
    {
        DWORD result = 0;
        m_stepNs =
            NanosecondsOf([&] { result = url_request::Step(connection, hosts, mayConnect); });
        return result;
    }

    double StepNs() const noexcept
    {
        return m_stepNs;
    }

private:
    double m_stepNs = 0;
};

/// Fetches through the queue; returns the time inside the step.
double FetchQueued(queue_manager& queue, const std::string& url, std::size_t size)
{
    Ending ending;
    url_options options;
    options.url = url;
    const auto request = std::make_shared<TimedRequest>(options, &ending);
    queue.add(request);
    ending.Wait();
    while (request.use_count() > 1)
    {
        ::Sleep(1); // leaves the processor to the worker
    }
    Check(request->GetBody() && request->GetBody()->size() == size, "a body is wrong");
    return request->StepNs();
}

struct InternetTraits
{
    using Type = HINTERNET;

    static Type Invalid() noexcept
    {
        return nullptr;
    }

    static void Close(Type handle) noexcept
    {
        ::InternetCloseHandle(handle);
    }
};
using UniqueInternet = velt::UniqueHandle<InternetTraits>;

/// The same with nothing around the internet API: read by 8192 bytes into one growing buffer.
void FetchBare(INTERNET_PORT port, const wchar_t* object, std::size_t size)
{
    const UniqueInternet session(
        ::InternetOpenW(L"bench", INTERNET_OPEN_TYPE_PRECONFIG, nullptr, nullptr, 0));
    const UniqueInternet connection(::InternetConnectW(session.Get(), L"127.0.0.1", port, nullptr,
                                                       nullptr, INTERNET_SERVICE_HTTP, 0, 0));
    const UniqueInternet file(
        ::HttpOpenRequestW(connection.Get(), L"GET", object, L"HTTP/1.1", L"", nullptr, 0, 0));
    Check(::HttpSendRequestW(file.Get(), nullptr, 0, nullptr, 0), "the bare send failed");
    std::vector<char> body;
    DWORD read = 0;
    do
    {
        const std::size_t at = body.size();
        body.resize(at + 8192);
        Check(::InternetReadFile(file.Get(), body.data() + at, 8192, &read),
              "the bare read failed");
        body.resize(at + read);
    } while (read > 0);
    Check(body.size() == size, "the bare body is wrong");
}

/// A synchronous GET by one of the system's objects for scripts.
void FetchByObject(const wchar_t* progId, const std::string& url, std::size_t size)
{
    CLSID clsid;
    velt::ThrowIfFailed(::CLSIDFromProgID(progId, &clsid));
    ComPtr<IDispatch> object;
    velt::ThrowIfFailed(
        ::CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(&object)));
    const auto invoke = [&](const wchar_t* name, WORD flags, std::vector<_variant_t> arguments) {
        std::wstring writable = name;
        LPOLESTR names[] = {writable.data()};
        DISPID id = 0;
        velt::ThrowIfFailed(object->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id));
        DISPPARAMS parameters{arguments.data(), nullptr, static_cast<UINT>(arguments.size()), 0};
        _variant_t result;
        velt::ThrowIfFailed(object->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, &parameters,
                                           &result, nullptr, nullptr));
        return result;
    };
    invoke(L"open", DISPATCH_METHOD,
           {_variant_t(false), _variant_t(velt::WideFromUtf8(url).c_str()),
            _variant_t(L"GET")}); // last one first
    invoke(L"send", DISPATCH_METHOD, {});
    const _variant_t body = invoke(L"responseBody", DISPATCH_PROPERTYGET, {});
    LONG last = -1;
    velt::ThrowIfFailed(::SafeArrayGetUBound(body.parray, 1, &last));
    Check(static_cast<std::size_t>(last + 1) == size, "an object's body is wrong");
}

/// The same over a bare socket.
void FetchBySocket(INTERNET_PORT port, const std::string& path, std::size_t size)
{
    const SOCKET socket = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    Check(::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0,
          "no connection");
    const std::string request = "GET " + path + " HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n";
    ::send(socket, request.data(), static_cast<int>(request.size()), 0);
    std::vector<char> answer;
    int read = 0;
    do
    {
        const std::size_t at = answer.size();
        answer.resize(at + 8192);
        read = ::recv(socket, answer.data() + at, 8192, 0);
        answer.resize(at + static_cast<std::size_t>(std::max(read, 0)));
    } while (read > 0);
    ::closesocket(socket);
    Check(answer.size() > size, "a socket's body is wrong");
}

std::size_t PeakBytes()
{
    PROCESS_MEMORY_COUNTERS counters{};
    ::GetProcessMemoryInfo(::GetCurrentProcess(), &counters, sizeof(counters));
    return counters.PeakWorkingSetSize;
}

double ProcessorSeconds()
{
    FILETIME created;
    FILETIME ended;
    FILETIME kernel;
    FILETIME user;
    ::GetProcessTimes(::GetCurrentProcess(), &created, &ended, &kernel, &user);
    const auto seconds = [](const FILETIME& time) {
        return static_cast<double>(std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime) /
               1e7;
    };
    return seconds(kernel) + seconds(user);
}

/// Runs one body over and over and prints the nanoseconds of one call.
template <class Body>
void PrintCall(const char* measure, Body&& body)
{
    constexpr int kTimes = 10000;
    std::vector<double> rounds;
    for (int i = 0; i < 15; ++i)
    {
        rounds.push_back(NanosecondsOf([&] {
                             for (int k = 0; k < kTimes; ++k)
                             {
                                 body();
                             }
                         }) /
                         kTimes);
    }
    velt::bench::PrintFigure(measure, velt::bench::Median(rounds), "ns", "");
}

/// The time inside the steps of a small request, beside another way of fetching it. A step comes
/// after a sleep of the worker's, so the other way gets a sleep of that length as well.
template <class Against>
PairedTimes MeasureSteps(queue_manager& queue, const std::string& url, int times, Against&& against)
{
    std::vector<double> steps;
    std::vector<double> others;
    std::vector<double> ratios;
    for (int i = 0; i < times; ++i)
    {
        steps.push_back(FetchQueued(queue, url, 1024));
        ::Sleep(kPollMs);
        others.push_back(NanosecondsOf(against));
        ratios.push_back(steps.back() / others.back());
    }
    return {velt::bench::Median(steps), velt::bench::Median(others), velt::bench::Median(ratios)};
}

/// The share of a processor that this process takes while only `poll` runs, in percent. The system
/// counts ticks, so it takes a while.
template <class Poll>
double PercentOfProcessor(Poll&& poll)
{
    constexpr double kSeconds = 10;
    const double before = ProcessorSeconds();
    poll(static_cast<DWORD>(kSeconds * 1000));
    return (ProcessorSeconds() - before) / kSeconds * 100;
}

/// An idle worker, and the calls alone that it polls with.
void BenchIdle()
{
    {
        queue_manager idle;
        Check(SUCCEEDED(idle.begin(30'000)), "the queue does not start");
        velt::bench::PrintFigure("processor time of an idle worker",
                                 PercentOfProcessor([](DWORD durationMs) { ::Sleep(durationMs); }),
                                 "% ", "<= 0.50 %");
    }
    const velt::UniqueKernelObject never(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
    Check(static_cast<bool>(never), "there is no event");
    velt::bench::PrintFigure("processor time of its polling calls alone",
                             PercentOfProcessor([&](DWORD durationMs) {
                                 const DWORD start = ::GetTickCount();
                                 while (::GetTickCount() - start < durationMs)
                                 {
                                     ::WaitForSingleObject(never.Get(), 0);
                                     ::Sleep(10);
                                 }
                             }),
                             "% ", "");
}

/// Making a request, beside having the system cut its URL.
void BenchMaking()
{
    constexpr int kTimes = 200;
    url_options options;
    options.url = "http://server.invalid:81/folder/page?query=value";
    const std::wstring url = velt::WideFromUtf8(options.url);
    Ending ending;
    velt::bench::PrintRow("making a url_request", "InternetCrackUrlW",
                          MeasurePaired(
                              51, kTimes,
                              [&] {
                                  for (int i = 0; i < kTimes; ++i)
                                  {
                                      const url_request request(options, &ending, nullptr);
                                  }
                              },
                              [&] {
                                  wchar_t host[256];
                                  wchar_t path[256];
                                  for (int i = 0; i < kTimes; ++i)
                                  {
                                      URL_COMPONENTSW parts{};
                                      parts.dwStructSize = sizeof(parts);
                                      parts.lpszHostName = host;
                                      parts.dwHostNameLength = 256;
                                      parts.lpszUrlPath = path;
                                      parts.dwUrlPathLength = 256;
                                      Check(::InternetCrackUrlW(url.c_str(), 0, 0, &parts),
                                            "a URL is not cut");
                                  }
                              }),
                          "<= 3.00");
}

/// The time until `count` requests of 1 KiB have left `managers` queues, which run at once.
double FetchTogether(std::size_t managers, std::size_t count, const std::string& url)
{
    url_options options;
    options.url = url;
    options.flags = INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_CACHE_WRITE;
    std::vector<Ending> endings(count);
    std::vector<std::shared_ptr<url_request>> requests;
    for (Ending& ending : endings)
    {
        requests.push_back(std::make_shared<url_request>(options, &ending, nullptr));
    }
    std::vector<std::unique_ptr<queue_manager>> queues;
    for (std::size_t i = 0; i < managers; ++i)
    {
        queues.push_back(std::make_unique<queue_manager>());
        for (std::size_t k = i; k < count; k += managers)
        {
            queues[i]->add(requests[k]);
        }
    }
    return NanosecondsOf([&] {
        for (const auto& queue : queues)
        {
            Check(SUCCEEDED(queue->begin(1)), "a queue does not start");
        }
        for (Ending& ending : endings)
        {
            ending.Wait();
        }
        queues.clear();
        for (const auto& request : requests)
        {
            Check(request->GetBody() && request->GetBody()->size() == 1024, "a body is wrong");
        }
    });
}

void BenchManagers(const std::string& url)
{
    constexpr std::size_t kRequests = 1000;
    FetchTogether(4, 20, url); // what the first of its kind leaves for the next
    const velt::test::ProcessUsage before = velt::test::CurrentUsage();
    velt::bench::PrintRow("1,000 GETs of 1 KiB, four managers", "one manager",
                          MeasurePaired(
                              3, kRequests, [&] { FetchTogether(4, kRequests, url); },
                              [&] { FetchTogether(1, kRequests, url); }),
                          "");
    const velt::test::ProcessUsage after = velt::test::CurrentUsage();
    const auto grown = [](std::size_t now, std::size_t then) {
        return static_cast<double>(now) - static_cast<double>(then);
    };
    velt::bench::PrintFigure("handles more after 8,000 of these",
                             grown(after.handles, before.handles), "  ", "");
    velt::bench::PrintFigure("heap more after 8,000 of these",
                             grown(after.heapBytes, before.heapBytes) / 1024, "KB", "");
}

void BenchFetches(INTERNET_PORT port)
{
    const std::string site = "http://127.0.0.1:" + std::to_string(port);
    const std::string large = site + "/large";
    const std::string small = site + "/body-1024";
    queue_manager queue;
    Check(SUCCEEDED(queue.begin(1)), "the queue does not start");

    // First, while nothing else has raised the peak.
    const std::size_t before = PeakBytes();
    FetchQueued(queue, large, kLargeBytes);
    const double memory = static_cast<double>(PeakBytes() - before) / kLargeBytes;
    velt::bench::PrintFigure("peak memory for a body of 64 MiB, in bodies", memory, "  ",
                             "<= 2.10");

    const auto queued = [&](const std::string& url, std::size_t size) {
        return [&queue, url, size] { FetchQueued(queue, url, size); };
    };
    velt::bench::PrintRow("GET of 64 MiB", "bare WinInet loop",
                          MeasurePaired(9, 1, queued(large, kLargeBytes),
                                        [&] { FetchBare(port, L"/large", kLargeBytes); }),
                          "<= 1.05");
    BenchManagers(small);
    struct Other
    {
        const char* name;
        const wchar_t* progId; // null for the socket
        const char* reach;
        std::size_t rounds; // of the large body
    };
    // Under Wine the first one takes half a minute and more for a large body.
    for (const Other& other :
         {Other{"MSXML2.XMLHTTP", L"MSXML2.XMLHTTP", "< 1.00", 1},
          Other{"WinHttp.WinHttpRequest.5.1", L"WinHttp.WinHttpRequest.5.1", "", 5},
          Other{"a raw socket", nullptr, "", 5}})
    {
        const auto against = [&](const std::string& path, std::size_t size) {
            return [&other, site, port, path, size] {
                if (other.progId)
                {
                    FetchByObject(other.progId, site + path, size);
                }
                else
                {
                    FetchBySocket(port, path, size);
                }
            };
        };
        velt::bench::PrintRow("GET of 64 MiB", other.name,
                              MeasurePaired(other.rounds, 1, queued(large, kLargeBytes),
                                            against("/large", kLargeBytes)),
                              other.reach);
        velt::bench::PrintRow(
            "GET of 1 KiB, with the 10 ms poll", other.name,
            MeasurePaired(51, 1, queued(small, 1024), against("/body-1024", 1024)), "");
        velt::bench::PrintRow("GET of 1 KiB, inside the step", other.name,
                              MeasureSteps(queue, small, 101, against("/body-1024", 1024)),
                              other.reach);
    }

    velt::bench::PrintRow(
        "500 small GETs, inside the steps", "bare WinInet",
        MeasureSteps(queue, small, 500, [&] { FetchBare(port, L"/body-1024", 1024); }), "<= 1.10");
}

void Run()
{
    const char* const port = std::getenv("VELT_HTTP_PORT");
    Check(port, "VELT_HTTP_PORT is not set: run scripts/with_servers.sh");
    WSADATA data;
    ::WSAStartup(MAKEWORD(2, 2), &data);
    const CLibraryUtils::SmartComInitializer com;
    UTrace::State trace;
    UTrace::StartUp();
    UTrace::TraceSetFlags(0);

    velt::bench::PrintHeading("");
    BenchMaking();
    BenchIdle();
    BenchFetches(static_cast<INTERNET_PORT>(std::atoi(port)));

    PrintCall("SplitHostPort(\"gateway:8080\")", [] { velt::SplitHostPort(L"gateway:8080"); });
    PrintCall("SplitSystemProxy(\"http=a:80;https=b:443\")",
              [] { velt::SplitSystemProxy(L"http=a:80;https=b:443"); });
    PrintCall("ProxyUrl(\"ftp://relay\")", [] { velt::ProxyUrl(L"ftp://relay"); });
    PrintCall("FileUrl(\"server\", \"object\")", [] { velt::FileUrl(L"server", L"object"); });
    PrintCall("ParseURL(\"http://server:81/path?query\")", [] {
        velt::ServiceType service;
        std::wstring server;
        std::wstring object;
        INTERNET_PORT found = 0;
        velt::ParseURL(L"http://server:81/path?query", service, server, object, found);
    });
}
} // namespace

int main()
{
    try
    {
        Run();
        return 0;
    }
    catch (const std::exception& e)
    {
        std::fprintf(stderr, "bench: %s\n", e.what());
    }
    catch (...)
    {
        std::fprintf(stderr, "bench: failed\n");
    }
    return 1;
}
