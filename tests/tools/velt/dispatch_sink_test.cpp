#include "tools/velt/dispatch_sink.h"

#include "tools/velt/command_context.h"

#include <windows.h>

#include <wrl/client.h>

#include <catch.hpp>

#include <memory>
#include <new>
#include <vector>

using Microsoft::WRL::ComPtr;
using velt::tool::DispatchSink;

namespace
{
constexpr IID kEvents = {
    0x5B6D0C9E, 0x41E2, 0x4C71, {0x9A, 0x0B, 0x17, 0x33, 0x52, 0x86, 0x0C, 0x4D}};
constexpr IID kOthers = {
    0x5B6D0C9F, 0x41E2, 0x4C71, {0x9A, 0x0B, 0x17, 0x33, 0x52, 0x86, 0x0C, 0x4D}};

HRESULT Tell(const ComPtr<IDispatch>& sink, DISPID event, DISPPARAMS* arguments)
{
    return sink->Invoke(event, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, arguments, nullptr,
                        nullptr, nullptr);
}
} // namespace

TEST_CASE("DispatchSink: it is its events' interface, and lives as long as somebody holds it",
          "[tools]")
{
    const auto kept = std::make_shared<int>(0);
    {
        const ComPtr<IDispatch> sink =
            DispatchSink::Make(kEvents, [kept](DISPID, const DISPPARAMS&) {});
        CHECK(kept.use_count() == 2);
        CHECK(sink->AddRef() == 2);
        CHECK(sink->Release() == 1);
        for (const IID& known : {IID_IUnknown, IID_IDispatch, kEvents})
        {
            ComPtr<IUnknown> found;
            CHECK(sink->QueryInterface(known, &found) == S_OK);
            CHECK(found.Get() == sink.Get());
        }
        void* none = sink.Get();
        CHECK(sink->QueryInterface(kOthers, &none) == E_NOINTERFACE);
        CHECK(none == nullptr);
        CHECK(sink->QueryInterface(IID_IUnknown, nullptr) == E_POINTER);
    }
    CHECK(kept.use_count() == 1);
}

TEST_CASE("DispatchSink: events come by their numbers; what their handler throws is an HRESULT",
          "[tools]")
{
    std::vector<DISPID> events;
    const ComPtr<IDispatch> sink =
        DispatchSink::Make(kEvents, [&](DISPID event, const DISPPARAMS& arguments) {
            events.push_back(event);
            CHECK(arguments.cArgs == 1);
            if (event == 2)
            {
                throw velt::tool::CommandFailure{DISP_E_TYPEMISMATCH, L"an event"};
            }
            if (event == 3)
            {
                throw std::bad_alloc();
            }
        });
    VARIANT value{};
    DISPPARAMS arguments{&value, nullptr, 1, 0};
    CHECK(Tell(sink, 1, &arguments) == S_OK);
    CHECK(Tell(sink, 2, &arguments) == DISP_E_TYPEMISMATCH);
    CHECK(Tell(sink, 3, &arguments) == E_OUTOFMEMORY);
    CHECK(Tell(sink, 4, nullptr) == E_POINTER);
    CHECK(events == std::vector<DISPID>{1, 2, 3});

    UINT count = 7;
    CHECK(sink->GetTypeInfoCount(&count) == S_OK);
    CHECK(count == 0);
    CHECK(sink->GetTypeInfoCount(nullptr) == E_POINTER);
    ITypeInfo* info = reinterpret_cast<ITypeInfo*>(&count);
    CHECK(sink->GetTypeInfo(0, 0, &info) == DISP_E_BADINDEX);
    CHECK(info == nullptr);
}
