#include "internet/internet_session.h"

#include "tests/internet/exchange.h"
#include "tests/support/eventually.h"
#include "tests/support/import_patch.h"
#include "tests/support/real_servers.h"
#include "tests/support/test_thread.h"
#include "tests/support/virtual_slot.h"

#include <catch.hpp>

#include <algorithm>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using namespace velt::test;

namespace
{
using OpenPatch = ImportPatch<"InternetOpenW", decltype(::InternetOpenW)>;
using CloseHandlePatch = ImportPatch<"InternetCloseHandle", decltype(::InternetCloseHandle)>;
using CallbackPatch =
    ImportPatch<"InternetSetStatusCallbackW", decltype(::InternetSetStatusCallbackW)>;
using OptionPatch = ImportPatch<"InternetSetOptionExW", decltype(::InternetSetOptionExW)>;

constexpr DWORD kContext = 0x77;

/// One call of a status callback.
struct Status
{
    DWORD_PTR context;
    DWORD status;
    void* information;
    DWORD length;

    bool operator==(const Status&) const = default;
};

/// Keeps what it is told. Our requests are synchronous: it is told on the thread that makes them.
class RecordingSession final : public CInternetSession
{
public:
    RecordingSession()
        : CInternetSession(L"Velt test", kContext, INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0)
    {
    }

    ~RecordingSession() override
    {
        Close(); // while this class is still there to be told
    }

    void OnStatusCallback(DWORD_PTR context, DWORD status, void* information,
                          DWORD informationLength) override
    {
        told.push_back({context, status, information, informationLength});
        CInternetSession::OnStatusCallback(context, status, information, informationLength);
    }

    std::vector<Status> told;
};

/// Where a previous callback keeps what it is told.
std::vector<std::pair<HINTERNET, Status>> g_previousTold;

void CALLBACK PreviousCallback(HINTERNET handle, DWORD_PTR context, DWORD status, void* information,
                               DWORD length)
{
    g_previousTold.emplace_back(handle, Status{context, status, information, length});
}

/// The callback that a session has installed, as the system got it.
INTERNET_STATUS_CALLBACK InstalledCallback(CInternetSession& session)
{
    INTERNET_STATUS_CALLBACK installed = nullptr;
    const CallbackPatch patch("wininet.dll",
                              [&](HINTERNET handle, INTERNET_STATUS_CALLBACK callback) {
                                  installed = callback;
                                  return CallbackPatch::Original(handle, callback);
                              });
    session.EnableStatusCallback(true);
    return installed;
}

class DerivedSession : public CInternetSession
{
public:
    using CInternetSession::CInternetSession;
    virtual void Next() {}
};
} // namespace

TEST_CASE("CInternetSession: opens with what it was given", "[internet]")
{
    std::vector<std::wstring> texts;
    DWORD type = 99;
    DWORD flags = 99;
    const OpenPatch patch("wininet.dll", [&](const wchar_t* agent, DWORD accessType,
                                             const wchar_t* proxy, const wchar_t* bypass,
                                             DWORD openFlags) {
        texts = {agent, proxy, bypass};
        type = accessType;
        flags = openFlags;
        return OpenPatch::Original(agent, accessType, proxy, bypass, openFlags);
    });
    const CInternetSession session(L"agent", kContext, INTERNET_OPEN_TYPE_PROXY, L"proxy:1",
                                   L"<local>", INTERNET_FLAG_FROM_CACHE);
    CHECK(texts == std::vector<std::wstring>{L"agent", L"proxy:1", L"<local>"});
    CHECK(type == INTERNET_OPEN_TYPE_PROXY);
    CHECK(flags == INTERNET_FLAG_FROM_CACHE);
    CHECK(session.GetContext() == kContext);
    CHECK(session.GetHandle() != nullptr);
}

TEST_CASE("CInternetSession: the texts may be null", "[internet]")
{
    const CInternetSession session(nullptr, 0, INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0);
    CHECK(session.GetHandle() != nullptr);
    CHECK(session.GetContext() == 0);
}

