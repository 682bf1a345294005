#include "tests/support/com_apartment.h"
#include "tests/support/sample_agent_server.h"
#include "tests/support/test_thread.h"
#include "tests/support/trace_recorder.h"
#include "tests/update/products_key.h"
#include "update/is_upgrade_request.h"

#include <catch.hpp>

using namespace velt::test;

// Each test case has a prefix of its own: after the agent's death, Wine takes it for running.

namespace
{
constexpr char kSlow[] = "[agent]\r\ndelay=60000\r\n";

bool IsAgentThere()
{
    return OnOtherThread([] {
        IS_upgrade_request request(nullptr);
        return request.IsUpdateOrMessageAvailable(false);
    });
}

std::size_t CountExceptions(TraceRecorder& trace)
{
    std::size_t count = 0;
    for (const TraceRecorder::Message& message : trace.Messages())
    {
        count += message.text.starts_with("Exception thrown: hr = 8") ? 1u : 0u;
    }
    return count;
}

/// The next call has the system start the agent again.
void CheckRestart()
{
    if (!IsAgentThere())
    {
        WARN("the system takes the dead agent for running");
    }
}
} // namespace

TEST_CASE("IS_upgrade_request: an agent that dies in the middle of the work is a failure",
          "[update]")
{
    const SampleAgentServer agent(kSlow);
    const ProductsKey products;
    TraceRecorder trace;
    TestThread worker([] {
        const ComApartment apartment;
        IS_upgrade_request request(nullptr);
        request.SetISParameters(kProduct, L"3.0", 1033, L"", true);
        request.DoWork();
    });
    agent.WaitForCall("RegisterProduct");
    agent.Kill();
    worker.Join();
    CHECK(trace.Count("IS_upgrade_request::DoWork - return") == 1);
    CHECK(CountExceptions(trace) == 1);
    CHECK(ProductsKey::Values().empty());
    CheckRestart();
}

TEST_CASE("IS_upgrade_request: an agent that dies in the middle of the question has nothing",
          "[update]")
{
    const SampleAgentServer agent(kSlow);
    TraceRecorder trace;
    bool available = true;
    TestThread worker([&] {
        IS_upgrade_request request(nullptr);
        request.SetISParameters(kProduct, L"3.0", 1033, L"", true);
        available = request.IsUpdateOrMessageAvailable(true);
    });
    agent.WaitForCall("SetServerAddress");
    agent.Kill();
    worker.Join();
    CHECK_FALSE(available);
    CHECK(CountExceptions(trace) == 1);
    CheckRestart();
}
