#include "tests/service/service_objects.h"
#include "tests/support/apartment_thread.h"
#include "tests/support/recording_sink.h"
#include "tests/support/stand_in_agent.h"
#include "tests/torture/trial.h"

namespace velt::torture
{
namespace
{
using Microsoft::WRL::ComPtr;
using velt::test::RecordingSink;
using velt::test::StandInAgent;

struct Products
{
    const InText guid{velt::test::kGuid};
    const InText version{L"1.0"};
    const InText description{L"A product"};
};

void InvokeUpdate(Trial& trial, StandInAgent* agent)
{
    RecordingSink sink;
    auto service = trial.Create<IVeltHTTPService>(CLSID_CVeltHTTPService);
    velt::test::Advise(service.Get(), &sink);
    const Products products;
    trial.Act([&] {
        return service->InvokeUpdate(products.guid, products.version, 1033, products.description);
    });
    trial.CheckOrdinary(sink.Count() == 1, "another number of events");
    trial.Check(sink.Count() <= 1, "more than one event");
    trial.Do([&] { service.Reset(); });
    trial.Check(sink.References() == 1, "references are left to the sink");
    trial.Check(!agent || agent->LiveObjects() == 0, "objects of the agent are left");
}

void IsAvailable(Trial& trial, StandInAgent* agent, VARIANT_BOOL connects, VARIANT_BOOL expected)
{
    const auto service = trial.Create<IVeltHTTPService>(CLSID_CVeltHTTPService);
    const Products products;
    VARIANT_BOOL available = 0x5555;
    const HRESULT hr = trial.Act([&] {
        return service->IsUpdateOrMessageAvailable(products.guid, products.version, 1033, connects,
                                                   &available);
    });
    trial.Check(FAILED(hr) ? available == 0x5555
                           : available == 0x5555 || available == VARIANT_TRUE ||
                                 available == VARIANT_FALSE,
                "the out value is not whole");
    trial.CheckOrdinary(available == expected, "answered " + std::to_string(available));
    trial.Check(!agent || agent->LiveObjects() == 0, "objects of the agent are left");
}

/// The worker's step comes soon, and the service goes after it, or meanwhile where it does not
/// come.
void Start(Trial& trial, const std::function<HRESULT(IVeltHTTPService&)>& start)
{
    RecordingSink sink;
    sink.MakeAgile();
    auto service = trial.Create<IVeltHTTPService>(CLSID_CVeltHTTPService);
    velt::test::Advise(service.Get(), &sink);
    const HRESULT hr = trial.Act([&] {
        const HRESULT started = start(*service.Get());
        constexpr int kLooks = 40;
        const velt::UniqueKernelObject never(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
        for (int look = 0; look < kLooks && sink.Count() == 0; ++look)
        {
            velt::test::ApartmentThread::WaitPumping(never.Get(), 5);
        }
        return started;
    });
    // Its next steps bring further ones, and come in time where the thread has not the time it
    // wants.
    trial.Check(FAILED(hr) || sink.Count() <= 1 || !trial.IsAlone(), "more than one event");
    trial.Do([&] { service.Reset(); });
}
} // namespace

void AddUpdateOperations(std::vector<Operation>& operations)
{
    const auto add = [&](const char* name, std::function<void(Trial&)> run) {
        operations.push_back({"update", name, std::move(run)});
    };
    add("InvokeUpdate without an agent", [](Trial& trial) { InvokeUpdate(trial, nullptr); });
    add("InvokeUpdate with updates", [](Trial& trial) {
        StandInAgent agent;
        agent.updates = 2;
        agent.messages = 1;
        InvokeUpdate(trial, &agent);
    });
    add("InvokeUpdate with an agent of old", [](Trial& trial) {
        StandInAgent agent;
        agent.isExtended = false;
        InvokeUpdate(trial, &agent);
    });
    add("IsUpdateOrMessageAvailable: yes", [](Trial& trial) {
        StandInAgent agent;
        agent.messages = 1;
        IsAvailable(trial, &agent, VARIANT_TRUE, VARIANT_TRUE);
    });
    add("IsUpdateOrMessageAvailable: no", [](Trial& trial) {
        StandInAgent agent;
        IsAvailable(trial, &agent, VARIANT_TRUE, VARIANT_FALSE);
    });
    add("IsUpdateOrMessageAvailable without an agent",
        [](Trial& trial) { IsAvailable(trial, nullptr, VARIANT_TRUE, VARIANT_FALSE); });
    add("IsUpdateOrMessageAvailable to nowhere", [](Trial& trial) {
        const auto service = trial.Create<IVeltHTTPService>(CLSID_CVeltHTTPService);
        trial.Act(
            [&] {
                return service->IsUpdateOrMessageAvailable(nullptr, nullptr, 0, VARIANT_TRUE,
                                                           nullptr);
            },
            E_POINTER);
    });
    add("StartUpdateService and its worker", [](Trial& trial) {
        const Products products;
        Start(trial, [&](IVeltHTTPService& service) {
            return service.StartUpdateService(products.guid, products.version, 1033,
                                              products.description);
        });
    });
    add("StartService and its worker", [](Trial& trial) {
        Start(trial, [](IVeltHTTPService& service) { return service.StartService(); });
    });
}
} // namespace velt::torture
