// GetServiceTag through the built library, with a management locator of the test's own.

#include "tests/service/service_objects.h"
#include "tests/support/apartment_thread.h"
#include "tests/support/com_apartment.h"
#include "tests/support/stand_in_locator.h"
#include "tests/support/variants.h"

#include <catch.hpp>

#include <string>

using Microsoft::WRL::ComPtr;
using namespace velt::test;

namespace
{
struct TagFixture
{
    /// The tag, "<untouched>" when the out value was not written, or "<failed>".
    std::wstring Tag() const
    {
        BSTR tag = PoisonText();
        const HRESULT hr = service->GetServiceTag(&tag);
        if (hr != S_OK)
        {
            return L"<failed>";
        }
        return tag == PoisonText() ? L"<untouched>" : Taken(tag);
    }

    const ComApartment apartment;
    const ComponentLibrary library;
    ComPtr<IVeltHTTPService> service = library.Create<IVeltHTTPService>(CLSID_CVeltHTTPService);
};

void FillTag(VARIANT* value)
{
    *value = Text(L"  TAG 42 \u00E4");
}
} // namespace

TEST_CASE("GetServiceTag: the first enclosure's serial number, step by step", "[service]")
{
    const TagFixture f;
    StandInLocator locator;
    locator.serialNumber = FillTag;
    const LONG before = locator.References();
    CHECK((f.Tag() == L"  TAG 42 \u00E4"));
    CHECK(locator.log.All() == CallLog::Calls{"CreateInstance", "ConnectServer \\\\.\\root\\cimv2",
                                              "ExecQuery WQL select * from Win32_SystemEnclosure",
                                              "Next -1 1", "Get SerialNumber"});
    CHECK(locator.References() == before);
}

TEST_CASE("GetServiceTag: each failing step ends it quietly", "[service]")
{
    const TagFixture f;
    StandInLocator locator;
    locator.serialNumber = FillTag;
    locator.failing =
        GENERATE(as<std::string>(), "CreateInstance", "ConnectServer", "ExecQuery", "Next", "Get");
    locator.failure = GENERATE(E_FAIL, E_ACCESSDENIED, WBEM_E_INVALID_NAMESPACE);
    const LONG before = locator.References();
    CHECK((f.Tag() == L"<untouched>"));
    CHECK(locator.log.All().back().starts_with(locator.failing)); // and no further
    CHECK(locator.References() == before);
}

TEST_CASE("GetServiceTag: no enclosure, no tag", "[service]")
{
    const TagFixture f;
    StandInLocator locator;
    locator.serialNumber = FillTag;
    locator.failing = "Next";
    locator.failure = WBEM_S_FALSE;
    CHECK((f.Tag() == L"<untouched>"));
    CHECK(locator.log.All().back() == "Next -1 1");
}

TEST_CASE("GetServiceTag: a property that is no text is no tag", "[service]")
{
    const TagFixture f;
    StandInLocator locator;
    const int kind = GENERATE(0, 1, 2, 3);
    locator.serialNumber = [&](VARIANT* value) {
        *value = kind == 0 ? OfType(VT_NULL) : kind == 1 ? Long(5) : OfType(VT_EMPTY);
        if (kind == 3)
        {
            *value = OfType(VT_BSTR); // a null one
        }
    };
    CHECK((f.Tag() == L"<untouched>"));
}

TEST_CASE("GetServiceTag: an empty serial number is an empty tag", "[service]")
{
    const TagFixture f;
    StandInLocator locator;
    locator.serialNumber = [](VARIANT* value) { *value = Text(L""); };
    CHECK(f.Tag().empty());
}

TEST_CASE("GetServiceTag: the object lives until the call is over", "[service]")
{
    TagFixture f;
    StandInLocator locator;
    HRESULT canUnload = E_FAIL;
    locator.serialNumber = [&](VARIANT* value) {
        f.service.Reset(); // as an apartment does that takes calls meanwhile
        canUnload = f.library.CanUnloadNow();
        FillTag(value);
    };
    BSTR tag = PoisonText();
    CHECK(f.service->GetServiceTag(&tag) == S_OK);
    CHECK((Taken(tag) == L"  TAG 42 \u00E4"));
    CHECK(canUnload == S_FALSE);
    CHECK(f.library.CanUnloadNow() == S_OK);
}

TEST_CASE("GetServiceTag: the platform's own instrumentation, from either apartment", "[service]")
{
    const COINIT kind = GENERATE(COINIT_APARTMENTTHREADED, COINIT_MULTITHREADED);
    const TagFixture f;
    ApartmentThread other(kind);
    std::wstring tag = L"<failed>";
    other.Do([&] { tag = f.Tag(); });
    CHECK((tag != L"<failed>")); // a tag, or none where the platform lacks the property
    if (tag == L"<untouched>")
    {
        WARN("this platform has no serial number of the enclosure");
    }
}

TEST_CASE("GetServiceTag: a thread without COM gets no tag", "[service]")
{
    const ComponentLibrary library;
    const auto service = library.Create<IVeltHTTPService>(CLSID_CVeltHTTPService);
    BSTR tag = PoisonText();
    CHECK(service->GetServiceTag(&tag) == S_OK);
    CHECK(tag == PoisonText());
}
