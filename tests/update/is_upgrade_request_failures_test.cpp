#include "update/is_upgrade_request.h"

#include "foundation/system_exception.h"
#include "tests/support/import_patch.h"
#include "tests/support/test_thread.h"
#include "tests/update/upgrade_fixture.h"

#include <comdef.h>

#include <catch.hpp>

#include <functional>
#include <new>
#include <stdexcept>
#include <string>

using namespace velt::test;
using Calls = CallLog::Calls;

namespace
{
/// The calls of a whole check: of a product that is new or on record, in the foreground or the
/// background.
Calls WholeCheck(bool isNew, bool isForeground)
{
    const Calls start = isNew          ? Registration()
                        : isForeground ? Calls{"CreateInstance"}
                                       : Calls{"CreateInstance", "IsCheckWanted" + kId};
    const Calls end = isForeground ? Calls{"StartForegroundUpdate" + kId + " 8"}
                                   : Availability() + Calls{"StartBackgroundUpdate" + kId};
    return start + Check() + Calls{"SetProperty" + kId + " ProductName The product"} + end;
}

std::string FirstWord(const std::string& call)
{
    return call.substr(0, call.find(' '));
}

/// The calls up to the one with that first word, then what the end of the routine releases.
Calls CutAfter(const Calls& calls, const std::string& word)
{
    Calls cut;
    for (const std::string& call : calls)
    {
        cut.push_back(call);
        if (FirstWord(call) == word)
        {
            break;
        }
    }
    if (word.ends_with(".Count"))
    {
        cut.push_back(word.substr(0, word.find('.')) + " gone");
    }
    if (word != "CreateInstance")
    {
        cut.push_back("agent gone");
    }
    return cut;
}
} // namespace

TEST_CASE("IS_upgrade_request: without an agent it ends quietly", "[update]")
{
    const ComApartment apartment;
    const ProductsKey products;
    TraceRecorder trace;
    IS_upgrade_request request(nullptr);
    request.DoWork();
    CHECK(trace.Count("m_agent.CoCreateInstance returns 80040154") == 1);
    CHECK(trace.Count("Exception thrown: hr = 80040154") == 1);
    CHECK(trace.Count("IS_upgrade_request::DoWork - return") == 1);
    CHECK_FALSE(request.IsUpdateOrMessageAvailable(false));
    CHECK_FALSE(request.IsUpdateOrMessageAvailable(true));
    CHECK(ProductsKey::Values().empty());
}

TEST_CASE("IS_upgrade_request: on a thread without COM it ends quietly", "[update]")
{
    TraceRecorder trace;
    OnOtherThread([] {
        IS_upgrade_request request(nullptr);
        request.DoWork();
        return true;
    });
    CHECK(trace.Count("Exception thrown: hr = 800401F0") == 1);
}

TEST_CASE("IS_upgrade_request: an agent without the extended interface is left alone", "[update]")
{
    UpgradeFixture fixture(GENERATE(true, false));
    fixture.agent.isExtended = false;
    fixture.request.DoWork();
    CHECK(fixture.agent.log.All() == Calls{"CreateInstance", "agent gone"});
    const auto traced = fixture.Traced();
    CHECK(UpgradeFixture::Lines(traced.begin() + 1, traced.end()) ==
          UpgradeFixture::Lines{"IS_upgrade_request::DoWork - enter",
                                "m_agent.CoCreateInstance returns 0",
                                "IS_upgrade_request::DoWork - return"});
    CHECK_FALSE(fixture.request.IsUpdateOrMessageAvailable(true));
    CHECK(fixture.agent.LiveObjects() == 0);
}

TEST_CASE("IS_upgrade_request: each call that fails ends the work, traced", "[update]")
{
    const bool isNew = GENERATE(true, false);
    const bool isForeground = GENERATE(true, false);
    for (const std::string& call : WholeCheck(isNew, isForeground))
    {
        const std::string word = FirstWord(call);
        if (call.ends_with(" gone") || word == "IsConnectedEx")
        {
            continue;
        }
        CAPTURE(isNew, isForeground, word);
        UpgradeFixture fixture(isForeground, L"The product");
        if (!isNew)
        {
            fixture.Register();
        }
        fixture.agent.updates = 1;
        fixture.agent.results[word] = MAKE_HRESULT(SEVERITY_ERROR, 0xABC, 0xDEF0);
        fixture.request.DoWork();
        CHECK(fixture.agent.log.All() == CutAfter(WholeCheck(isNew, isForeground), word));
        CHECK(fixture.agent.LiveObjects() == 0);
        CHECK(fixture.HasTraced("Exception thrown: hr = 8ABCDEF0"));
        const bool reachedWindow = fixture.HasTraced("FindWindowW \"Software Manager\" returned "
                                                     "00000000");
        CHECK_FALSE(reachedWindow);
        const bool isRecorded = !isNew || (word != "CreateInstance" && word != "RegisterProduct");
        CHECK(ProductsKey::Values().size() == (isRecorded ? 1 : 0));
    }
}

