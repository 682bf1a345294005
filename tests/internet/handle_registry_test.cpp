#include "internet/handle_registry.h"

#include "tests/internet/exchange.h"
#include "tests/support/import_patch.h"
#include "tests/support/real_servers.h"
#include "tests/support/thread_group.h"

#include <catch.hpp>

#include <array>

using velt::HandleRegistry;
using namespace velt::test;

namespace
{
HINTERNET Handle(std::uintptr_t value)
{
    return reinterpret_cast<HINTERNET>(value);
}

/// Never used as a session: the registry keeps pointers only.
CInternetSession* Session(std::uintptr_t value)
{
    return reinterpret_cast<CInternetSession*>(value);
}
} // namespace

TEST_CASE("HandleRegistry: finds the session of a handle, and null for an unknown one",
          "[internet]")
{
    HandleRegistry registry;
    CHECK(registry.Size() == 0);
    CHECK(registry.Find(Handle(4)) == nullptr);
    registry.Insert(Handle(4), Session(100));
    registry.Insert(Handle(0x80000004), Session(200));
    registry.Insert(Handle(8), Session(100));
    CHECK(registry.Size() == 3);
    CHECK(registry.Find(Handle(4)) == Session(100));
    CHECK(registry.Find(Handle(8)) == Session(100));
    CHECK(registry.Find(Handle(0x80000004)) == Session(200));
    CHECK(registry.Find(Handle(5)) == nullptr);
    CHECK(registry.Find(nullptr) == nullptr);
}

TEST_CASE("HandleRegistry: a null handle is nothing to enter", "[internet]")
{
    HandleRegistry registry;
    registry.Insert(nullptr, Session(100));
    CHECK(registry.Size() == 0);
    CHECK(registry.Find(nullptr) == nullptr);
}

TEST_CASE("HandleRegistry: removes one entry, once", "[internet]")
{
    HandleRegistry registry;
    registry.Insert(Handle(4), Session(100));
    registry.Insert(Handle(8), Session(100));
    registry.Remove(Handle(4), Session(100));
    CHECK(registry.Find(Handle(4)) == nullptr);
    CHECK(registry.Find(Handle(8)) == Session(100));
    registry.Remove(Handle(4), Session(100));
    registry.Remove(Handle(12), Session(100));
    registry.Remove(nullptr, Session(100));
    CHECK(registry.Size() == 1);
}

TEST_CASE("HandleRegistry: a handle that is given out again belongs to its new session",
          "[internet]")
{
    HandleRegistry registry;
    registry.Insert(Handle(4), Session(100));
    registry.Insert(Handle(4), Session(200));
    CHECK(registry.Size() == 1);
    CHECK(registry.Find(Handle(4)) == Session(200));
    registry.Remove(Handle(4), Session(100)); // by the one that is late
    CHECK(registry.Find(Handle(4)) == Session(200));
    registry.Remove(Handle(4), Session(200));
    CHECK(registry.Size() == 0);
}

TEST_CASE("HandleRegistry: threads enter, find and remove side by side", "[internet]")
{
    HandleRegistry registry;
    volatile LONG wrong = 0;
    RunTogether(4, [&](unsigned thread) {
        for (std::uintptr_t i = 1; i <= 2000; ++i)
        {
            const HINTERNET handle = Handle(i * 4 + thread);
            registry.Insert(handle, Session(thread + 1));
            if (registry.Find(handle) != Session(thread + 1))
            {
                ::InterlockedIncrement(&wrong);
            }
            if (i % 2 == 0)
            {
                registry.Remove(handle, Session(thread + 1));
            }
        }
    });
    CHECK(wrong == 0);
    CHECK(registry.Size() == 4 * 1000);
}

TEST_CASE("HandleRegistry: the process has one", "[internet]")
{
    CHECK(&HandleRegistry::Instance() == &HandleRegistry::Instance());
    CHECK(OpenHandles() == 0);
}

TEST_CASE("HandleRegistry: holds exactly the handles that are open", "[internet]")
{
    HandleRegistry& registry = HandleRegistry::Instance();
    {
        Exchange exchange(real_servers::HttpPort(), L"/plain.txt");
        CHECK(OpenHandles() == 3);
        CHECK(registry.Find(exchange.session.GetHandle()) == &exchange.session);
        CHECK(registry.Find(exchange.connection->GetHandle()) == &exchange.session);
        CHECK(registry.Find(exchange.file->GetHandle()) == &exchange.session);

        const auto second = exchange.session.GetHttpConnection(L"127.0.0.1", 1, nullptr, nullptr);
        CHECK(OpenHandles() == 4);
        CHECK(CodeOf([&] { exchange.session.GetHttpConnection(L"", 1, nullptr, nullptr); }));
        CHECK(OpenHandles() == 4);

        exchange.Send();
        CHECK(OpenHandles() == 4);
        CHECK(ReadAll(*exchange.file) == "plain text\n");
        CHECK(OpenHandles() == 4);
        exchange.file->Close();
        CHECK(OpenHandles() == 3);
        exchange.file->Close();
        CHECK(OpenHandles() == 3);
        second->Close();
        CHECK(OpenHandles() == 2);
        exchange.file =
            exchange.connection->OpenRequest(L"GET", L"/empty", L"", 1, nullptr, nullptr, kFresh);
        CHECK(OpenHandles() == 3);
        exchange.file->Abort();
        CHECK(OpenHandles() == 2);
    }
    CHECK(OpenHandles() == 0);
}

TEST_CASE("HandleRegistry: is empty after closing in any order", "[internet]")
{
    std::array<int, 3> order{0, 1, 2};
    do
    {
        {
            Exchange exchange(real_servers::HttpPort(), L"/body-8193");
            exchange.Send();
            for (const int part : order)
            {
                switch (part)
                {
                case 0:
                    exchange.session.Close();
                    break;
                case 1:
                    exchange.connection->Close();
                    break;
                default:
                    exchange.file->Close();
                    break;
                }
            }
            CHECK(OpenHandles() == 0);
        }
        CHECK(OpenHandles() == 0);
    } while (std::next_permutation(order.begin(), order.end()));
}

TEST_CASE("HandleRegistry: a failed construction leaves no entry", "[internet]")
{
    {
        const ImportPatch<"InternetOpenW", decltype(::InternetOpenW)> patch(
            "wininet.dll",
            [](const wchar_t*, DWORD, const wchar_t*, const wchar_t*, DWORD) { return nullptr; });
        CHECK(CodeOf([] { Exchange exchange(1); }) == kExchangeContext);
        CHECK(OpenHandles() == 0);
    }
    {
        const ImportPatch<"InternetConnectW", decltype(::InternetConnectW)> patch(
            "wininet.dll", [](HINTERNET, const wchar_t*, INTERNET_PORT, const wchar_t*,
                              const wchar_t*, DWORD, DWORD, DWORD_PTR) { return nullptr; });
        CHECK(CodeOf([] { Exchange exchange(1); }) == kExchangeContext);
        CHECK(OpenHandles() == 0);
    }
}