TEST_CASE("CInternetSession: a failed open carries the context and leaves the last error",
          "[internet]")
{
    const DWORD context = GENERATE(as<DWORD>{}, 0, 1, kContext, 0xFFFFFFFF);
    const OpenPatch patch("wininet.dll",
                          [](const wchar_t*, DWORD, const wchar_t*, const wchar_t*, DWORD) {
                              ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
                              return nullptr;
                          });
    const auto code = CodeOf([&] {
        const CInternetSession session(L"agent", context, INTERNET_OPEN_TYPE_DIRECT, nullptr,
                                       nullptr, 0);
    });
    const DWORD lastError = ::GetLastError();
    CHECK(code == context);
    CHECK(lastError == ERROR_NOT_ENOUGH_MEMORY);
    CHECK(OpenHandles() == 0);
}

TEST_CASE("CInternetSession: an access type that the system refuses is a failed open", "[internet]")
{
    const auto code = CodeOf(
        [] { const CInternetSession session(L"agent", kContext, 0x7777, nullptr, nullptr, 0); });
    if (!code)
    {
        WARN("this system opens sessions of any access type");
    }
    CHECK((!code || *code == kContext));
    CHECK(OpenHandles() == 0);
}

TEST_CASE("CInternetSession: Close twice closes once, and the destructor no more", "[internet]")
{
    const CloseHandlePatch patch("wininet.dll", &CloseHandlePatch::Original);
    {
        CInternetSession session(L"agent", kContext, INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr,
                                 0);
        session.Close();
        CHECK(session.GetHandle() == nullptr);
        CHECK(OpenHandles() == 0);
        session.Close();
    }
    CHECK(patch.Calls() == 1);
}

TEST_CASE("CInternetSession: the destructor closes", "[internet]")
{
    const CloseHandlePatch patch("wininet.dll", &CloseHandlePatch::Original);
    {
        const CInternetSession session(L"agent", kContext, INTERNET_OPEN_TYPE_DIRECT, nullptr,
                                       nullptr, 0);
        CHECK(OpenHandles() == 1);
    }
    CHECK(patch.Calls() == 1);
    CHECK(OpenHandles() == 0);
}

TEST_CASE("CInternetSession: enabling twice installs the callback once", "[internet]")
{
    CInternetSession session(L"agent", kContext, INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0);
    std::vector<std::pair<HINTERNET, bool>> calls; // handle, installed
    const CallbackPatch patch("wininet.dll",
                              [&](HINTERNET handle, INTERNET_STATUS_CALLBACK callback) {
                                  calls.emplace_back(handle, callback != nullptr);
                                  return CallbackPatch::Original(handle, callback);
                              });
    CHECK(session.EnableStatusCallback(true) == 1);
    CHECK(session.EnableStatusCallback(true) == 1);
    const HINTERNET handle = session.GetHandle();
    CHECK(calls == std::vector<std::pair<HINTERNET, bool>>{{handle, true}});
    CHECK(session.EnableStatusCallback(false) == 1);
    CHECK(session.EnableStatusCallback(false) == 1);
    CHECK(calls == std::vector<std::pair<HINTERNET, bool>>{{handle, true}, {handle, false}});
}

TEST_CASE("CInternetSession: disabling what is not enabled makes no call", "[internet]")
{
    CInternetSession session(L"agent", kContext, INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0);
    const CallbackPatch patch("wininet.dll", &CallbackPatch::Original);
    CHECK(session.EnableStatusCallback(false) == 1);
    CHECK(patch.Calls() == 0);
    session.Close();
    CHECK(patch.Calls() == 0);
}

TEST_CASE("CInternetSession: without an open handle the callback is neither set nor taken",
          "[internet]")
{
    CInternetSession session(L"agent", kContext, INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0);
    session.Close();
    const CallbackPatch patch("wininet.dll", &CallbackPatch::Original);
    CHECK(session.EnableStatusCallback(true) == 0);
    CHECK(session.EnableStatusCallback(false) == 0);
    CHECK(patch.Calls() == 0);
}

TEST_CASE("CInternetSession: a callback that the system refuses carries the context, and may be "
          "tried again",
          "[internet]")
{
    CInternetSession session(L"agent", kContext, INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0);
    {
        const CallbackPatch patch("wininet.dll", [](HINTERNET, INTERNET_STATUS_CALLBACK) {
            ::SetLastError(ERROR_INVALID_HANDLE);
            return INTERNET_INVALID_STATUS_CALLBACK;
        });
        const auto code = CodeOf([&] { session.EnableStatusCallback(true); });
        const DWORD lastError = ::GetLastError();
        CHECK(code == kContext);
        CHECK(lastError == ERROR_INVALID_HANDLE);
        CHECK(session.EnableStatusCallback(false) == 1);
        CHECK(patch.Calls() == 1); // nothing to take away
    }
    const CallbackPatch patch("wininet.dll", &CallbackPatch::Original);
    CHECK(session.EnableStatusCallback(true) == 1);
    CHECK(patch.Calls() == 1);
}

