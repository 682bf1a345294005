#include "connection/queue_manager.h"
#include "tests/support/com_apartment.h"
#include "tests/support/sample_agent_server.h"
#include "tests/support/test_thread.h"
#include "tests/support/trace_recorder.h"
#include "tests/update/products_key.h"
#include "tests/update/upgrade_fixture.h"
#include "update/is_upgrade_request.h"
#include "update/update_agent.h"
#include "update/update_agent_class.h"

#include <wrl/client.h>

#include <catch.hpp>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

using namespace velt::test;
using CONNECTION_MANAGER::queue_manager;
using Calls = std::vector<std::string>;
using Microsoft::WRL::ComPtr;

namespace
{
const std::string kOneUpdate = "[agent]\r\nconnected=1\r\n[updates]\r\n" + kId.substr(1) + "=1\r\n";

/// The same calls as the sample agent logs them.
Calls LoggedCheck(const std::string& connected)
{
    return {"SetLanguage" + kId + " 1033", "IsConnectedEx" + kId + ": " + connected,
            "SetServerAddress" + kId + kServer};
}

/// Keeps the agent's process while it lives, so that it is not started for each request.
class RunningAgent
{
public:
    RunningAgent()
    {
        if (FAILED(::CoCreateInstance(velt::kUpdateAgentClass, nullptr, CLSCTX_LOCAL_SERVER,
                                      IID_PPV_ARGS(&m_agent))))
        {
            throw std::runtime_error("the sample agent does not start");
        }
    }

    RunningAgent(const RunningAgent&) = delete;
    RunningAgent& operator=(const RunningAgent&) = delete;

    ~RunningAgent() = default;

private:
    ComApartment m_apartment;
    ComPtr<IUnknown> m_agent;
};

class Owner final : public CONNECTION_MANAGER::ICallback
{
public:
    void OnRequestComplete(CONNECTION_MANAGER::queue_request& request) override
    {
        guid = static_cast<IS_upgrade_request&>(request).InstallerGuid();
        completed.Set();
    }

    std::wstring guid;
    TestEvent completed;
};

std::shared_ptr<IS_upgrade_request> MakeRequest(CONNECTION_MANAGER::ICallback* owner,
                                                bool isForeground)
{
    auto request = std::make_shared<IS_upgrade_request>(owner);
    request->SetISParameters(kProduct, L"3.0", 1033, L"", isForeground);
    return request;
}
} // namespace

TEST_CASE("IS_upgrade_request: an agent in another process is asked and started", "[update]")
{
    const SampleAgentServer agent(kOneUpdate);
    const ProductsKey products;
    const RunningAgent running;
    const bool isMultithreaded = GENERATE(false, true);
    CAPTURE(isMultithreaded);
    const bool available = OnOtherThread([&] {
        ::CoInitializeEx(nullptr,
                         isMultithreaded ? COINIT_MULTITHREADED : COINIT_APARTMENTTHREADED);
        bool isAvailable = false;
        {
            const auto request = MakeRequest(nullptr, false);
            request->DoWork();
            isAvailable = request->IsUpdateOrMessageAvailable(true);
        }
        ::CoUninitialize();
        return isAvailable;
    });
    CHECK(available);
    const Calls asked = {"GetUpdates" + kId, "GetMessages" + kId};
    CHECK(agent.Calls() == Calls{Registration().back()} + LoggedCheck("yes") + asked +
                               Calls{"StartBackgroundUpdate" + kId,
                                     "SetServerAddress" + kId + kServer,
                                     "IsConnectedEx" + kId + ": yes"} +
                               asked);
}

TEST_CASE("IS_upgrade_request: a thread without COM can ask whether there is an agent", "[update]")
{
    const SampleAgentServer agent(kOneUpdate);
    const auto ask = [](bool connectToServer) {
        return OnOtherThread([&] {
            IS_upgrade_request request(nullptr);
            request.SetISParameters(kProduct, L"3.0", 1033, L"", true);
            return request.IsUpdateOrMessageAvailable(connectToServer);
        });
    };
    CHECK(ask(false));
    CHECK(agent.Calls().empty());
    agent.WaitForEnd(); // nobody keeps it
    const RunningAgent running;
    CHECK(ask(true));
    agent.Configure("");
    CHECK_FALSE(ask(true));
    CHECK(ask(false));
}

