#include "internet/registered_handle.h"

#include "tests/internet/exchange.h"
#include "tests/support/import_patch.h"

#include <catch.hpp>

#include <functional>
#include <memory>
#include <type_traits>
#include <vector>

using velt::HandleRegistry;
using velt::RegisteredHandle;
using namespace velt::test;

namespace
{
using CloseHandlePatch = ImportPatch<"InternetCloseHandle", decltype(::InternetCloseHandle)>;

HINTERNET Open()
{
    return ::InternetOpenW(L"Velt test", INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0);
}

CInternetSession* const kSession = reinterpret_cast<CInternetSession*>(100);
} // namespace

TEST_CASE("RegisteredHandle: owns a handle and its entry until the end", "[internet]")
{
    std::vector<HINTERNET> closed;
    const CloseHandlePatch patch("wininet.dll", [&](HINTERNET handle) {
        closed.push_back(handle);
        return CloseHandlePatch::Original(handle);
    });
    const HINTERNET handle = Open();
    REQUIRE(handle);
    {
        const RegisteredHandle owner(handle, kSession);
        CHECK(owner);
        CHECK(owner.Get() == handle);
        CHECK(HandleRegistry::Instance().Find(handle) == kSession);
        CHECK(OpenHandles() == 1);
        CHECK(closed.empty());
    }
    CHECK(OpenHandles() == 0);
    CHECK(closed == std::vector<HINTERNET>{handle});
}

TEST_CASE(
    "RegisteredHandle: a handle that ended with the one that it was opened from is not closed",
    "[internet]")
{
    std::vector<HINTERNET> closed;
    const CloseHandlePatch patch("wininet.dll", [&](HINTERNET handle) {
        closed.push_back(handle);
        return CloseHandlePatch::Original(handle);
    });
    const auto connect = [](const RegisteredHandle& session) {
        return ::InternetConnectW(session.Get(), L"host.invalid", 80, nullptr, nullptr,
                                  INTERNET_SERVICE_HTTP, 0, 0);
    };
    auto parent = std::make_unique<RegisteredHandle>(Open(), kSession);
    const HINTERNET session = parent->Get();
    const HINTERNET handle = connect(*parent);
    RegisteredHandle child(handle, *parent);
    CHECK(child.Get() == handle);
    CHECK(HandleRegistry::Instance().Find(handle) == kSession);
    CHECK(OpenHandles() == 2);
    SECTION("closed before it")
    {
        parent->Close();
        CHECK(OpenHandles() == 1); // for what the system may say of it
        CHECK(HandleRegistry::Instance().Find(handle) == kSession);
    }
    SECTION("destroyed before it")
    {
        parent.reset();
        CHECK(HandleRegistry::Instance().Find(handle) == nullptr); // nobody to be told
    }
    CHECK_FALSE(child);
    CHECK(child.Get() == nullptr);
    CHECK_FALSE(child.IsClosed());
    child.Close();
    CHECK(child.IsClosed());
    CHECK(OpenHandles() == 0);
    CHECK(closed == std::vector<HINTERNET>{session});
}

TEST_CASE("RegisteredHandle: what comes of a parent that was closed meanwhile is nobody's",
          "[internet]")
{
    RegisteredHandle parent(Open(), kSession);
    const HINTERNET session = parent.Get();
    const HINTERNET handle = ::InternetConnectW(session, L"host.invalid", 80, nullptr, nullptr,
                                                INTERNET_SERVICE_HTTP, 0, 0);
    parent.Close(); // as a status callback may
    const RegisteredHandle foreign(Open(), kSession);
    const CloseHandlePatch patch("wininet.dll", &CloseHandlePatch::Original);
    {
        RegisteredHandle late(handle, parent);
        CHECK_FALSE(late);
        CHECK(late.IsClosed());
        CHECK(OpenHandles() == 1);
    }
    CHECK(patch.Calls() == 0);
    CHECK(HandleRegistry::Instance().Find(foreign.Get()) == kSession);
}

TEST_CASE("RegisteredHandle: a handle whose end was announced is not closed", "[internet]")
{
    RegisteredHandle owner(Open(), kSession);
    const HINTERNET handle = owner.Get();
    HandleRegistry::Instance().End(handle);
    CHECK_FALSE(owner);
    CHECK_FALSE(owner.IsClosed());
    {
        const CloseHandlePatch patch("wininet.dll", &CloseHandlePatch::Original);
        owner.Close();
        CHECK(patch.Calls() == 0);
    }
    CHECK(owner.IsClosed());
    CHECK(OpenHandles() == 0);
    ::InternetCloseHandle(handle);
}

