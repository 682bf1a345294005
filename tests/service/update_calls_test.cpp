// What the service's members ask of the update agent, and who waits meanwhile.

#include "service/velt_http_service.h"

#include "foundation/endpoints.h"
#include "foundation/wide_text.h"
#include "tests/service/service_objects.h"
#include "tests/service/worker_fixture.h"
#include "tests/support/apartment_thread.h"
#include "tests/support/com_apartment.h"
#include "tests/support/import_patch.h"
#include "tests/support/recording_sink.h"
#include "tests/support/stand_in_agent.h"
#include "tests/support/test_module.h"
#include "tests/support/test_thread.h"
#include "tests/support/trace_recorder.h"
#include "tests/update/products_key.h"
#include "update/update_agent_class.h"

#include <wbemcli.h>

#include <catch.hpp>

#include <algorithm>
#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

using Microsoft::WRL::ComPtr;
using namespace velt::test;
using velt::MakeBstr;
using Calls = CallLog::Calls;

namespace
{
const std::string kId = " {0F8FAD5B-D9CB-469F-A165-70867728950E}";
const std::string kServer = " http://" + velt::Utf8FromWide(velt::kUpdateHost);
constexpr char kParams[] = "IS_upgrade_request::StartUpdateService - params = "
                           "{{0F8FAD5B-D9CB-469F-A165-70867728950E}, 1.5, 3082, ";

struct UpdateFixture
{
    UpdateFixture()
    {
        velt::ThrowIfFailed(velt::CreateComObject<CVeltHTTPService>(service.GetAddressOf()));
    }

    UpdateFixture(const UpdateFixture&) = delete;
    UpdateFixture& operator=(const UpdateFixture&) = delete;

    ~UpdateFixture()
    {
        service.Reset();
        WorkerFixture::Await([&] { return module.LockCount() == 0; });
    }

    HRESULT InvokeUpdate() const
    {
        return service->InvokeUpdate(MakeBstr(kGuid).Get(), MakeBstr(L"1.5").Get(), 3082,
                                     MakeBstr(L"The product").Get());
    }

    /// The answer to the question for updates.
    VARIANT_BOOL Ask(VARIANT_BOOL connectToServer) const
    {
        VARIANT_BOOL available = 0x5555;
        velt::ThrowIfFailed(service->IsUpdateOrMessageAvailable(
            MakeBstr(kGuid).Get(), MakeBstr(L"1.5").Get(), 3082, connectToServer, &available));
        return available;
    }

    const ComApartment apartment;
    TraceRecorder trace;
    TestModule module;
    const ProductsKey products;
    StandInAgent agent;
    ComPtr<IVeltHTTPService> service;
};

/// Another thread's question for the connection, which begins while the agent is being asked.
class Question
{
public:
    explicit Question(UpdateFixture& fixture) : m_fixture(fixture) {}

    Question(const Question&) = delete;
    Question& operator=(const Question&) = delete;

    ~Question() = default;

    /// Starts the thread; whether the question is still unanswered a while after it was asked.
    bool IsHeldUp()
    {
        m_thread = std::make_unique<TestThread>([this] {
            VARIANT_BOOL connected = VARIANT_TRUE;
            result = m_fixture.service->get_IsConnected(&connected);
            m_answered.Set();
        });
        const ULONGLONG limit = ::GetTickCount64() + kWaitLimitMs;
        while (m_fixture.trace.Count("CVeltHTTPService::get_IsConnected - enter") == 0)
        {
            if (::GetTickCount64() > limit)
            {
                throw std::runtime_error("the question is not asked");
            }
            ::Sleep(1);
        }
        return !m_answered.IsSetWithin(100);
    }

    void Join()
    {
        m_thread->Join();
    }

    HRESULT result = E_FAIL;

private:
    UpdateFixture& m_fixture;
    TestEvent m_answered;
    std::unique_ptr<TestThread> m_thread;
};
} // namespace

TEST_CASE("InvokeUpdate: its arguments are what the agent is told", "[service]")
{
    UpdateFixture f;
    CHECK(f.InvokeUpdate() == S_OK);
    CHECK(f.agent.log.All() == Calls{"CreateInstance", "RegisterProduct" + kId + " 1.5" + kServer,
                                     "SetLanguage" + kId + " 1034", "IsConnectedEx" + kId,
                                     "SetServerAddress" + kId + kServer,
                                     "SetProperty" + kId + " ProductName The product",
                                     "StartForegroundUpdate" + kId + " 8", "agent gone"});
    CHECK(f.trace.Count(kParams + std::string("The product}")) == 1);
}

