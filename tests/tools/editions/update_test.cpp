// Update work of both editions: one record of registered products, and agents of either kind.

#include "tests/support/eventually.h"
#include "tests/support/registry_snapshot.h"
#include "tests/support/sample_agent_server.h"
#include "tests/tools/editions/edition_programs.h"
#include "tests/update/products_key.h"

#include <catch.hpp>

#include <algorithm>
#include <string>

using namespace velt::test;

namespace
{
const std::string kNoUpdate = "[agent]\r\nconnected=1\r\n";
const std::string kOneUpdate =
    "[agent]\r\nconnected=1\r\n[updates]\r\n{AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841B}=1\r\n";
constexpr wchar_t kAgentLibrary[] =
    L"Software\\Classes\\TypeLib\\{2663C58D-48A0-4625-ADF8-00E46B52380D}";

/// How often the agent has logged a call.
std::size_t Count(const SampleAgentServer& agent, const std::string& begin)
{
    const auto calls = agent.Calls();
    for (const std::string& call : calls)
    {
        UNSCOPED_INFO(call);
    }
    return static_cast<std::size_t>(std::ranges::count_if(
        calls, [&](const std::string& call) { return call.starts_with(begin); }));
}

/// Has the work done for a product. The agent lives as long as the window that it shows.
void Start(const SampleAgentServer& agent, const EditionPrograms& edition)
{
    const std::size_t before = Count(agent, "StartForegroundUpdate ");
    Velt(edition, {L"update", L"start", kProduct, L"3.0"});
    REQUIRE(Count(agent, "StartForegroundUpdate ") == before + 1);
    HWND window = nullptr;
    REQUIRE(Eventually([&] {
        window = ::FindWindowW(nullptr, L"Software Manager");
        return window != nullptr;
    }));
    ::PostMessageW(window, WM_CLOSE, 0, 0);
    agent.WaitForEnd();
}

std::string Check(const EditionPrograms& edition)
{
    return RunVelt({L"update", L"check", kProduct, L"3.0"}, edition.velt).output;
}
} // namespace

TEST_CASE("Editions: a product that one has registered is registered for the other", "[update]")
{
    const auto [first, second] = InOrder(GENERATE(false, true));
    CAPTURE(first.name, second.name);
    const SampleAgentServer agent(kNoUpdate, first.agent);
    RegistryValues recorded;
    {
        const ProductsKey products;
        Start(agent, first);
        recorded = ProductsKey::Values();
        REQUIRE(recorded.size() == 1);
        CHECK(recorded.at(kProduct) == TextValue(L"3.0"));
        CHECK(Count(agent, "RegisterProduct ") == 1);
        Start(agent, second);
        CHECK(ProductsKey::Values() == recorded);
        CHECK(Count(agent, "RegisterProduct ") == 1);
    }
    // The other's record has the same bytes.
    const ProductsKey products;
    Start(agent, second);
    CHECK(ProductsKey::Values() == recorded);
    CHECK(Count(agent, "RegisterProduct ") == 2);
}

TEST_CASE("Editions: an update agent of one kind serves a host of the other", "[update]")
{
    const auto [agentOf, host] = InOrder(GENERATE(false, true));
    CAPTURE(agentOf.name, host.name);
    const SampleAgentServer agent(kNoUpdate, agentOf.agent);
    CHECK(Check(host) == "available: no\n");
    agent.Configure(kOneUpdate);
    CHECK(Check(host) == "available: yes\n");
    CHECK(Count(agent, "GetUpdates ") == 2);
}

TEST_CASE("Editions: an update agent that is unregistered leaves no type library", "[update]")
{
    const EditionPrograms& one = InOrder(GENERATE(false, true)).first;
    CAPTURE(one.name);
    {
        const SampleAgentServer agent(kNoUpdate, one.agent);
        const RegistryTree registered = SnapshotRegistry(HKEY_LOCAL_MACHINE, kAgentLibrary);
        REQUIRE(registered.contains(L"1.0\\0\\win32"));
        REQUIRE(registered.contains(L"1.0\\0\\win64"));
        CHECK(registered.at(L"1.0\\0\\win32") == registered.at(L"1.0\\0\\win64"));
    }
    CHECK(SnapshotRegistry(HKEY_LOCAL_MACHINE, kAgentLibrary).empty());
}