TEST_CASE("CInternetSession: Close takes the callback away before it closes", "[internet]")
{
    CInternetSession session(L"agent", kContext, INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0);
    session.EnableStatusCallback(true);
    std::vector<std::string> calls;
    const CallbackPatch callbackPatch("wininet.dll",
                                      [&](HINTERNET handle, INTERNET_STATUS_CALLBACK callback) {
                                          calls.push_back(callback ? "set" : "take");
                                          return CallbackPatch::Original(handle, callback);
                                      });
    const CloseHandlePatch closePatch("wininet.dll", [&](HINTERNET handle) {
        calls.push_back("close");
        return CloseHandlePatch::Original(handle);
    });
    session.Close();
    CHECK(calls == std::vector<std::string>{"take", "close"});
}

TEST_CASE("CInternetSession: the callback reaches the session of each of its handles", "[internet]")
{
    RecordingSession session;
    const INTERNET_STATUS_CALLBACK callback = InstalledCallback(session);
    REQUIRE(callback != nullptr);
    const auto connection = session.GetHttpConnection(L"127.0.0.1", 1, nullptr, nullptr);
    const auto file = connection->OpenRequest(L"GET", L"/", L"", 1, nullptr, nullptr, 0);
    session.told.clear();
    int information = 5;
    callback(session.GetHandle(), 1, 20, &information, 4);
    callback(connection->GetHandle(), 2, 30, nullptr, 0);
    callback(file->GetHandle(), 3, 0xFFFFFFFF, &information, 1);
    CHECK(session.told == std::vector<Status>{{1, 20, &information, 4},
                                              {2, 30, nullptr, 0},
                                              {3, 0xFFFFFFFF, &information, 1}});
}

TEST_CASE("CInternetSession: the callback of a closed or unknown handle is ignored", "[internet]")
{
    RecordingSession session;
    const INTERNET_STATUS_CALLBACK callback = InstalledCallback(session);
    const HINTERNET handle = session.GetHandle();
    callback(reinterpret_cast<HINTERNET>(0x12345670), 1, 20, nullptr, 0);
    callback(nullptr, 1, 20, nullptr, 0);
    CHECK(session.told.empty());
    session.Close();
    session.told.clear();
    callback(handle, 1, 20, nullptr, 0);
    CHECK(session.told.empty());
}

TEST_CASE("CInternetSession: two sessions hear of their own handles only", "[internet]")
{
    RecordingSession first;
    RecordingSession second;
    const INTERNET_STATUS_CALLBACK callback = InstalledCallback(first);
    CHECK(InstalledCallback(second) == callback); // there is one for all
    callback(second.GetHandle(), 1, 20, nullptr, 0);
    CHECK(first.told.empty());
    CHECK(second.told.size() == 1);
}

TEST_CASE("CInternetSession: is told with no lock held", "[internet]")
{
    struct LookingSession final : CInternetSession
    {
        LookingSession()
            : CInternetSession(L"agent", kContext, INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0)
        {
        }

        void OnStatusCallback(DWORD_PTR, DWORD, void*, DWORD) override
        {
            other.emplace([this] {
                OpenHandles();
                done.Set();
            });
            wasFree = done.IsSetWithin(kWaitLimitMs);
        }

        TestEvent done;
        std::optional<TestThread> other;
        bool wasFree = false;
    };
    LookingSession session;
    const INTERNET_STATUS_CALLBACK callback = InstalledCallback(session);
    callback(session.GetHandle(), 1, 20, nullptr, 0);
    CHECK(session.wasFree);
}

