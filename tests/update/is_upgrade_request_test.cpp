#include "update/is_upgrade_request.h"

#include "tests/support/initialize_spy.h"
#include "tests/support/test_thread.h"
#include "tests/update/upgrade_fixture.h"

#include <catch.hpp>

#include <string>
#include <utility>

using namespace velt::test;
using Calls = CallLog::Calls;
using Lines = UpgradeFixture::Lines;

namespace
{
/// A top-level window of the test's own.
class TitledWindow
{
public:
    explicit TitledWindow(const wchar_t* title)
        : m_window(::CreateWindowExW(0, L"STATIC", title, WS_OVERLAPPEDWINDOW | WS_VISIBLE, 10, 10,
                                     200, 100, nullptr, nullptr, nullptr, nullptr))
    {
    }

    TitledWindow(const TitledWindow&) = delete;
    TitledWindow& operator=(const TitledWindow&) = delete;

    ~TitledWindow()
    {
        ::DestroyWindow(m_window);
    }

    HWND Get() const noexcept
    {
        return m_window;
    }

    bool IsAbove(const TitledWindow& other) const noexcept
    {
        HWND below = m_window;
        while (below && below != other.m_window)
        {
            below = ::GetWindow(below, GW_HWNDNEXT);
        }
        return below != nullptr;
    }

private:
    HWND m_window;
};

std::string Hex(HWND window)
{
    std::string text(9, '\0');
    text.resize(static_cast<std::size_t>(::wsprintfA(
        text.data(), "%08lX", static_cast<unsigned long>(reinterpret_cast<UINT_PTR>(window)))));
    return text;
}
} // namespace

TEST_CASE("IS_upgrade_request: it starts empty, in English and in the background", "[update]")
{
    const ComApartment apartment;
    const ProductsKey products;
    StandInAgent agent;
    agent.updates = 1;
    IS_upgrade_request request(nullptr);
    CHECK(request.InstallerGuid().empty());
    request.DoWork();
    CHECK(agent.log.All() == Calls{"CreateInstance", "RegisterProduct   " + kServer.substr(1),
                                   "SetLanguage  1033", "IsConnectedEx ",
                                   "SetServerAddress " + kServer, "GetUpdates ", "updates.Count",
                                   "updates gone", "GetMessages ", "messages.Count",
                                   "messages gone", "StartBackgroundUpdate ", "agent gone"});
}

TEST_CASE("IS_upgrade_request: the parameters are traced as they are", "[update]")
{
    UpgradeFixture fixture;
    fixture.request.SetISParameters(L"{G\x00FC}", L"", -5, L"100%s", true);
    CHECK(fixture.request.InstallerGuid() == L"{G\x00FC}");
    CHECK(fixture.Traced() ==
          Lines{"IS_upgrade_request::StartUpdateService - params = "
                "{{AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841B}, 3.0, 1033, }",
                "IS_upgrade_request::StartUpdateService - params = {{G\xC3\xBC}, , -5, 100%s}"});
}

TEST_CASE("IS_upgrade_request: a new product is registered, then updated in the background",
          "[update]")
{
    UpgradeFixture fixture(false, L"The product");
    fixture.agent.updates = 2;
    fixture.request.DoWork();
    CHECK(fixture.agent.log.All() ==
          Registration() + Check() + Calls{"SetProperty" + kId + " ProductName The product"} +
              Availability() + Calls{"StartBackgroundUpdate" + kId, "agent gone"});
    CHECK(fixture.agent.LiveObjects() == 0);
    CHECK(fixture.Traced() ==
          Lines{"IS_upgrade_request::StartUpdateService - params = "
                "{{AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841B}, 3.0, 1033, The product}",
                "IS_upgrade_request::DoWork - enter", "m_agent.CoCreateInstance returns 0",
                "Update service invocation in the following language 1033",
                "pAgentEx->IsConnectedEx returned 00000000, bConnected = -1",
                "AppUpdating in BackGround.............",
                "FindWindowW \"Software Manager\" returned 00000000",
                "IS_upgrade_request::DoWork - return"});
    CHECK(ProductsKey::Values() == RegistryValues{{kProduct, TextValue(L"3.0")}});
}

