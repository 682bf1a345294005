#include "connection/echo_dll.h"

#include "connection/connection_probe.h"
#include "tests/support/echo_stand_in.h"
#include "tests/support/import_patch.h"
#include "tests/support/virtual_slot.h"

#include <windows.h>

#include <icmpapi.h>

#include <catch.hpp>

#include <memory>
#include <string>
#include <type_traits>
#include <vector>

using namespace velt::test;

namespace
{
using FindPatch = EchoStandIn::FindPatch;
using LoadPatch = ImportPatch<"LoadLibraryExW", decltype(::LoadLibraryExW)>;

constexpr IPAddr kAddress = 0x0100007F; // 127.0.0.1
constexpr DWORD kTimeoutMs = 4321;

} // namespace

TEST_CASE("CEchoDLL: it sends one echo of two bytes and waits for its reply", "[connection]")
{
    EchoStandIn system;
    const std::unique_ptr<CEchoDLL> echo = CEchoDLL::Load();
    REQUIRE(echo);
    CHECK(echo->Send(kAddress, kTimeoutMs) == CEchoDLL::kReplied);
    CHECK(system.created == 1);
    CHECK(system.sent == 1);
    CHECK(system.closed == 1);
    CHECK(system.address == kAddress);
    CHECK(system.data == std::string("\x49\0", 2));
    CHECK_FALSE(system.hasOptions);
    CHECK(system.replySize == (sizeof(void*) == 8 ? 42 : 30)); // a reply and what was sent
    CHECK(system.isZeroed);
    CHECK(system.timeoutMs == kTimeoutMs);
}

TEST_CASE("CEchoDLL: success is a reply with the status of success", "[connection]")
{
    const auto [replies, status, expected] =
        GENERATE(table<DWORD, ULONG, DWORD>({{1, IP_SUCCESS, 1},
                                             {2, IP_SUCCESS, 1},
                                             {0, IP_SUCCESS, 3},
                                             {0, IP_REQ_TIMED_OUT, 3},
                                             {1, IP_REQ_TIMED_OUT, 3},
                                             {1, IP_DEST_HOST_UNREACHABLE, 3}}));
    CAPTURE(replies, status);
    EchoStandIn system;
    system.replies = replies;
    system.replyStatus = status;
    const std::unique_ptr<CEchoDLL> echo = CEchoDLL::Load();
    REQUIRE(echo);
    CHECK(echo->Send(kAddress, kTimeoutMs) == expected);
    CHECK(system.closed == 1);

    const velt::ConnectionProbe probe;
    CHECK(probe.Ping("127.0.0.1", kTimeoutMs) == (expected == 1 ? S_OK : E_FAIL));
    CHECK(system.address == kAddress);
    CHECK(system.timeoutMs == kTimeoutMs);
}

TEST_CASE("CEchoDLL: without a file nothing is sent or closed", "[connection]")
{
    EchoStandIn system;
    system.file = INVALID_HANDLE_VALUE;
    const std::unique_ptr<CEchoDLL> echo = CEchoDLL::Load();
    REQUIRE(echo);
    CHECK(echo->Send(kAddress, kTimeoutMs) == CEchoDLL::kNoReply);
    CHECK(system.created == 1);
    CHECK(system.sent == 0);
    CHECK(system.closed == 0);
}

TEST_CASE("CEchoDLL: a library or a function that is missing makes for none", "[connection]")
{
    SECTION("a function")
    {
        const std::string missing = GENERATE("IcmpCreateFile", "IcmpCloseHandle", "IcmpSendEcho");
        CAPTURE(missing);
        const FindPatch patch("kernel32.dll", [&](HMODULE module, const char* name) -> FARPROC {
            return name == missing ? nullptr : FindPatch::Original(module, name);
        });
        CHECK(CEchoDLL::Load() == nullptr);
        const velt::ConnectionProbe probe;
        CHECK(probe.Ping("127.0.0.1", 100) == E_FAIL);
    }
    SECTION("the library, or the one that it stands for")
    {
        const std::wstring missing = GENERATE(L"ICMP.DLL", L"IPHLPAPI.DLL");
        const LoadPatch patch(
            "kernel32.dll", [&](const wchar_t* name, HANDLE file, DWORD flags) -> HMODULE {
                return name == missing ? nullptr : LoadPatch::Original(name, file, flags);
            });
        CHECK(CEchoDLL::Load() == nullptr);
        const velt::ConnectionProbe probe;
        CHECK(probe.Ping("127.0.0.1", 100) == E_FAIL);
    }
}

TEST_CASE("CEchoDLL: it loads its library, after the one that this stands for, from the system's "
          "folder, and gives both back",
          "[connection]")
{
    std::vector<std::wstring> names;
    const LoadPatch patch("kernel32.dll",
                          [&](const wchar_t* name, HANDLE file, DWORD flags) -> HMODULE {
                              names.emplace_back(name);
                              return (flags & LOAD_LIBRARY_SEARCH_SYSTEM32) != 0
                                         ? LoadPatch::Original(name, file, flags)
                                         : nullptr;
                          });
    const ImportPatch<"FreeLibrary", decltype(::FreeLibrary)> freed(
        "kernel32.dll", [](HMODULE module) { return decltype(freed)::Original(module); });
    for (int round = 0; round < 3; ++round)
    {
        names.clear();
        CHECK(CEchoDLL::Load() != nullptr);
        CHECK((names == std::vector<std::wstring>{L"IPHLPAPI.DLL", L"ICMP.DLL"}));
    }
    CHECK(freed.Calls() == 6);
    CHECK(std::has_virtual_destructor_v<CEchoDLL>);
}
