#include "tests/support/component_library.h"
#include "tests/support/environment_variable.h"
#include "tests/support/stand_in_object.h"
#include "tests/support/trace_viewer_window.h"
#include "tests/support/variants.h"

#include <provider_lib.h>

#include <catch.hpp>

#include <memory>
#include <optional>
#include <string>
#include <vector>

using Microsoft::WRL::ComPtr;
using namespace velt::test;

namespace
{
using Texts = std::vector<std::string>;
} // namespace

TEST_CASE("Trace viewer: it receives every line of a session with the library", "[foundation]")
{
    TraceViewerWindow viewer;
    const ComponentLibrary library;
    CHECK(viewer.Take().empty()); // loading traces nothing

    auto collection = library.Create<IEnumVariantCol>(CLSID_CEnumVariantCol);
    REQUIRE(collection->Add(Long(5)) == S_OK);
    LONG count = -77;
    REQUIRE(collection->get_Count(&count) == S_OK);
    VARIANT value = Poisoned();
    REQUIRE(collection->get_Item(Long(1), &value) == S_OK);
    REQUIRE(collection->get_Item(Long(2), &value) == E_FAIL);
    ComPtr<IUnknown> unknown;
    REQUIRE(collection->get__NewEnum(&unknown) == S_OK);
    ComPtr<IEnumVARIANT> enumerator;
    REQUIRE(unknown.As(&enumerator) == S_OK);
    REQUIRE(enumerator->Next(1, &value, nullptr) == S_OK);
    REQUIRE(enumerator->Skip(1) == S_FALSE);
    REQUIRE(enumerator->Reset() == S_OK);
    ComPtr<IEnumVARIANT> clone;
    REQUIRE(enumerator->Clone(&clone) == S_OK);
    REQUIRE(collection->Remove(Long(1)) == S_OK);
    REQUIRE(collection->Clear() == S_OK);
    REQUIRE(library.Factory(CLSID_CEnumVariantCol)->LockServer(TRUE) == S_OK);
    REQUIRE(library.Factory(CLSID_CEnumVariantCol)->LockServer(FALSE) == S_OK);
    REQUIRE(library.CanUnloadNow() == S_FALSE);

    CHECK(viewer.TakeTexts() == Texts{
                                    "DllGetClassObject - enter",
                                    "DllGetClassObject - return = 0",
                                    "CClassFactory::CreateInstance - enter",
                                    "CClassFactory::CreateInstance - return = 0",
                                    "CEnumVariantCol::Add - enter",
                                    "CEnumVariantCol::Add - return = 0",
                                    "CEnumVariantCol::get_Count - enter",
                                    "CEnumVariantCol::get_Count - return = 0",
                                    "CEnumVariantCol::get_Item - enter",
                                    "CEnumVariantCol::get_Item - return = 0",
                                    "CEnumVariantCol::get_Item - enter",
                                    "  failed: 0x80004005",
                                    "CEnumVariantCol::get_Item - return = -2147467259",
                                    "CEnumVariantCol::get__NewEnum - enter",
                                    "CEnumVariantCol::get__NewEnum - return = 0",
                                    "CVariantEnumerator::Next - enter",
                                    "CVariantEnumerator::Next - return = 0",
                                    "CVariantEnumerator::Skip - enter",
                                    "CVariantEnumerator::Skip - return = 1",
                                    "CVariantEnumerator::Reset - enter",
                                    "CVariantEnumerator::Reset - return = 0",
                                    "CVariantEnumerator::Clone - enter",
                                    "CVariantEnumerator::Clone - return = 0",
                                    "CEnumVariantCol::Remove - enter",
                                    "CEnumVariantCol::Remove - return = 0",
                                    "CEnumVariantCol::Clear - enter",
                                    "CEnumVariantCol::Clear - return = 0",
                                    "DllGetClassObject - enter",
                                    "DllGetClassObject - return = 0",
                                    "CClassFactory::LockServer - enter",
                                    "CClassFactory::LockServer - return = 0",
                                    "DllGetClassObject - enter",
                                    "DllGetClassObject - return = 0",
                                    "CClassFactory::LockServer - enter",
                                    "CClassFactory::LockServer - return = 0",
                                    "DllCanUnloadNow - enter",
                                    "DllCanUnloadNow - return = 1",
                                });
}

TEST_CASE("Trace viewer: a record has the layout byte by byte", "[foundation]")
{
    TraceViewerWindow viewer;
    const ComponentLibrary library;
    REQUIRE(library.CanUnloadNow() == S_OK);
    const std::vector<ViewerRecord> records = viewer.Take();
    REQUIRE(records.size() == 2);
    for (const ViewerRecord& record : records)
    {
        CHECK(record.dataKind == 0x55543132);
        CHECK(record.magic == "21TU");
        CHECK(record.dataSize == 82 + record.text.size());
        CHECK(record.length == record.dataSize);
        CHECK(record.level == 4);
        CHECK(record.category == 0);
        CHECK(record.reserved == 0);
        CHECK(record.sourceField == std::string(64, '\0'));
        CHECK(record.endsAfterText);
    }
    CHECK(records[1].text == "DllCanUnloadNow - return = 0");
}