TEST_CASE("CInternetSession: a handle whose end the system announces is not closed again",
          "[internet]")
{
    RecordingSession session;
    const INTERNET_STATUS_CALLBACK callback = InstalledCallback(session);
    const auto connection = session.GetHttpConnection(L"127.0.0.1", 1, nullptr, nullptr);
    const auto file = connection->OpenRequest(L"GET", L"/", L"", 1, nullptr, nullptr, 0);
    HINTERNET ended = file->GetHandle();
    session.told.clear();
    const CloseHandlePatch patch("wininet.dll", &CloseHandlePatch::Original);
    SECTION("of that handle")
    {
        callback(ended, 1, INTERNET_STATUS_HANDLE_CLOSING, nullptr, 0);
    }
    SECTION("of the handle that the information names")
    {
        callback(connection->GetHandle(), 1, INTERNET_STATUS_HANDLE_CLOSING, &ended, sizeof(ended));
    }
    SECTION("of the handle itself, when the information is too short to name one")
    {
        HINTERNET other = connection->GetHandle();
        callback(ended, 1, INTERNET_STATUS_HANDLE_CLOSING, &other, sizeof(other) - 1);
    }
    CHECK(session.told.size() == 1);
    CHECK(file->GetHandle() == nullptr);
    CHECK(connection->GetHandle() != nullptr);
    CHECK(OpenHandles() == 2);
    file->Close();
    CHECK(patch.Calls() == 0);
    ::InternetCloseHandle(ended); // it is only said here
}

TEST_CASE("CInternetSession: every other status leaves its handle open", "[internet]")
{
    RecordingSession session;
    const INTERNET_STATUS_CALLBACK callback = InstalledCallback(session);
    HINTERNET handle = session.GetHandle();
    for (DWORD status = 0; status < 256; ++status)
    {
        if (status != INTERNET_STATUS_HANDLE_CLOSING)
        {
            callback(handle, 1, status, &handle, sizeof(handle));
        }
    }
    CHECK(session.GetHandle() == handle);
    CHECK(OpenHandles() == 1);
}

TEST_CASE("CInternetSession: closing it ends what was opened from it, in one call", "[internet]")
{
    std::vector<HINTERNET> closed;
    const CloseHandlePatch patch("wininet.dll", [&](HINTERNET handle) {
        closed.push_back(handle);
        return CloseHandlePatch::Original(handle);
    });
    Exchange exchange(1);
    const HINTERNET session = exchange.session.GetHandle();
    exchange.session.Close();
    CHECK(exchange.connection->GetHandle() == nullptr);
    CHECK(exchange.file->GetHandle() == nullptr);
    CHECK(CodeOf([&] { exchange.Send(); }) == ERROR_INVALID_HANDLE);
    CHECK(CodeOf([&] { exchange.file->Read(nullptr, 0); }) == ERROR_INVALID_HANDLE);
    CHECK(exchange.Status() == 0);
    CHECK(exchange.file->GetLength() == 0);
    const auto next = exchange.connection->OpenRequest(L"GET", L"/", L"", 1, nullptr, nullptr, 0);
    CHECK(next->GetHandle() == nullptr);
    CHECK(CodeOf([&] { exchange.session.GetHttpConnection(L"127.0.0.1", 1, nullptr, nullptr); }) ==
          kExchangeContext);
    exchange.file->Close();
    exchange.connection->Close();
    exchange.session.Close();
    CHECK(closed == std::vector<HINTERNET>{session});
    CHECK(OpenHandles() == 0);
}

TEST_CASE("CInternetSession: may be destroyed before what was opened from it", "[internet]")
{
    const bool hears = GENERATE(false, true);
    auto session = std::make_unique<RecordingSession>();
    const INTERNET_STATUS_CALLBACK callback = InstalledCallback(*session);
    session->EnableStatusCallback(hears);
    auto connection = session->GetHttpConnection(L"127.0.0.1", 1, nullptr, nullptr);
    auto file = connection->OpenRequest(L"GET", L"/", L"", 1, nullptr, nullptr, 0);
    const HINTERNET handles[] = {connection->GetHandle(), file->GetHandle()};
    const CloseHandlePatch patch("wininet.dll", &CloseHandlePatch::Original);
    session.reset();
    CHECK(patch.Calls() == 1);
    for (const HINTERNET handle : handles)
    {
        callback(handle, 1, 20, nullptr, 0); // reaches nobody
    }
    CHECK(file->GetHandle() == nullptr);
    CHECK(connection->GetHandle() == nullptr);

    // The next one, which may get the same values, keeps them.
    RecordingSession next;
    const auto nextConnection = next.GetHttpConnection(L"127.0.0.1", 1, nullptr, nullptr);
    const auto nextFile = nextConnection->OpenRequest(L"GET", L"/", L"", 1, nullptr, nullptr, 0);
    file.reset();
    connection.reset();
    CHECK(patch.Calls() == 1);
    CHECK(OpenHandles() == 3);
    for (const HINTERNET handle :
         {next.GetHandle(), nextConnection->GetHandle(), nextFile->GetHandle()})
    {
        CHECK(velt::HandleRegistry::Instance().Find(handle) == &next);
    }
}