TEST_CASE("IS_upgrade_request: a new product is updated in the foreground with mode 8", "[update]")
{
    UpgradeFixture fixture(true);
    fixture.agent.isConnected = GENERATE(VARIANT_TRUE, VARIANT_FALSE);
    const std::string connected = fixture.agent.isConnected ? "-1" : "0";
    fixture.request.DoWork();
    CHECK(fixture.agent.log.All() ==
          Registration() + Check() + Calls{"StartForegroundUpdate" + kId + " 8", "agent gone"});
    const Lines traced = fixture.Traced();
    CHECK(Lines(traced.begin() + 2, traced.end()) ==
          Lines{"m_agent.CoCreateInstance returns 0",
                "Update service invocation in the following language 1033",
                "pAgentEx->IsConnectedEx returned 00000000, bConnected = " + connected,
                "AppUpdating in ForeGround.............",
                "FindWindowW \"Software Manager\" returned 00000000",
                "IS_upgrade_request::DoWork - return"});
}

TEST_CASE("IS_upgrade_request: a product on record is not registered again", "[update]")
{
    SECTION("in the foreground it is checked at once")
    {
        UpgradeFixture fixture(true);
        fixture.Register();
        fixture.agent.isWanted = VARIANT_FALSE; // nobody asks
        fixture.request.DoWork();
        CHECK(fixture.agent.log.All() ==
              Calls{"CreateInstance"} + Check() +
                  Calls{"StartForegroundUpdate" + kId + " 8", "agent gone"});
    }
    SECTION("in the background it is checked when the agent wants it")
    {
        UpgradeFixture fixture;
        fixture.Register();
        fixture.request.DoWork();
        CHECK(fixture.agent.log.All() == Calls{"CreateInstance", "IsCheckWanted" + kId} + Check() +
                                             Availability() + Calls{"agent gone"});
    }
    SECTION("in the background nothing is done when it does not")
    {
        UpgradeFixture fixture;
        fixture.Register();
        fixture.agent.isWanted = VARIANT_FALSE;
        fixture.request.DoWork();
        CHECK(fixture.agent.log.All() ==
              Calls{"CreateInstance", "IsCheckWanted" + kId, "agent gone"});
        const Lines traced = fixture.Traced();
        CHECK(Lines(traced.begin() + 1, traced.end()) ==
              Lines{"IS_upgrade_request::DoWork - enter", "m_agent.CoCreateInstance returns 0",
                    "IS_upgrade_request::DoWork - return"});
    }
    SECTION("by its own request, either")
    {
        UpgradeFixture fixture;
        fixture.request.DoWork();
        fixture.request.DoWork();
        CHECK(fixture.agent.log.Count(Registration().back()) == 1);
        CHECK(fixture.agent.log.Count("IsCheckWanted" + kId) == 1);
    }
}

TEST_CASE("IS_upgrade_request: another version of a product on record is registered", "[update]")
{
    UpgradeFixture fixture;
    fixture.Register();
    fixture.request.SetISParameters(kProduct, L"3.1", 1033, L"", false);
    fixture.request.DoWork();
    CHECK(fixture.agent.log.Count("RegisterProduct" + kId + " 3.1" + kServer) == 1);
    CHECK(ProductsKey::Values() == RegistryValues{{kProduct, TextValue(L"3.1")}});
}

