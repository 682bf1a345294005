// The service and an agent in a process of its own that takes its time.

#include "foundation/wide_text.h"
#include "tests/service/worker_fixture.h"
#include "tests/support/recording_sink.h"
#include "tests/support/sample_agent_server.h"
#include "tests/support/stopwatch.h"
#include "tests/update/products_key.h"

#include <catch.hpp>

#include <string>
#include <vector>

using namespace velt::test;

TEST_CASE("InvokeUpdate: an agent that takes ten seconds is waited for", "[service]")
{
    WorkerFixture f;
    const ProductsKey products;
    const SampleAgentServer agent("[agent]\r\nconnected=1\r\ndelay=2000\r\n");
    RecordingSink sink;
    Advise(f.service.Get(), &sink);
    HRESULT hr = E_UNEXPECTED;
    CHECK(MillisecondsOf([&] { hr = Invoke(f.service.Get()); }) >= 9'900); // five calls, 2 s each
    CHECK(hr == S_OK);
    CHECK(agent.Calls().size() == 5);
    CHECK(sink.Count() == 1);
    agent.CloseWindow(); // its last work
    agent.WaitForEnd();
}

TEST_CASE("StartUpdateService: the agent updates in the background", "[service]")
{
    WorkerFixture f;
    const ProductsKey products;
    const std::string id = velt::Utf8FromWide(kGuid);
    const SampleAgentServer agent("[agent]\r\nconnected=1\r\n[updates]\r\n" + id + "=1\r\n");
    RecordingSink sink;
    Advise(f.service.Get(), &sink);
    CHECK(f.Start() == S_OK);
    WorkerFixture::Await([&] { return sink.Count() == 1; });
    CHECK(agent.Calls().back() == "StartBackgroundUpdate " + id);
    for (const std::string& call : agent.Calls())
    {
        CHECK_FALSE(call.starts_with("StartForegroundUpdate"));
    }
    f.service.Reset();
    f.AwaitEnd();
    agent.WaitForEnd();
}

TEST_CASE("The service: released while its worker calls another process", "[service]")
{
    WorkerFixture f;
    const ProductsKey products;
    const SampleAgentServer agent("[agent]\r\nconnected=1\r\ndelay=400\r\n");
    RecordingSink sink;
    Advise(f.service.Get(), &sink);
    CHECK(f.Start() == S_OK);
    agent.WaitForCall("RegisterProduct");
    const DWORD own = ::GetCurrentThreadId();
    std::vector<DWORD> waits; // of the last Release
    {
        using Patch = ImportPatch<"WaitForSingleObject", decltype(::WaitForSingleObject)>;
        const Patch patch("kernel32.dll", [&](HANDLE object, DWORD limitMs) {
            const bool isOwn = ::GetCurrentThreadId() == own;
            if (isOwn && limitMs > 0)
            {
                waits.push_back(limitMs);
            }
            return Patch::Original(object, limitMs);
        });
        f.service.Reset();
        CHECK(waits == std::vector<DWORD>{200}); // the rest of it is somebody else's
        f.AwaitEnd();                            // whose calls come here as well
    }
    CHECK(sink.References() == 1);
    f.AwaitEnd();
    CHECK(f.trace.Count(kTerminating) == 0);
    CHECK(sink.Count() == 0);
}