TEST_CASE("IS_upgrade_request: the queue works it until the agent is connected", "[update]")
{
    const SampleAgentServer agent("[agent]\r\nconnected=0\r\n");
    const ProductsKey products;
    const RunningAgent running;
    Owner owner;
    queue_manager manager;
    manager.add(MakeRequest(&owner, false));
    REQUIRE(manager.begin(50) == S_OK);
    manager.OnTimer();
    agent.WaitForCall("IsCheckWanted"); // the second try
    CHECK(manager.GetConnectionState() == 2);
    agent.Configure(kOneUpdate);
    owner.completed.Wait();
    CHECK(owner.guid == kProduct);
    CHECK(manager.GetConnectionState() == 3);
    agent.WaitForCall("StartBackgroundUpdate" + kId);
    CHECK(agent.Calls().front() == Registration().back());
}

TEST_CASE("IS_upgrade_request: an agent that takes its time is waited for", "[update]")
{
    const SampleAgentServer agent("[agent]\r\nconnected=1\r\ndelay=200\r\n");
    const ProductsKey products;
    const ULONGLONG before = ::GetTickCount64();
    OnOtherThread([] {
        const ComApartment apartment;
        MakeRequest(nullptr, false)->DoWork();
        return true;
    });
    CHECK(::GetTickCount64() - before >= 6 * 200);
    CHECK(agent.Calls() == Calls{Registration().back()} + LoggedCheck("yes") +
                               Calls{"GetUpdates" + kId, "GetMessages" + kId});
}

TEST_CASE("sample agent: it shows a window in the foreground, which the work brings to the top",
          "[update]")
{
    const SampleAgentServer agent(kOneUpdate);
    const ProductsKey products;
    TraceRecorder trace;
    OnOtherThread([] {
        const ComApartment apartment;
        MakeRequest(nullptr, true)->DoWork();
        return true;
    });
    CHECK(agent.Calls().back() == "StartForegroundUpdate" + kId + " 8");
    const HWND window = ::FindWindowW(nullptr, L"Software Manager");
    REQUIRE(window != nullptr);
    CHECK(::IsWindowVisible(window));
    CHECK(trace.Count("FindWindowW \"Software Manager\" returned 00000000") == 0);
    ::PostMessageW(window, WM_CLOSE, 0, 0);
    agent.WaitForEnd();
}

TEST_CASE("sample agent: scripts can call it by name", "[update]")
{
    const SampleAgentServer agent(kOneUpdate);
    const ComApartment apartment;
    ComPtr<IDispatch> dispatch;
    REQUIRE(SUCCEEDED(::CoCreateInstance(velt::kUpdateAgentClass, nullptr, CLSCTX_LOCAL_SERVER,
                                         IID_PPV_ARGS(&dispatch))));
    wchar_t name[] = L"IsCheckWanted";
    LPOLESTR names = name;
    DISPID id = DISPID_UNKNOWN;
    CHECK(dispatch->GetIDsOfNames(IID_NULL, &names, 1, LOCALE_USER_DEFAULT, &id) == S_OK);
    CHECK(id == 2);
    VARIANT argument;
    ::VariantInit(&argument);
    argument.vt = VT_BSTR;
    argument.bstrVal = ::SysAllocString(kProduct.c_str());
    DISPPARAMS parameters{&argument, nullptr, 1, 0};
    VARIANT result;
    ::VariantInit(&result);
    CHECK(dispatch->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &parameters, &result,
                           nullptr, nullptr) == S_OK);
    CHECK(result.vt == VT_BOOL);
    CHECK(result.boolVal == VARIANT_TRUE);
    ::VariantClear(&argument);
}