TEST_CASE("IS_upgrade_request: without a connection the background does nothing", "[update]")
{
    UpgradeFixture fixture(false, L"The product");
    fixture.agent.isConnected = VARIANT_FALSE;
    fixture.agent.updates = 1;
    fixture.request.DoWork();
    CHECK(fixture.agent.log.All() ==
          Registration() + Check() +
              Calls{"SetProperty" + kId + " ProductName The product", "agent gone"});
    CHECK(fixture.HasTraced("pAgentEx->IsConnectedEx returned 00000000, bConnected = 0"));
    CHECK(fixture.HasTraced("FindWindowW \"Software Manager\" returned 00000000"));
    CHECK_FALSE(fixture.HasTraced("UpdatesAvailable(pAgentEx)= false"));
}

TEST_CASE("IS_upgrade_request: the background starts for an update or a message", "[update]")
{
    const auto [updates, messages, starts] = GENERATE(table<LONG, LONG, bool>({{0, 0, false},
                                                                               {1, 0, true},
                                                                               {0, 1, true},
                                                                               {7, 9, true},
                                                                               {-1, 0, false},
                                                                               {0, -1, false},
                                                                               {-1, 1, true}}));
    CAPTURE(updates, messages);
    UpgradeFixture fixture;
    fixture.agent.updates = updates;
    fixture.agent.messages = messages;
    fixture.request.DoWork();
    const Calls end =
        starts ? Calls{"StartBackgroundUpdate" + kId, "agent gone"} : Calls{"agent gone"};
    CHECK(fixture.agent.log.All() == Registration() + Check() + Availability() + end);
    CHECK(fixture.HasTraced("AppUpdating in BackGround.............") == starts);
    CHECK(fixture.HasTraced("UpdatesAvailable(pAgentEx)= false") == !starts);
    CHECK(fixture.request.IsUpdateOrMessageAvailable(true) == starts);
}

TEST_CASE("IS_upgrade_request: a collection that is not returned is empty", "[update]")
{
    UpgradeFixture fixture;
    SECTION("neither")
    {
        fixture.agent.updates.reset();
        fixture.agent.messages.reset();
        fixture.request.DoWork();
        CHECK(fixture.agent.log.All() ==
              Registration() + Check() +
                  Calls{"GetUpdates" + kId, "GetMessages" + kId, "agent gone"});
        CHECK_FALSE(fixture.request.IsUpdateOrMessageAvailable(true));
    }
    SECTION("only the other one")
    {
        fixture.agent.updates.reset();
        fixture.agent.messages = 1;
        fixture.request.DoWork();
        CHECK(fixture.agent.log.Count("StartBackgroundUpdate" + kId) == 1);
        CHECK(fixture.request.IsUpdateOrMessageAvailable(true));
    }
}

TEST_CASE("IS_upgrade_request: the agent gets its own code for the locale", "[update]")
{
    const auto [locale, code, isKnown] =
        GENERATE(table<LONG, LONG, bool>({{1033, 1033, true},
                                          {1031, 1031, true},
                                          {2052, 2052, true},
                                          {3098, 3098, true},
                                          {3082, 1034, true},
                                          {1037, 1033, false},
                                          {1039, 1033, false},
                                          {1047, 1033, false},
                                          {1052, 1033, false},
                                          {1056, 1033, false},
                                          {0, 1033, false},
                                          {-1, 1033, false},
                                          {0x7FFFFFFF, 1033, false}}));
    CAPTURE(locale);
    UpgradeFixture fixture(true, L"", locale);
    fixture.request.DoWork();
    CHECK(fixture.agent.log.Count("SetLanguage" + kId + ' ' + std::to_string(code)) == 1);
    CHECK(fixture.HasTraced("Update service invocation in the following language " +
                            std::to_string(code)));
    CHECK(fixture.HasTraced("IS_upgrade_request::GetLanguageCode - locale LCID is not supported by "
                            "ISUM and not recognized by map. Default to English.") == !isKnown);
}

