// Exchanges that are cancelled beside others that are not, for four seconds or as many as the
// environment variable VELT_SOAK_SECONDS says, while every handle that the layer uses is watched:
// what the system has ended must not be closed again, because its value may be somebody else's.

#include "internet/http_connection.h"
#include "internet/http_file.h"
#include "internet/internet_exception.h"
#include "internet/internet_session.h"
#include "tests/connection/request_queue.h"
#include "tests/support/counted_texts.h"
#include "tests/support/handle_watch.h"
#include "tests/support/http_server.h"
#include "tests/support/process_usage.h"
#include "tests/support/real_servers.h"
#include "tests/support/test_thread.h"

#include <catch.hpp>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <memory>
#include <random>
#include <string>
#include <vector>

using namespace velt::test;
using Calls = CallLog::Calls;

namespace
{
constexpr std::size_t kBatch = 8; // requests that a queue gets at once

ULONGLONG SoakMs()
{
    const char* const seconds = std::getenv("VELT_SOAK_SECONDS");
    const int wanted = seconds ? std::atoi(seconds) : 0;
    return static_cast<ULONGLONG>(wanted > 0 ? wanted : 4) * 1000;
}

bool MayAbandonAt(DWORD status)
{
    return status == INTERNET_STATUS_RECEIVING_RESPONSE ||
           status == INTERNET_STATUS_RESPONSE_RECEIVED || status == INTERNET_STATUS_HANDLE_CREATED;
}

/// One thread's work. What must hold is counted, because checks belong to the main thread.
struct Tally
{
    std::size_t exchanges = 0;
    std::size_t cancelled = 0;
    CountedTexts wrong;
};

/// Exchanges that nobody cancels: each has to go through with its body.
void RunOrdinary(ULONGLONG end, Tally& tally)
{
    RequestQueue queue;
    while (::GetTickCount64() < end)
    {
        std::deque<Fetch> fetches;
        for (std::size_t i = 0; i < kBatch; ++i)
        {
            queue.Manager().add(
                fetches.emplace_back(UrlOptions(real_servers::HttpPort(), "/body-8193")).request);
        }
        for (const Fetch& fetch : fetches)
        {
            fetch.Wait();
            ++tally.exchanges;
            const auto& body = fetch.request->GetBody();
            if (fetch.Outcome() != Calls{"complete", "done"})
            {
                tally.wrong.Add(fetch.Outcome().front());
            }
            else if (!body || *body != real_servers::LargeBytes(0, 8193))
            {
                tally.wrong.Add("another body");
            }
        }
    }
}

/// Exchanges that their sinks cancel, each at another of the moments at which they may.
void RunCancelling(ULONGLONG end, unsigned seed, Tally& tally)
{
    std::mt19937 random(seed);
    RequestQueue queue;
    while (::GetTickCount64() < end)
    {
        std::deque<Fetch> fetches;
        std::deque<std::atomic<bool>> cancelled;
        for (std::size_t i = 0; i < kBatch; ++i)
        {
            Fetch& fetch = fetches.emplace_back(UrlOptions(real_servers::HttpPort(), "/body-8193"));
            fetch.sink.onStatus = [left = random() % 6, &done = cancelled.emplace_back(false)](
                                      DWORD status, DWORD_PTR) mutable {
                done = done || (MayAbandonAt(status) && left-- == 0);
                return done.load();
            };
            queue.Manager().add(fetch.request);
        }
        for (std::size_t i = 0; i < kBatch; ++i)
        {
            fetches[i].Wait();
            ++tally.exchanges;
            tally.cancelled += cancelled[i];
            const Calls expected =
                cancelled[i] ? Calls{"error 12017", "complete", "done"} : Calls{"complete", "done"};
            if (fetches[i].Outcome() != expected ||
                fetches[i].request->GetBody().has_value() == cancelled[i])
            {
                tally.wrong.Add(fetches[i].Outcome().front());
            }
        }
    }
}

/// A host whose objects go in any order, while the values that the system took back are handed out
/// again to the next ones.
void RunCareless(ULONGLONG end, unsigned seed, const HandleWatch& watch, Tally& tally)
{
    struct Objects
    {
        std::unique_ptr<CInternetSession> session;
        std::unique_ptr<CHttpConnection> connection;
        std::unique_ptr<CHttpFile> file;

        void Open(bool hears)
        {
            session = std::make_unique<CInternetSession>(L"Velt test", 1, INTERNET_OPEN_TYPE_DIRECT,
                                                         nullptr, nullptr, 0);
            session->EnableStatusCallback(hears);
            connection = session->GetHttpConnection(real_servers::kHost, real_servers::HttpPort(),
                                                    nullptr, nullptr);
            file =
                connection->OpenRequest(L"GET", L"/body-1", L"", 1, nullptr, L"HTTP/1.1", kFresh);
        }
    };
    std::mt19937 random(seed);
    Objects old;
    while (::GetTickCount64() < end)
    {
        Objects next;
        if (old.session && random() % 2 == 0)
        {
            old.connection->Close();
        }
        old.session.reset(); // before what was opened from it
        next.Open(random() % 2 == 0);
        if (random() % 2 == 0)
        {
            old.connection.reset();
        }
        old.file.reset();
        old.connection.reset();
        ++tally.exchanges;
        char byte = '?';
        try
        {
            next.file->SendRequest(L"", 0, nullptr, 0);
            if (next.file->Read(&byte, 1) != 1 || byte != '0')
            {
                tally.wrong.Add("another byte");
            }
        }
        catch (const CInternetException& e)
        {
            tally.wrong.Add("code " + std::to_string(e.GetCode()));
        }
        if (!watch.IsOpen(next.session->GetHandle()) ||
            !watch.IsOpen(next.connection->GetHandle()) || !watch.IsOpen(next.file->GetHandle()))
        {
            tally.wrong.Add("closed with the objects before");
        }
        old = std::move(next);
    }
}
} // namespace

TEST_CASE("CHTTPRequest: what is cancelled closes nobody else's handles", "[connection]")
{
    Tally ordinary[2];
    Tally cancelling[2];
    Tally careless;
    {
        const HandleWatch watch;
        {
            const ULONGLONG end = ::GetTickCount64() + SoakMs();
            std::deque<TestThread> threads;
            threads.emplace_back([&] { RunOrdinary(end, ordinary[0]); });
            threads.emplace_back([&] { RunOrdinary(end, ordinary[1]); });
            threads.emplace_back([&] { RunCancelling(end, 1, cancelling[0]); });
            threads.emplace_back([&] { RunCancelling(end, 2, cancelling[1]); });
            threads.emplace_back([&] { RunCareless(end, 3, watch, careless); });
            for (TestThread& thread : threads)
            {
                thread.Join(static_cast<DWORD>(SoakMs()) + 60'000);
            }
        }
        CHECK(watch.Faults() == std::vector<std::string>());
        CHECK(watch.OpenCount() == 0);
    }
    for (const Tally* const tally :
         {&ordinary[0], &ordinary[1], &cancelling[0], &cancelling[1], &careless})
    {
        CHECK(tally->exchanges > 0);
        CHECK(tally->wrong.All() == std::vector<std::string>());
    }
    CHECK(cancelling[0].cancelled > 0);
    CHECK(cancelling[1].cancelled > 0);
    CHECK(OpenHandles() == 0);
    CHECK(AreHeapsValid());
    WARN(ordinary[0].exchanges + ordinary[1].exchanges
         << " ordinary exchanges beside "
         << cancelling[0].exchanges + cancelling[1].exchanges + careless.exchanges << " others");
}