TEST_CASE("Trace viewer: a failure is a level 1 line inside the method that failed", "[foundation]")
{
    TraceViewerWindow viewer;
    const ComponentLibrary library;
    const auto collection = library.Create<IEnumVariantCol>(CLSID_CEnumVariantCol);
    viewer.Take();
    REQUIRE(collection->Remove(OfType(kImpossibleType)) == DISP_E_BADVARTYPE);

    const std::vector<ViewerRecord> records = viewer.Take();
    REQUIRE(records.size() == 3);
    CHECK(records[0].text == "CEnumVariantCol::Remove - enter");
    CHECK(records[0].level == 4);
    CHECK_THAT(records[1].text, Catch::StartsWith("  failed: 0x80020008 "));
    CHECK(records[1].level == 1);
    CHECK(records[2].text == "CEnumVariantCol::Remove - return = -2147352568");
    CHECK(records[2].level == 4);
}

TEST_CASE("Trace viewer: registration tells its details on level 3", "[foundation]")
{
    TraceViewerWindow viewer;
    const ComponentLibrary library;
    REQUIRE(library.RegisterServer() == S_OK);
    const std::vector<ViewerRecord> records = viewer.Take();
    REQUIRE(records.size() >= 3);
    CHECK(records.front().text == "DllRegisterServer - enter");
    CHECK(records[1].level == 3);
    CHECK_THAT(records[1].text, Catch::StartsWith("  "));
    CHECK(records.back().text == "DllRegisterServer - return = 0");
    CHECK(records.back().level == 4);
}

TEST_CASE("Trace viewer: calls that come back from objects are indented", "[foundation]")
{
    TraceViewerWindow viewer;
    const ComponentLibrary library;
    const auto collection = library.Create<IEnumVariantCol>(CLSID_CEnumVariantCol);
    StandInObject object;
    REQUIRE(collection->Add(object.Given()) == S_OK);
    object.OnRelease([&] { library.CanUnloadNow(); });
    viewer.Take();
    REQUIRE(collection->Clear() == S_OK);
    CHECK(viewer.TakeTexts() == Texts{
                                    "CEnumVariantCol::Clear - enter",
                                    "  DllCanUnloadNow - enter",
                                    "  DllCanUnloadNow - return = 1",
                                    "CEnumVariantCol::Clear - return = 0",
                                });
}

TEST_CASE("Trace viewer: late-bound calls have the names of their methods", "[foundation]")
{
    TraceViewerWindow viewer;
    const ComponentLibrary library;
    const auto collection = library.Create<IDispatch>(CLSID_CEnumVariantCol);
    viewer.Take();
    VARIANT argument = Long(5);
    DISPPARAMS parameters{&argument, nullptr, 1, 0};
    constexpr DISPID kAdd = 2;
    REQUIRE(collection->Invoke(kAdd, IID_NULL, 0, DISPATCH_METHOD, &parameters, nullptr, nullptr,
                               nullptr) == S_OK);
    argument.lVal = 2;
    CHECK(collection->Invoke(DISPID_VALUE, IID_NULL, 0, DISPATCH_PROPERTYGET, &parameters, nullptr,
                             nullptr, nullptr) == DISP_E_EXCEPTION);
    CHECK(viewer.TakeTexts() == Texts{
                                    "CEnumVariantCol::Add - enter",
                                    "CEnumVariantCol::Add - return = 0",
                                    "CEnumVariantCol::get_Item - enter",
                                    "  failed: 0x80004005",
                                    "CEnumVariantCol::get_Item - return = -2147467259",
                                });
}

TEST_CASE("Trace viewer: one that appears after the library was loaded is not seen", "[foundation]")
{
    const ComponentLibrary library;
    TraceViewerWindow viewer;
    library.CanUnloadNow();
    CHECK(viewer.Take().empty());
}

TEST_CASE("Trace viewer: one that has gone is no obstacle", "[foundation]")
{
    std::optional<TraceViewerWindow> viewer(std::in_place);
    const ComponentLibrary library;
    library.CanUnloadNow();
    CHECK(viewer->Take().size() == 2);
    viewer.reset();
    CHECK(library.CanUnloadNow() == S_OK);
}

TEST_CASE("Trace viewer: VELT_TRACE=0 does not take it away", "[foundation]")
{
    const EnvironmentVariable trace("VELT_TRACE", "0");
    TraceViewerWindow viewer;
    const ComponentLibrary library;
    library.CanUnloadNow();
    CHECK(viewer.TakeTexts() == Texts{"DllCanUnloadNow - enter", "DllCanUnloadNow - return = 0"});
}

TEST_CASE("Trace viewer: VELT_TRACE with bit 2 puts the time before each line", "[foundation]")
{
    const EnvironmentVariable trace("VELT_TRACE", "0x4");
    TraceViewerWindow viewer;
    const ComponentLibrary library;
    library.CanUnloadNow();
    const Texts texts = viewer.TakeTexts();
    REQUIRE(texts.size() == 2);
    CHECK_THAT(texts[0], Catch::Matches("[0-9]+:[0-9]{1,2}:[0-9]{1,2}\\.[0-9]{3} : "
                                        "DllCanUnloadNow - enter"));
}

TEST_CASE("Trace viewer: VELT_TRACE with bit 3 leaves it out", "[foundation]")
{
    const EnvironmentVariable trace("VELT_TRACE", GENERATE("8", "0xA", "12"));
    TraceViewerWindow viewer;
    const ComponentLibrary library;
    library.CanUnloadNow();
    CHECK(viewer.Take().empty());
}
