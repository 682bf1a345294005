#include "internet/handle_registry.h"

#include "tests/internet/exchange.h"
#include "tests/support/import_patch.h"
#include "tests/support/real_servers.h"
#include "tests/support/thread_group.h"

#include <catch.hpp>

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>

using velt::HandleEntry;
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

using Entry = std::shared_ptr<HandleEntry>;

Entry MakeEntry(std::uintptr_t handle, std::uintptr_t session)
{
    return std::make_shared<HandleEntry>(Handle(handle), Session(session));
}
} // namespace

TEST_CASE("HandleEntry: a handle ends once", "[internet]")
{
    HandleEntry entry(Handle(4), Session(100));
    CHECK(entry.Handle() == Handle(4));
    CHECK(entry.Session() == Session(100));
    CHECK(entry.IsOpen());
    CHECK(entry.End());
    CHECK_FALSE(entry.IsOpen());
    CHECK_FALSE(entry.End());
    CHECK(entry.Session() == Session(100));
}

TEST_CASE("HandleEntry: a handle ends with the one that it was opened from", "[internet]")
{
    const Entry session = MakeEntry(4, 100);
    const auto connection = std::make_shared<HandleEntry>(Handle(8), session);
    HandleEntry file(Handle(12), connection);
    HandleEntry other(Handle(16), connection);
    CHECK(file.Session() == Session(100));
    CHECK(other.End());
    CHECK(connection->IsOpen());
    CHECK(file.IsOpen());
    SECTION("with the connection")
    {
        CHECK(connection->End());
        CHECK(session->IsOpen());
    }
    SECTION("with the session")
    {
        CHECK(session->End());
        CHECK_FALSE(connection->IsOpen());
        CHECK_FALSE(connection->End()); // not its owner's to close any more
    }
    CHECK_FALSE(file.IsOpen());
    CHECK_FALSE(file.End());
    CHECK(file.Session() == Session(100)); // the system may still speak of it
    session->ForgetSession();
    CHECK(file.Session() == nullptr);
}

TEST_CASE("HandleRegistry: finds the session of a handle, and null for an unknown one",
          "[internet]")
{
    HandleRegistry registry;
    CHECK(registry.Size() == 0);
    CHECK(registry.Find(Handle(4)) == nullptr);
    registry.Insert(MakeEntry(4, 100));
    registry.Insert(MakeEntry(0x80000004, 200));
    registry.Insert(MakeEntry(8, 100));
    CHECK(registry.Size() == 3);
    CHECK(registry.Find(Handle(4)) == Session(100));
    CHECK(registry.Find(Handle(8)) == Session(100));
    CHECK(registry.Find(Handle(0x80000004)) == Session(200));
    CHECK(registry.Find(Handle(5)) == nullptr);
    CHECK(registry.Find(nullptr) == nullptr);
}

TEST_CASE("HandleRegistry: removes one entry, once", "[internet]")
{
    HandleRegistry registry;
    const Entry entry = MakeEntry(4, 100);
    registry.Insert(entry);
    registry.Insert(MakeEntry(8, 100));
    registry.Remove(*entry);
    CHECK(registry.Find(Handle(4)) == nullptr);
    CHECK(registry.Find(Handle(8)) == Session(100));
    registry.Remove(*entry);
    registry.Remove(*MakeEntry(12, 100));
    CHECK(registry.Size() == 1);
}

TEST_CASE("HandleRegistry: a handle that is given out again belongs to its new owner, and has "
          "ended for the old one",
          "[internet]")
{
    const std::uintptr_t session =
        GENERATE(as<std::uintptr_t>{}, 100, 200); // one and the same, or another
    HandleRegistry registry;
    const Entry first = MakeEntry(4, 100);
    const Entry second = MakeEntry(4, session);
    registry.Insert(first);
    registry.Insert(second);
    CHECK(registry.Size() == 1);
    CHECK_FALSE(first->IsOpen());
    CHECK(second->IsOpen());
    registry.Remove(*first); // by the one that is late
    CHECK(registry.Find(Handle(4)) == Session(session));
    registry.Remove(*second);
    CHECK(registry.Size() == 0);
}

TEST_CASE("HandleRegistry: a handle whose end is announced ends and leaves", "[internet]")
{
    HandleRegistry registry;
    const Entry first = MakeEntry(4, 100);
    const Entry second = MakeEntry(8, 100);
    registry.Insert(first);
    registry.Insert(second);
    registry.End(Handle(4));
    registry.End(Handle(4));
    registry.End(Handle(12));
    registry.End(nullptr);
    CHECK_FALSE(first->IsOpen());
    CHECK(second->IsOpen());
    CHECK(registry.Size() == 1);
    CHECK(registry.Find(Handle(4)) == nullptr);
}

TEST_CASE("HandleRegistry: threads enter, find and remove side by side", "[internet]")
{
    HandleRegistry registry;
    volatile LONG wrong = 0;
    RunTogether(4, [&](unsigned thread) {
        for (std::uintptr_t i = 1; i <= 2000; ++i)
        {
            const Entry entry = MakeEntry(i * 4 + thread, thread + 1);
            registry.Insert(entry);
            if (registry.Find(entry->Handle()) != Session(thread + 1))
            {
                ::InterlockedIncrement(&wrong);
            }
            if (i % 2 == 0)
            {
                registry.Remove(*entry);
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