TEST_CASE("CInternetSession: closed while something is opened from it, that belongs to nobody",
          "[internet]")
{
    struct ClosingSession final : CInternetSession
    {
        ClosingSession()
            : CInternetSession(L"agent", kContext, INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0)
        {
        }

        void OnStatusCallback(DWORD_PTR, DWORD status, void*, DWORD) override
        {
            if (status == INTERNET_STATUS_HANDLE_CREATED && --left == 0)
            {
                Close();
            }
        }

        int left = 0;
    };
    ClosingSession session;
    session.EnableStatusCallback(true);
    const CloseHandlePatch patch("wininet.dll", &CloseHandlePatch::Original);
    SECTION("a connection")
    {
        session.left = 1;
        CHECK(CodeOf([&] { session.GetHttpConnection(L"127.0.0.1", 1, nullptr, nullptr); }) ==
              kContext);
        CHECK(OpenHandles() == 0);
    }
    SECTION("a request")
    {
        session.left = 2;
        const auto connection = session.GetHttpConnection(L"127.0.0.1", 1, nullptr, nullptr);
        const auto file = connection->OpenRequest(L"GET", L"/", L"", kContext, nullptr, nullptr, 0);
        CHECK(file->GetHandle() == nullptr);
        CHECK(connection->GetHandle() == nullptr);
        CHECK(CodeOf([&] { file->SendRequest(L"", 0, nullptr, 0); }) == ERROR_INVALID_HANDLE);
    }
    CHECK(session.GetHandle() == nullptr);
    CHECK(patch.Calls() == 1);
    CHECK(OpenHandles() == 0);
}

TEST_CASE("CInternetSession: what the session throws from the callback stays inside", "[internet]")
{
    struct ThrowingSession final : CInternetSession
    {
        ThrowingSession()
            : CInternetSession(L"agent", kContext, INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0)
        {
        }

        void OnStatusCallback(DWORD_PTR, DWORD, void*, DWORD) override
        {
            ++told;
            throw std::runtime_error("sink");
        }

        int told = 0;
    };
    ThrowingSession session;
    const INTERNET_STATUS_CALLBACK callback = InstalledCallback(session);
    callback(session.GetHandle(), 1, 20, nullptr, 0);
    CHECK(session.told == 1);
}

TEST_CASE("CInternetSession: hands each status on to the callback that was there before",
          "[internet]")
{
    g_previousTold.clear();
    CInternetSession session(L"agent", kContext, INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0);
    ::InternetSetStatusCallbackW(session.GetHandle(), &PreviousCallback);
    session.EnableStatusCallback(true);
    int information = 5;
    session.OnStatusCallback(1, 20, &information, 4);
    REQUIRE(g_previousTold.size() == 1);
    CHECK(g_previousTold[0].first == session.GetHandle());
    CHECK(g_previousTold[0].second == Status{1, 20, &information, 4});

    // After the callback was taken away, none is there before the next one.
    session.EnableStatusCallback(false);
    session.EnableStatusCallback(true);
    session.OnStatusCallback(1, 20, &information, 4);
    CHECK(g_previousTold.size() == 1);
}

TEST_CASE("CInternetSession: a previous callback gets the session's handle for every handle",
          "[internet]")
{
    g_previousTold.clear();
    RecordingSession session;
    ::InternetSetStatusCallbackW(session.GetHandle(), &PreviousCallback);
    const INTERNET_STATUS_CALLBACK callback = InstalledCallback(session);
    const auto connection = session.GetHttpConnection(L"127.0.0.1", 1, nullptr, nullptr);
    g_previousTold.clear();
    callback(connection->GetHandle(), 9, 30, nullptr, 0);
    REQUIRE(g_previousTold.size() == 1);
    CHECK(g_previousTold[0].first == session.GetHandle());
    CHECK(g_previousTold[0].second == Status{9, 30, nullptr, 0});
}

