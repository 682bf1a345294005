// velt fetch inside this program: what it asks the internet API for, and its requests when memory
// is out.

#include "tools/velt/fetch_request.h"

#include "tests/support/failing_allocation.h"
#include "tests/support/http_server.h"
#include "tests/support/import_patch.h"
#include "tools/velt/commands.h"

#include <windows.h>

#include <wininet.h>

#include <catch.hpp>

#include <optional>
#include <string>
#include <variant>
#include <vector>

using namespace velt::test;
using namespace velt::tool;

namespace
{
using SessionPatch = ImportPatch<"InternetOpenW", decltype(::InternetOpenW)>;
using RequestPatch = ImportPatch<"HttpOpenRequestW", decltype(::HttpOpenRequestW)>;
using Extent = FailingAllocation::Extent;
using HandlerPatch = ImportPatch<"SetConsoleCtrlHandler", decltype(::SetConsoleCtrlHandler)>;

/// What a step does with all that a request needs.
struct Stepped
{
    bool escaped = false;
    DWORD result = 0;
};

Stepped Step(FetchRequest& request, int failingAllocation = FailingAllocation::kNone,
             Extent extent = Extent::one)
{
    CONNECTION_MANAGER::connection_object connection;
    const std::vector<std::string> hosts;
    Stepped stepped;
    const FailingAllocation failing(failingAllocation, extent);
    try
    {
        stepped.result = request.Step(connection, hosts, true);
    }
    catch (...)
    {
        stepped.escaped = true;
    }
    return stepped;
}

FetchSettings Settings()
{
    FetchSettings settings;
    settings.options.flags = INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_CACHE_WRITE;
    return settings;
}

void CheckFailed(const FetchRequest& request, const std::vector<DWORD>& errors)
{
    REQUIRE(request.Outcome().failure);
    const HRESULT code = request.Outcome().failure->code;
    CAPTURE(code);
    CHECK(std::any_of(errors.begin(), errors.end(),
                      [&](DWORD error) { return code == HRESULT_FROM_WIN32(error); }));
    CHECK((request.Outcome().failure->what == L"the exchange"));
}
} // namespace

TEST_CASE("velt fetch: asks for what is fresh and stays nowhere, and for no windows", "[tools]")
{
    const auto [url, ofUrl] = GENERATE(table<std::wstring, DWORD>(
        {{L"http://velt.invalid/", 0}, {L"https://velt.invalid/", INTERNET_FLAG_SECURE}}));
    std::vector<DWORD> asked; // by the queue's worker
    const RequestPatch requests("wininet.dll",
                                [&](HINTERNET, const wchar_t*, const wchar_t*, const wchar_t*,
                                    const wchar_t*, const wchar_t**, DWORD flags,
                                    DWORD_PTR) -> HINTERNET {
                                    asked.push_back(flags);
                                    ::SetLastError(ERROR_INTERNET_INTERNAL_ERROR);
                                    return nullptr;
                                });
    const ParsedCommandLine parsed = ParseCommandLine(std::vector<std::wstring>{L"fetch", url});
    const auto* const line = std::get_if<CommandLine>(&parsed);
    REQUIRE(line);
    CommandContext context(false);
    CHECK(RunFetch(*line, context) == ExitCode::failed);
    CHECK(asked == std::vector<DWORD>{INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_CACHE_WRITE |
                                      INTERNET_FLAG_PRAGMA_NOCACHE | INTERNET_FLAG_KEEP_CONNECTION |
                                      INTERNET_FLAG_NO_UI | ofUrl});
}

TEST_CASE("FetchRequest: a step lets nothing escape, whichever allocation fails", "[tools]")
{
    const SessionPatch fails("wininet.dll", [](auto...) -> HINTERNET {
        ::SetLastError(ERROR_INTERNET_NAME_NOT_RESOLVED);
        return nullptr;
    });
    const Extent extent = GENERATE(Extent::one, Extent::allFurther);
    const Interrupt interrupt;
    const FetchSettings settings = Settings();
    bool hasFailed = true;
    for (int allocation = 0; hasFailed; ++allocation)
    {
        CAPTURE(allocation, static_cast<int>(extent));
        FetchRequest request("http://velt.invalid/", settings, interrupt, nullptr, nullptr);
        const Stepped stepped = Step(request, allocation, extent);
        hasFailed = FailingAllocation::HasFailed();
        REQUIRE_FALSE(stepped.escaped);
        CHECK(stepped.result == FetchRequest::kFinished);
        CheckFailed(request, {ERROR_INTERNET_NAME_NOT_RESOLVED, ERROR_NOT_ENOUGH_MEMORY});
    }
}

TEST_CASE("FetchRequest: Ctrl+C before its step is told without memory, too", "[tools]")
{
    PHANDLER_ROUTINE handler = nullptr;
    const HandlerPatch handlers("kernel32.dll", [&](PHANDLER_ROUTINE routine, BOOL add) -> BOOL {
        handler = add ? routine : handler;
        return TRUE;
    });
    const Interrupt interrupt;
    REQUIRE(handler);
    REQUIRE(handler(CTRL_C_EVENT));
    const FetchSettings settings = Settings();
    FetchRequest request("http://velt.invalid/", settings, interrupt, nullptr, nullptr);
    const Stepped stepped = Step(request, 0, Extent::allFurther);
    REQUIRE_FALSE(stepped.escaped);
    CHECK(stepped.result == FetchRequest::kFinished);
    CheckFailed(request, {ERROR_CANCELLED});
}

TEST_CASE("FetchRequest: what a body's target fails with is told without memory, too", "[tools]")
{
    const HttpServer server(HttpAnswer("200 OK", "text"));
    const Interrupt interrupt;
    const FetchSettings settings = Settings();
    const std::wstring name = L"a file's name that is longer than what a text has room for itself";
    std::optional<FailingAllocation> failing; // from the target's failure on
    FetchRequest request(
        "http://127.0.0.1:" + std::to_string(server.Port()) + "/", settings, interrupt,
        [&](const char*, std::size_t) {
            CommandFailure failure{E_ACCESSDENIED, name};
            failing.emplace(0, Extent::allFurther);
            throw CommandFailure(std::move(failure));
        },
        nullptr);
    const Stepped stepped = Step(request);
    failing.reset();
    REQUIRE_FALSE(stepped.escaped);
    CHECK(stepped.result == FetchRequest::kFinished);
    REQUIRE(request.Outcome().failure);
    CHECK(request.Outcome().failure->code == E_ACCESSDENIED);
    CHECK((request.Outcome().failure->what == name));
}