TEST_CASE("IsUpdateOrMessageAvailable: its arguments are what the agent is asked for", "[service]")
{
    UpdateFixture f;
    f.agent.messages = 1;
    CHECK(f.Ask(VARIANT_TRUE) == VARIANT_TRUE);
    CHECK(f.agent.log.All() == Calls{"CreateInstance", "SetServerAddress" + kId + kServer,
                                     "IsConnectedEx" + kId, "GetUpdates" + kId, "updates.Count",
                                     "updates gone", "GetMessages" + kId, "messages.Count",
                                     "messages gone", "agent gone"});
    CHECK(f.trace.Count(kParams + std::string("}")) == 1); // with an empty description
}

TEST_CASE("IsUpdateOrMessageAvailable: only VARIANT_TRUE has the server asked", "[service]")
{
    UpdateFixture f;
    CHECK(f.Ask(VARIANT_TRUE) == VARIANT_FALSE); // there is nothing
    CHECK(f.agent.log.Count("GetUpdates" + kId) == 1);
    for (const VARIANT_BOOL other : {VARIANT_FALSE, VARIANT_BOOL{1}, VARIANT_BOOL{2}})
    {
        INFO(other);
        CHECK(f.Ask(other) == VARIANT_TRUE); // there is an agent
    }
    CHECK(f.agent.log.Count("GetUpdates" + kId) == 1);
}

TEST_CASE("The service: it is locked while the agent is asked", "[service]")
{
    UpdateFixture f;
    const bool invokes = GENERATE(true, false);
    Question question(f);
    std::optional<bool> heldUp;
    f.agent.onCall = [&](const std::string& call) {
        if (call == "IsConnectedEx")
        {
            heldUp = question.IsHeldUp();
        }
    };
    if (invokes)
    {
        CHECK(f.InvokeUpdate() == S_OK);
    }
    else
    {
        CHECK(f.Ask(VARIANT_TRUE) == VARIANT_FALSE);
    }
    question.Join(); // answered now
    CHECK(heldUp == true);
    CHECK(question.result == S_OK);
}

TEST_CASE("The service: whatever touches its state waits while the agent is asked", "[service]")
{
    UpdateFixture f;
    const velt::UniqueBstr url = MakeBstr(L"http://locked.velt.example/");
    const velt::UniqueBstr text = MakeBstr(L"t");
    const BSTR u = url.Get();
    const BSTR t = text.Get();
    IVeltHTTPService& s = *f.service.Get();
    struct Member
    {
        std::string name;
        std::function<HRESULT()> call;
        std::atomic<HRESULT> result = S_FALSE; // unanswered
    };
    std::deque<Member> members;
    const auto add = [&](const char* name, std::function<HRESULT()> call) {
        Member& member = members.emplace_back();
        member.name = name;
        member.call = std::move(call);
    };
    BSTR read = nullptr;
    BSTR safelyRead = nullptr;
    BSTR domain = nullptr;
    VARIANT_BOOL connected = VARIANT_TRUE;
    add("WriteData", [&] { return s.WriteData(u, t, t); });
    add("ReadData", [&] { return s.ReadData(u, t, &read); });
    add("SafeWriteData", [&] { return s.SafeWriteData(u, t, t); });
    add("SafeReadData", [&] { return s.SafeReadData(u, t, &safelyRead); });
    add("get_IsConnected", [&] { return s.get_IsConnected(&connected); });
    add("put_domain", [&] { return s.put_domain(t); });
    add("GetDomain", [&] { return s.GetDomain(&domain); });
    add("StartUpdateService", [&] { return s.StartUpdateService(t, t, 1033, t); });

    std::deque<TestThread> threads;
    std::size_t answered = members.size();
    f.agent.onCall = [&](const std::string& call) {
        if (call != "IsConnectedEx" || !threads.empty())
        {
            return;
        }
        for (Member& member : members)
        {
            threads.emplace_back([&member] { member.result = member.call(); });
        }
        WorkerFixture::Await([&] {
            return std::all_of(members.begin(), members.end(), [&](const Member& member) {
                return f.trace.Count("CVeltHTTPService::" + member.name + " - enter") == 1;
            });
        });
        ::Sleep(100); // for what must not happen
        answered = static_cast<std::size_t>(
            std::count_if(members.begin(), members.end(),
                          [](const Member& member) { return member.result != S_FALSE; }));
        BSTR redirect = nullptr; // touches no state
        OnOtherThread([&] { return s.get_Redirect(&redirect); });
        CHECK_FALSE(Taken(redirect).empty());
    };
    CHECK(f.InvokeUpdate() == S_OK);
    for (TestThread& thread : threads)
    {
        thread.Join();
    }
    CHECK(answered == 0);
    for (const Member& member : members)
    {
        INFO(member.name);
        CHECK(member.result == S_OK); // now
    }
    for (const BSTR out : {read, safelyRead, domain})
    {
        ::SysFreeString(out);
    }
}