TEST_CASE("CInternetSession: hears of a real exchange from the connection to the closing",
          "[internet]")
{
    std::vector<DWORD> statuses;
    std::vector<DWORD_PTR> contexts;
    {
        RecordingSession session;
        session.EnableStatusCallback(true);
        const auto connection = session.GetHttpConnection(
            real_servers::kNewHost, real_servers::HttpPort(), nullptr, nullptr);
        auto file =
            connection->OpenRequest(L"GET", L"/plain.txt", L"", 1, nullptr, L"HTTP/1.1", kFresh);
        file->SendRequest(L"", 0, nullptr, 0);
        CHECK(ReadAll(*file) == "plain text\n");
        file.reset();
        for (const Status& status : session.told)
        {
            statuses.push_back(status.status);
            contexts.push_back(status.context);
        }
    }
    CAPTURE(statuses);
    // Between these, systems tell of different things.
    const std::vector<DWORD> milestones{
        INTERNET_STATUS_HANDLE_CREATED,       INTERNET_STATUS_HANDLE_CREATED,
        INTERNET_STATUS_CONNECTING_TO_SERVER, INTERNET_STATUS_CONNECTED_TO_SERVER,
        INTERNET_STATUS_SENDING_REQUEST,      INTERNET_STATUS_REQUEST_SENT,
        INTERNET_STATUS_RECEIVING_RESPONSE,   INTERNET_STATUS_RESPONSE_RECEIVED,
        INTERNET_STATUS_HANDLE_CLOSING,
    };
    auto at = statuses.begin();
    for (const DWORD milestone : milestones)
    {
        INFO("status " << milestone);
        at = std::find(at, statuses.end(), milestone);
        REQUIRE(at != statuses.end());
        ++at;
    }
    CHECK(std::count(contexts.begin(), contexts.end(), kContext) ==
          static_cast<std::ptrdiff_t>(contexts.size()));
    CHECK(OpenHandles() == 0);
}

TEST_CASE("CInternetSession: one that closes itself from the callback fails the exchange",
          "[internet]")
{
    struct ClosingSession final : CInternetSession
    {
        explicit ClosingSession(DWORD closeAt)
            : CInternetSession(L"agent", kContext, INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0),
              at(closeAt)
        {
        }

        void OnStatusCallback(DWORD_PTR, DWORD status, void*, DWORD) override
        {
            if (status == at)
            {
                Close();
            }
        }

        DWORD at;
    };
    const DWORD at = GENERATE(as<DWORD>{}, INTERNET_STATUS_RECEIVING_RESPONSE,
                              INTERNET_STATUS_RESPONSE_RECEIVED, INTERNET_STATUS_HANDLE_CREATED);
    std::optional<DWORD> code;
    {
        ClosingSession session(at);
        session.EnableStatusCallback(true);
        code = CodeOf([&] {
            const auto connection = session.GetHttpConnection(
                real_servers::kHost, real_servers::HttpPort(), nullptr, nullptr);
            const auto file = connection->OpenRequest(L"GET", L"/body-8193", L"", 1, nullptr,
                                                      L"HTTP/1.1", kFresh);
            file->SendRequest(L"", 0, nullptr, 0);
            ReadAll(*file);
        });
        CHECK(session.GetHandle() == nullptr);
    }
    INFO("closed at status " << at);
    CHECK(code);
    CHECK(OpenHandles() == 0);
}

TEST_CASE("CInternetSession: SetOption passes everything on and ignores a failure", "[internet]")
{
    CInternetSession session(L"agent", kContext, INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0);
    DWORD timeoutMs = 1234;
    {
        std::vector<DWORD_PTR> seen;
        const OptionPatch patch("wininet.dll", [&](HINTERNET handle, DWORD option, void* buffer,
                                                   DWORD length, DWORD flags) {
            seen = {reinterpret_cast<DWORD_PTR>(handle), option,
                    reinterpret_cast<DWORD_PTR>(buffer), length, flags};
            return FALSE;
        });
        session.SetOption(INTERNET_OPTION_CONNECT_TIMEOUT, &timeoutMs, sizeof(timeoutMs), 2);
        CHECK(seen == std::vector<DWORD_PTR>{reinterpret_cast<DWORD_PTR>(session.GetHandle()),
                                             INTERNET_OPTION_CONNECT_TIMEOUT,
                                             reinterpret_cast<DWORD_PTR>(&timeoutMs), 4, 2});
    }
    session.SetOption(0x7FFF, nullptr, 0, 0);
    session.Close();
    session.SetOption(INTERNET_OPTION_CONNECT_TIMEOUT, &timeoutMs, sizeof(timeoutMs), 0);
}

