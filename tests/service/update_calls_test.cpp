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

struct Fixture
{
    Fixture()
    {
        velt::ThrowIfFailed(velt::CreateComObject<CVeltHTTPService>(service.GetAddressOf()));
    }

    Fixture(const Fixture&) = delete;
    Fixture& operator=(const Fixture&) = delete;

    ~Fixture()
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
    explicit Question(Fixture& fixture) : m_fixture(fixture) {}

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
    Fixture& m_fixture;
    TestEvent m_answered;
    std::unique_ptr<TestThread> m_thread;
};
} // namespace

TEST_CASE("InvokeUpdate: its arguments are what the agent is told", "[service]")
{
    Fixture f;
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
    Fixture f;
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
    Fixture f;
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
    Fixture f;
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

TEST_CASE("The service: agent and locator are looked for in every kind of server", "[service]")
{
    Fixture f;
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
