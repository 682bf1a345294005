// What velt.exe costs: its start beside the system's own registry tool, and a fetch beside the
// request queue that it uses. Run it beside the servers that scripts/with_servers.sh starts.
//
//   velt_bench.exe <path of velt.exe>

#include "connection/queue_manager.h"
#include "connection/url_request.h"
#include "foundation/library_utils.h"
#include "foundation/unique_file.h"
#include "tests/benchmarks/table.h"

#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>

using CONNECTION_MANAGER::queue_manager;
using CONNECTION_MANAGER::url_options;
using CONNECTION_MANAGER::url_request;
using velt::bench::MeasurePaired;

namespace
{
constexpr DWORD kLimitMs = 60'000;
constexpr std::size_t kLargeBytes = std::size_t{64} << 20;

void Check(bool condition, const char* what)
{
    if (!condition)
    {
        throw std::runtime_error(what);
    }
}

/// Runs a program with its streams going nowhere; a failure to be done is an exception.
void RunProgram(std::wstring commandLine)
{
    SECURITY_ATTRIBUTES inherited{sizeof(inherited), nullptr, TRUE};
    const velt::UniqueFile nowhere(::CreateFileW(L"NUL", GENERIC_WRITE,
                                                 FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited,
                                                 OPEN_EXISTING, 0, nullptr));
    Check(static_cast<bool>(nowhere), "there is no NUL");
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = nowhere.Get();
    startup.hStdError = nowhere.Get();
    PROCESS_INFORMATION process{};
    Check(::CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                           &startup, &process) != FALSE,
          "a program cannot be started");
    const velt::UniqueKernelObject owner(process.hProcess);
    const velt::UniqueKernelObject thread(process.hThread);
    Check(::WaitForSingleObject(owner.Get(), kLimitMs) == WAIT_OBJECT_0, "a program does not end");
    DWORD exitCode = 1;
    ::GetExitCodeProcess(owner.Get(), &exitCode);
    Check(exitCode == 0, "a program has failed");
}

/// Sets an event when the exchange is over.
class Ending final : public CHTTPEvent
{
public:
    Ending() : m_complete(::CreateEventW(nullptr, FALSE, FALSE, nullptr)) {}

    void OnError(DWORD) override {}

    void OnComplete() override
    {
        ::SetEvent(m_complete.Get());
    }

    bool OnStatus(DWORD, DWORD_PTR) override
    {
        return false;
    }

    void Wait() const
    {
        Check(::WaitForSingleObject(m_complete.Get(), kLimitMs) == WAIT_OBJECT_0, "no end came");
    }

private:
    velt::UniqueKernelObject m_complete;
};

/// What the program does for one URL, with nothing around it: fetch, then write the file.
void FetchDirectly(const std::string& url, const std::wstring& file)
{
    Ending ending;
    queue_manager queue;
    url_options options;
    options.url = url;
    const auto request = std::make_shared<url_request>(options, &ending, nullptr);
    queue.add(request);
    Check(SUCCEEDED(queue.begin(10)), "the queue does not start");
    queue.OnTimer();
    ending.Wait();
    while (request.use_count() > 1)
    {
        ::SwitchToThread();
    }
    Check(request->GetBody() && request->GetBody()->size() == kLargeBytes, "the body is wrong");
    const velt::UniqueFile out(::CreateFileW(file.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                             FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD written = 0;
    Check(out &&
              ::WriteFile(out.Get(), request->GetBody()->data(), kLargeBytes, &written, nullptr) &&
              written == kLargeBytes,
          "the file cannot be written");
}

void BenchStart(const std::wstring& velt)
{
    const auto start = [](const std::wstring& commandLine) {
        return [commandLine] { RunProgram(commandLine); };
    };
    const auto query = start(L"reg.exe query HKLM\\Software");
    velt::bench::PrintRow("start of velt --help", "reg.exe query",
                          MeasurePaired(21, 1, start(velt + L" --help"), query), "<= 1.50");
    // Without --tag nothing is asked that takes its time; docs/wine.md says what loading costs
    // here.
    velt::bench::PrintRow("start of velt status", "reg.exe query",
                          MeasurePaired(21, 1, start(velt + L" status"), query), "<= 1.50");
}

void BenchFetch(const std::wstring& velt, const std::string& site)
{
    wchar_t folder[MAX_PATH];
    ::GetTempPathW(MAX_PATH, folder);
    const std::wstring file = std::wstring(folder) + L"velt_bench_large";
    const std::string url = site + "/large";
    const std::wstring commandLine =
        velt + L" fetch --output \"" + file + L"\" " + std::wstring(url.begin(), url.end());
    velt::bench::PrintRow(
        "velt fetch of 64 MiB", "the queue called directly",
        MeasurePaired(
            9, 1, [&] { RunProgram(commandLine); }, [&] { FetchDirectly(url, file); }),
        "<= 1.10");
    ::DeleteFileW(file.c_str());
}
} // namespace

int wmain(int count, wchar_t** arguments)
{
    try
    {
        const char* const port = std::getenv("VELT_HTTP_PORT");
        Check(count == 2 && port, "usage: with_servers.sh ... velt_bench <velt.exe>");
        const CLibraryUtils::SmartComInitializer com;
        const std::wstring velt = L"\"" + std::wstring(arguments[1]) + L"\"";
        velt::bench::PrintHeading("");
        BenchStart(velt);
        BenchFetch(velt, "http://127.0.0.1:" + std::string(port));
        return 0;
    }
    catch (const std::exception& e)
    {
        std::fprintf(stderr, "bench: %s\n", e.what());
        return 1;
    }
}
