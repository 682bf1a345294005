#include "tests/support/import_patch.h"
#include "tests/update/upgrade_fixture.h"
#include "update/is_upgrade_request.h"

#include <catch.hpp>

#include <string>
#include <vector>

using namespace velt::test;
using CONNECTION_MANAGER::connection_object;
using CONNECTION_MANAGER::queue_request;

namespace
{
using FindPatch = ImportPatch<"GetProcAddress", decltype(::GetProcAddress)>;

BOOL g_isOnline = FALSE;

BOOL WINAPI ConnectedState(DWORD*, DWORD)
{
    return g_isOnline;
}

DWORD Step(IS_upgrade_request& request)
{
    connection_object connection;
    return request.Step(connection, {}, true);
}

/// Keeps which requests it was told of.
class Owner final : public CONNECTION_MANAGER::ICallback
{
public:
    void OnRequestComplete(queue_request& request) override
    {
        completed.push_back(&request);
    }

    std::vector<queue_request*> completed;
};
} // namespace

TEST_CASE("IS_upgrade_request: a step is finished when the machine is online", "[update]")
{
    UpgradeFixture fixture;
    SECTION("by the agent's answer")
    {
        fixture.agent.isConnected = VARIANT_TRUE;
        CHECK(Step(fixture.request) == 3);
        fixture.agent.isConnected = VARIANT_FALSE;
        CHECK(Step(fixture.request) == 2);
        fixture.agent.isConnected = VARIANT_TRUE;
        CHECK(Step(fixture.request) == 3);
    }
    SECTION("by the agent's answer, whatever fails afterwards")
    {
        fixture.agent.results["GetUpdates"] = E_FAIL;
        CHECK(Step(fixture.request) == 3);
        fixture.agent.isConnected = VARIANT_FALSE;
        fixture.agent.results["SetServerAddress"] = E_FAIL;
        CHECK(Step(fixture.request) == 2);
    }
}

TEST_CASE("IS_upgrade_request: where the agent has no answer the system's counts", "[update]")
{
    UpgradeFixture fixture;
    const std::string reason = GENERATE(values<std::string>(
        {"no agent", "no extended interface", "no check wanted", "no answer", "a failure before"}));
    CAPTURE(reason);
    if (reason == "no agent")
    {
        fixture.agent.results["CreateInstance"] = REGDB_E_CLASSNOTREG;
    }
    fixture.agent.isExtended = reason != "no extended interface";
    if (reason == "no check wanted")
    {
        fixture.Register();
        fixture.agent.isWanted = VARIANT_FALSE;
    }
    if (reason == "no answer")
    {
        fixture.agent.results["IsConnectedEx"] = E_FAIL;
    }
    if (reason == "a failure before")
    {
        fixture.agent.results["SetLanguage"] = E_FAIL;
    }
    // The answer is found by its name.
    const FindPatch patch("kernel32.dll", [](HMODULE module, const char* name) -> FARPROC {
        return std::string(name) == "InternetGetConnectedState"
                   ? reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&ConnectedState))
                   : FindPatch::Original(module, name);
    });
    for (const BOOL isOnline : {TRUE, FALSE})
    {
        g_isOnline = isOnline;
        CHECK(Step(fixture.request) == (isOnline ? 3 : 2));
    }
}

TEST_CASE("IS_upgrade_request: an answer of the agent counts for its own step only", "[update]")
{
    UpgradeFixture fixture;
    const FindPatch patch("kernel32.dll", [](HMODULE module, const char* name) -> FARPROC {
        return std::string(name) == "InternetGetConnectedState"
                   ? reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&ConnectedState))
                   : FindPatch::Original(module, name);
    });
    const bool isOnline = GENERATE(false, true);
    g_isOnline = isOnline ? TRUE : FALSE;
    fixture.agent.isConnected = isOnline ? VARIANT_FALSE : VARIANT_TRUE;
    CHECK(Step(fixture.request) == (isOnline ? 2 : 3)); // the agent's
    fixture.agent.results["IsConnectedEx"] = E_FAIL;
    CHECK(Step(fixture.request) == (isOnline ? 3 : 2)); // the system's
}

TEST_CASE("IS_upgrade_request: its completion tells the owner, if there is one", "[update]")
{
    connection_object connection;
    DWORD value = 1;
    Owner owner;
    IS_upgrade_request told(&owner);
    told.Complete(connection, &value);
    CHECK(owner.completed == std::vector<queue_request*>{&told});
    IS_upgrade_request silent(nullptr);
    silent.Complete(connection, &value);
    CHECK(value == 1);
}