TEST_CASE("RegisteredHandle: a value that was given out again is not its first owner's",
          "[internet]")
{
    const HINTERNET handle = Open();
    const CloseHandlePatch patch("wininet.dll", &CloseHandlePatch::Original);
    {
        RegisteredHandle first(handle, kSession); // the system has ended it and said nothing
        const RegisteredHandle second(handle, kSession);
        CHECK_FALSE(first);
        first.Close();
        CHECK(patch.Calls() == 0);
        CHECK(HandleRegistry::Instance().Find(handle) == kSession);
        CHECK(second.Get() == handle);
    }
    CHECK(patch.Calls() == 1);
    CHECK(OpenHandles() == 0);
}

TEST_CASE("RegisteredHandle: without a handle it enters and closes nothing", "[internet]")
{
    const CloseHandlePatch patch("wininet.dll", [](HINTERNET) { return TRUE; });
    {
        RegisteredHandle none;
        RegisteredHandle null(nullptr, kSession);
        CHECK_FALSE(none);
        CHECK_FALSE(null);
        CHECK(none.Get() == nullptr);
        CHECK(null.Get() == nullptr);
        CHECK(OpenHandles() == 0);
        none.Close();
        null.Close();
    }
    CHECK(patch.Calls() == 0);
}

TEST_CASE("RegisteredHandle: closes once", "[internet]")
{
    const CloseHandlePatch patch("wininet.dll", &CloseHandlePatch::Original);
    {
        RegisteredHandle owner(Open(), kSession);
        owner.Close();
        CHECK_FALSE(owner);
        CHECK(OpenHandles() == 0);
        owner.Close();
    }
    CHECK(patch.Calls() == 1);
}

TEST_CASE("RegisteredHandle: moves, and one that was moved from is empty", "[internet]")
{
    const CloseHandlePatch patch("wininet.dll", &CloseHandlePatch::Original);
    {
        RegisteredHandle first(Open(), kSession);
        const HINTERNET handle = first.Get();
        RegisteredHandle second(std::move(first));
        CHECK_FALSE(first);
        first.Close();
        CHECK(second.Get() == handle);
        CHECK(HandleRegistry::Instance().Find(handle) == kSession);
        CHECK(patch.Calls() == 0);
    }
    CHECK(patch.Calls() == 1);
    CHECK(OpenHandles() == 0);
    CHECK_FALSE(std::is_copy_constructible_v<RegisteredHandle>);
}

TEST_CASE("RegisteredHandle: while the system closes it the entry stands and the owner is empty",
          "[internet]")
{
    RegisteredHandle owner(Open(), kSession);
    CInternetSession* found = nullptr;
    bool stillOwned = true;
    const CloseHandlePatch patch("wininet.dll", [&](HINTERNET handle) {
        found = HandleRegistry::Instance().Find(handle);
        stillOwned = owner.Get() != nullptr;
        owner.Close(); // as a status callback may
        return CloseHandlePatch::Original(handle);
    });
    owner.Close();
    CHECK(found == kSession);
    CHECK_FALSE(stillOwned);
    CHECK(patch.Calls() == 1);
    CHECK(OpenHandles() == 0);
}

TEST_CASE("RegisteredHandle: a handle that the system does not close leaves the registry too",
          "[internet]")
{
    RegisteredHandle owner(Open(), kSession);
    const HINTERNET handle = owner.Get();
    {
        const CloseHandlePatch patch("wininet.dll", [](HINTERNET) { return FALSE; });
        owner.Close();
    }
    CHECK(OpenHandles() == 0);
    CHECK_FALSE(owner);
    ::InternetCloseHandle(handle);
}

TEST_CASE("RegisteredHandle: closing keeps the thread's last error", "[internet]")
{
    RegisteredHandle owner(Open(), kSession);
    ::SetLastError(1234);
    {
        const CloseHandlePatch patch("wininet.dll", [](HINTERNET handle) {
            const BOOL closed = CloseHandlePatch::Original(handle);
            ::SetLastError(5678);
            return closed;
        });
        owner.Close();
    }
    CHECK(::GetLastError() == 1234);
}

TEST_CASE("RegisteredHandle: a value that another session gets during the closing stays its own",
          "[internet]")
{
    CInternetSession* const other = reinterpret_cast<CInternetSession*>(200);
    RegisteredHandle late(Open(), kSession);
    const HINTERNET value = late.Get();
    const auto entry = std::make_shared<velt::HandleEntry>(value, other);
    {
        // The system has closed the handle and given its value out again before the first owner
        // goes on.
        const CloseHandlePatch patch("wininet.dll", [&](HINTERNET handle) {
            HandleRegistry::Instance().Insert(entry);
            return CloseHandlePatch::Original(handle);
        });
        late.Close();
    }
    CHECK(HandleRegistry::Instance().Find(value) == other);
    HandleRegistry::Instance().Remove(*entry);
    CHECK(OpenHandles() == 0);
}