TEST_CASE("IS_upgrade_request: a failing IsConnectedEx counts as not connected", "[update]")
{
    const bool isForeground = GENERATE(true, false);
    UpgradeFixture fixture(isForeground, L"The product");
    fixture.agent.results["IsConnectedEx"] = E_ACCESSDENIED;
    fixture.agent.updates = 1;
    fixture.request.DoWork();
    const Calls check = {"SetLanguage" + kId + " 1033", "IsConnectedEx" + kId};
    const Calls start = isForeground ? Calls{"StartForegroundUpdate" + kId + " 8"} : Calls{};
    CHECK(fixture.agent.log.All() == Registration() + check + start + Calls{"agent gone"});
    CHECK(fixture.HasTraced("pAgentEx->IsConnectedEx returned 80070005, bConnected = -1"));
    CHECK(fixture.HasTraced("FindWindowW \"Software Manager\" returned 00000000"));
}

TEST_CASE("IS_upgrade_request: each call that fails makes what is available a no", "[update]")
{
    const Calls calls =
        Calls{"CreateInstance", "SetServerAddress" + kId + kServer, "IsConnectedEx" + kId} +
        Availability();
    for (const std::string& call : calls)
    {
        const std::string word = FirstWord(call);
        if (call.ends_with(" gone"))
        {
            continue;
        }
        CAPTURE(word);
        UpgradeFixture fixture;
        fixture.agent.updates = 1;
        fixture.agent.messages = 1;
        fixture.agent.results[word] = E_ABORT;
        CHECK_FALSE(fixture.request.IsUpdateOrMessageAvailable(true));
        CHECK(fixture.agent.log.All() == CutAfter(calls, word));
        CHECK(fixture.agent.LiveObjects() == 0);
        CHECK(fixture.HasTraced("Exception thrown: hr = 80004004"));
    }
}

TEST_CASE("IS_upgrade_request: a success code of the agent's own is no failure", "[update]")
{
    UpgradeFixture fixture(false, L"The product");
    fixture.agent.updates = 1;
    for (const std::string& call : WholeCheck(true, false))
    {
        fixture.agent.results[FirstWord(call)] = S_FALSE;
    }
    fixture.agent.results.erase("CreateInstance");
    fixture.request.DoWork();
    CHECK(fixture.agent.log.All() == WholeCheck(true, false) + Calls{"agent gone"});
}

TEST_CASE("IS_upgrade_request: whatever else is thrown is traced and swallowed", "[update]")
{
    const auto [code, fails] = GENERATE(table<std::string, std::function<void()>>(
        {{"80004005", [] { throw SystemException::HRESULT(E_FAIL); }},
         {"80070005", [] { throw SystemException::Win32(ERROR_ACCESS_DENIED); }},
         {"80004004", [] { throw _com_error(E_ABORT); }},
         {"8007000E", [] { throw std::bad_alloc(); }},
         {"8000FFFF", [] { throw std::runtime_error("of the agent"); }},
         {"8000FFFF", [] { throw 5; }}}));
    UpgradeFixture fixture;
    fixture.agent.onCall = [fail = fails](const std::string& call) {
        if (call == "GetUpdates")
        {
            fail();
        }
    };
    fixture.request.DoWork();
    CHECK(fixture.HasTraced("Exception thrown: hr = " + code));
    CHECK_FALSE(fixture.request.IsUpdateOrMessageAvailable(true));
    CHECK(fixture.trace.Count("Exception thrown: hr = " + code) == 2);
    CHECK(fixture.agent.log.Count("agent gone") == 2);
    CHECK(fixture.agent.LiveObjects() == 0);
}

TEST_CASE("IS_upgrade_request: a text that cannot be allocated ends the work", "[update]")
{
    UpgradeFixture fixture(false, L"The product");
    using Patch = ImportPatch<"SysAllocStringLen", decltype(::SysAllocStringLen)>;
    int failing = 1;
    int calls = 0;
    const Patch patch("oleaut32.dll", [&](const OLECHAR* text, UINT length) -> BSTR {
        return ++calls == failing ? nullptr : Patch::Original(text, length);
    });
    for (;; ++failing)
    {
        calls = 0;
        fixture.request.DoWork();
        CHECK(fixture.agent.LiveObjects() == 0);
        if (calls < failing)
        {
            break; // none failed
        }
        CHECK(fixture.trace.Count("Exception thrown: hr = 8007000E") ==
              static_cast<std::size_t>(failing));
    }
    CHECK(failing > 4);
}

TEST_CASE("IS_upgrade_request: the work lasts as long as the agent does", "[update]")
{
    TestEvent mayGoOn;
    StandInAgent* agent = nullptr;
    TestEvent made;
    TraceRecorder trace;
    const ProductsKey products;
    std::string connectedTrace;
    TestThread worker([&] {
        const ComApartment apartment;
        StandInAgent own;
        own.onCall = [&](const std::string& call) {
            if (call == "IsConnectedEx")
            {
                mayGoOn.Wait();
            }
        };
        agent = &own;
        made.Set();
        IS_upgrade_request request(nullptr);
        request.SetISParameters(kProduct, L"3.0", 1033, L"", true);
        request.DoWork();
        agent = nullptr;
    });
    made.Wait();
    agent->log.WaitFor("IsConnectedEx" + kId);
    CHECK(trace.Count("IS_upgrade_request::DoWork - return") == 0);
    mayGoOn.Set();
    worker.Join();
    CHECK(trace.Count("AppUpdating in ForeGround.............") == 1);
    CHECK(trace.Count("IS_upgrade_request::DoWork - return") == 1);
}