TEST_CASE("CInternetSession: SetOption sets an option of the session", "[internet]")
{
    CInternetSession session(L"agent", kContext, INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0);
    DWORD timeoutMs = 12'345;
    session.SetOption(INTERNET_OPTION_CONNECT_TIMEOUT, &timeoutMs, sizeof(timeoutMs), 0);
    DWORD answer = 0xCCCCCCCC;
    DWORD length = sizeof(answer);
    CHECK(::InternetQueryOptionW(session.GetHandle(), INTERNET_OPTION_CONNECT_TIMEOUT, &answer,
                                 &length));
    CHECK(answer == 12'345);
}

TEST_CASE("CInternetSession: GetHttpConnection gives its own context and server", "[internet]")
{
    CInternetSession session(L"agent", kContext, INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0);
    const auto connection = session.GetHttpConnection(L"server", 8080, L"user", L"password");
    CHECK(connection->GetSession() == &session);
    CHECK(connection->GetContext() == kContext);
    CHECK(connection->GetServerName() == L"server");
    CHECK(connection->GetPort() == 8080);
    CHECK(connection->GetHandle() != nullptr);
    session.Close();
    CHECK(CodeOf([&] { session.GetHttpConnection(L"server", 1, nullptr, nullptr); }) == kContext);
}

TEST_CASE("CInternetSession: the server sees the session's agent", "[internet]")
{
    {
        CInternetSession session(L"Velt agent test", kContext, INTERNET_OPEN_TYPE_DIRECT, nullptr,
                                 nullptr, 0);
        const auto connection = session.GetHttpConnection(
            real_servers::kHost, real_servers::HttpPort(), nullptr, nullptr);
        const auto file =
            connection->OpenRequest(L"GET", L"/plain.txt", L"", 1, nullptr, L"HTTP/1.1", kFresh);
        file->SendRequest(L"", 0, nullptr, 0);
        ReadAll(*file);
    }
    CHECK(Eventually([] { // the line is written after the answer
        const auto lines = real_servers::LogLines("access.log");
        return std::count(lines.begin(), lines.end(),
                          "200 - \"GET /plain.txt HTTP/1.1\" \"Velt agent test\"") == 1;
    }));
}

TEST_CASE("CInternetSession: a proxy takes the request", "[internet]")
{
    const auto before = real_servers::LogLines("proxy.log").size();
    {
        CInternetSession session(L"Velt test", kContext, INTERNET_OPEN_TYPE_PROXY,
                                 real_servers::Proxy().c_str(), nullptr, 0);
        // Wine uses idle connections of the same host again, also those past the proxy; so this is
        // a name that no other test uses.
        const auto connection =
            session.GetHttpConnection(L"localhost", real_servers::HttpPort(), nullptr, nullptr);
        const auto file =
            connection->OpenRequest(L"GET", L"/body-8193", L"", 1, nullptr, L"HTTP/1.1", kFresh);
        file->SendRequest(L"", 0, nullptr, 0);
        CHECK(ReadAll(*file) == real_servers::LargeBytes(0, 8193));
    }
    const auto lines = real_servers::LogLines("proxy.log");
    CHECK(
        std::any_of(lines.begin() + static_cast<std::ptrdiff_t>(before), lines.end(),
                    [](const std::string& line) { return line.find("/body-8193") != line.npos; }));
}

TEST_CASE("CInternetSession: its operations stand in the slots that they always had", "[internet]")
{
    CHECK(VirtualSlot(&CInternetSession::Close) == 0);
    CHECK(VirtualSlot(&CInternetSession::OnStatusCallback) == 1);
    CHECK(VirtualSlot(&DerivedSession::Next) == 4); // behind the destructor's two
}