TEST_CASE("Notify: the event of a call inside another one waits for that one", "[service]")
{
    // An apartment takes calls while it asks the agent: one of them invokes an update, too.
    const bool invokes = GENERATE(true, false);
    UpdateFixture f;
    bool isInside = false;
    HRESULT inner = E_FAIL;
    f.agent.onCall = [&](const std::string& call) {
        if (call == "IsConnectedEx" && !std::exchange(isInside, true))
        {
            inner = f.service->InvokeUpdate(MakeBstr(L"{inner}").Get(), MakeBstr(L"1.5").Get(),
                                            1033, nullptr);
        }
    };
    std::vector<std::size_t> agentsGone;
    std::vector<bool> answered;
    std::vector<std::unique_ptr<TestThread>> questions;
    TestEvent answer;
    RecordingSink sink([&](DISPPARAMS*) {
        agentsGone.push_back(f.agent.log.Count("agent gone"));
        // Nothing is locked: any thread gets its answer while the sink is at work.
        questions.push_back(std::make_unique<TestThread>([&] {
            VARIANT_BOOL connected = VARIANT_TRUE;
            f.service->get_IsConnected(&connected);
            answer.Set();
        }));
        answered.push_back(answer.IsSetWithin(kWaitLimitMs));
        return S_OK;
    });
    {
        ApartmentThread other; // the firing thread waits for it
        other.Do([&] { Advise(f.service.Get(), &sink); });
        if (invokes)
        {
            CHECK(f.InvokeUpdate() == S_OK);
        }
        else
        {
            CHECK(f.Ask(VARIANT_TRUE) == VARIANT_FALSE);
        }
    }
    CHECK(inner == S_OK);
    const auto events = sink.Events();
    REQUIRE(events.size() == (invokes ? 2 : 1));
    CHECK((events[0].text == L"{inner}")); // whose work ended first
    CHECK((!invokes || events[1].text == kGuid));
    CHECK(agentsGone == std::vector<std::size_t>(events.size(), 2)); // the outer call's, too
    CHECK(answered == std::vector<bool>(events.size(), true));
    questions.clear();
}

TEST_CASE("The service: it lives until the call that asks the agent is over", "[service]")
{
    UpdateFixture f;
    const bool invokes = GENERATE(true, false);
    LONG locks = 0;
    f.agent.onCall = [&](const std::string& call) {
        if (call == "IsConnectedEx")
        {
            f.service.Reset(); // as an apartment does that takes calls meanwhile
            locks = f.module.LockCount();
        }
    };
    IVeltHTTPService* const service = f.service.Get();
    VARIANT_BOOL available = 0x5555;
    const velt::UniqueBstr guid = MakeBstr(kGuid);
    CHECK((invokes ? service->InvokeUpdate(guid.Get(), guid.Get(), 1033, nullptr)
                   : service->IsUpdateOrMessageAvailable(guid.Get(), guid.Get(), 1033, VARIANT_TRUE,
                                                         &available)) == S_OK);
    CHECK(locks > 0);
    CHECK(available == (invokes ? 0x5555 : VARIANT_FALSE));
    CHECK(f.module.LockCount() == 0);
}

TEST_CASE("The service: agent and locator are looked for in every kind of server", "[service]")
{
    UpdateFixture f;
    std::vector<DWORD> agentContexts;
    std::vector<DWORD> locatorContexts;
    using Create = ImportPatch<"CoCreateInstance", decltype(::CoCreateInstance)>;
    const Create patch("ole32.dll", [&](REFCLSID clsid, IUnknown* outer, DWORD context, REFIID iid,
                                        void** object) {
        if (clsid == velt::kUpdateAgentClass)
        {
            agentContexts.push_back(outer ? 0 : context);
        }
        else if (clsid == CLSID_WbemLocator)
        {
            locatorContexts.push_back(outer ? 0 : context);
            return REGDB_E_CLASSNOTREG;
        }
        return Create::Original(clsid, outer, context, iid, object);
    });
    f.InvokeUpdate();
    f.Ask(VARIANT_FALSE);
    BSTR tag = PoisonText();
    CHECK(f.service->GetServiceTag(&tag) == S_OK);
    CHECK(tag == PoisonText());
    CHECK(agentContexts == std::vector<DWORD>{23, 23});
    CHECK(locatorContexts == std::vector<DWORD>{23});
}