TEST_CASE("IS_upgrade_request: the agent's window comes to the top", "[update]")
{
    const TitledWindow manager(L"Software Manager");
    const TitledWindow other(L"Software Manager 2");
    ::BringWindowToTop(other.Get());
    REQUIRE(other.IsAbove(manager));
    UpgradeFixture fixture(true);
    fixture.request.DoWork();
    CHECK(manager.IsAbove(other));
    CHECK(fixture.HasTraced("FindWindowW \"Software Manager\" returned " + Hex(manager.Get())));
}

TEST_CASE("IS_upgrade_request: the extended interface is given back before the agent", "[update]")
{
    UpgradeFixture fixture(GENERATE(true, false));
    if (GENERATE(true, false))
    {
        fixture.request.DoWork();
    }
    else
    {
        fixture.request.IsUpdateOrMessageAvailable(true);
    }
    CHECK(fixture.agent.releases.All() == Calls{"extended interface", "agent"});
    CHECK(fixture.agent.LiveObjects() == 0);
}

TEST_CASE("IS_upgrade_request: what is told and what is recorded follow what they follow from",
          "[update]")
{
    UpgradeFixture fixture;
    bool registeredFirst = false;
    bool languageTraced = false;
    fixture.agent.onCall = [&](const std::string& call) {
        if (call == "RegisterProduct")
        {
            registeredFirst = ProductsKey::Values().empty(); // the agent knows before we record it
        }
        else if (call == "SetLanguage")
        {
            languageTraced =
                fixture.HasTraced("Update service invocation in the following language 1033");
        }
    };
    fixture.request.DoWork();
    CHECK(registeredFirst);
    CHECK(languageTraced);
    CHECK(ProductsKey::Values().size() == 1);
}

TEST_CASE("IS_upgrade_request: whether there is an agent needs no call of it", "[update]")
{
    UpgradeFixture fixture;
    fixture.agent.isExtended = GENERATE(true, false);
    CHECK(fixture.request.IsUpdateOrMessageAvailable(false));
    CHECK(fixture.agent.log.All() == Calls{"CreateInstance", "agent gone"});
}

TEST_CASE("IS_upgrade_request: what is available is asked in this order", "[update]")
{
    UpgradeFixture fixture(true, L"The product", 3082);
    // Whether the agent is connected changes nothing once it has answered.
    fixture.agent.isConnected = GENERATE(VARIANT_TRUE, VARIANT_FALSE);
    fixture.agent.messages = 1;
    CHECK(fixture.request.IsUpdateOrMessageAvailable(true));
    CHECK(fixture.agent.log.All() ==
          Calls{"CreateInstance", "SetServerAddress" + kId + kServer, "IsConnectedEx" + kId} +
              Availability() + Calls{"agent gone"});
    CHECK(fixture.agent.LiveObjects() == 0);
    CHECK(ProductsKey::Values().empty());
}

TEST_CASE("IS_upgrade_request: the question of what is available brings COM with it", "[update]")
{
    IS_upgrade_request request(nullptr);
    SECTION("to a thread without")
    {
        const auto [initialised, uninitialised] = OnOtherThread([&] {
            const InitializeSpy spy;
            request.IsUpdateOrMessageAvailable(true);
            return std::pair(spy.Initialised(), spy.Uninitialised());
        });
        CHECK(initialised == 1);
        CHECK(uninitialised == 1);
    }
    SECTION("but not to one of the multithreaded apartment")
    {
        const auto [initialised, uninitialised] = OnOtherThread([&] {
            ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
            std::pair<int, int> counts;
            {
                const InitializeSpy spy;
                request.IsUpdateOrMessageAvailable(true);
                counts = {spy.Initialised(), spy.Uninitialised()};
            }
            ::CoUninitialize();
            return counts;
        });
        CHECK(initialised == 1);
        CHECK(uninitialised == 0);
    }
    SECTION("and leaves an apartment as it was")
    {
        const ComApartment apartment;
        const InitializeSpy spy;
        request.IsUpdateOrMessageAvailable(true);
        CHECK(spy.Initialised() == 1);
        CHECK(spy.Uninitialised() == 1);
    }
}
