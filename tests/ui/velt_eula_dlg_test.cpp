#include "tests/support/com_apartment.h"
#include "tests/support/component_library.h"
#include "tests/support/late_bound.h"
#include "tests/support/outer_object.h"
#include "tests/support/temp_folder.h"
#include "tests/ui/eula_files.h"
#include "tests/ui/eula_session.h"

#include <provider_lib.h>

#include <catch.hpp>

using Microsoft::WRL::ComPtr;
using namespace velt::test;

namespace
{
struct Made
{
    const ComApartment com;
    const ComponentLibrary library;
    ComPtr<IVeltEulaDlg> dialog = library.Create<IVeltEulaDlg>(CLSID_CVeltEulaDlg);
};
} // namespace

TEST_CASE("CVeltEulaDlg: it answers for its interface, early and late bound", "[ui]")
{
    const Made made;
    ComPtr<IDispatch> dispatch;
    ComPtr<IUnknown> unknown;
    ComPtr<IEnumVariantCol> other;
    CHECK(made.dialog.As(&dispatch) == S_OK);
    CHECK(made.dialog.As(&unknown) == S_OK);
    CHECK(made.dialog.As(&other) == E_NOINTERFACE);
    CHECK(made.library.CanUnloadNow() == S_FALSE);
    const LateBound late(made.dialog.Get());
    CHECK(late.Find(L"LaunchEula") == 1);
    CHECK(late.Find(L"launcheula") == 1);
    CHECK(late.Find(L"Launch") == DISPID_UNKNOWN);
}

TEST_CASE("CVeltEulaDlg: the last release lets the library go", "[ui]")
{
    Made made;
    made.dialog.Reset();
    CHECK(made.library.CanUnloadNow() == S_OK);
}

TEST_CASE("CVeltEulaDlg: it can be aggregated", "[ui]")
{
    const Made made;
    const auto factory = made.library.Factory(CLSID_CVeltEulaDlg);
    const auto outer = OuterObject::Make();
    REQUIRE(outer->Aggregate(*factory.Get()) == S_OK);
    ComPtr<IVeltEulaDlg> dialog;
    REQUIRE(outer.As(&dialog) == S_OK);
    ComPtr<IUnknown> identity;
    ComPtr<IUnknown> outerIdentity;
    REQUIRE(dialog.As(&identity) == S_OK);
    REQUIRE(outer.As(&outerIdentity) == S_OK);
    CHECK(identity.Get() == outerIdentity.Get());
    VARIANT_BOOL accepted = VARIANT_TRUE;
    CHECK(dialog->LaunchEula(nullptr, nullptr, &accepted) == S_OK);
    CHECK(accepted == VARIANT_FALSE);

    ComPtr<IVeltEulaDlg> refused;
    CHECK(factory->CreateInstance(outer.Get(), IID_PPV_ARGS(&refused)) == CLASS_E_NOAGGREGATION);
}

TEST_CASE("CVeltEulaDlg: a null out pointer is refused, null strings are empty ones", "[ui]")
{
    const Made made;
    CHECK(made.dialog->LaunchEula(nullptr, nullptr, nullptr) == E_POINTER);
    VARIANT_BOOL accepted = 0x5A5A;
    CHECK(made.dialog->LaunchEula(nullptr, nullptr, &accepted) == S_OK);
    CHECK(accepted == VARIANT_FALSE);
}

TEST_CASE("CVeltEulaDlg: a script gets the answer as the result", "[ui]")
{
    const Made made;
    VARIANT agreement;
    agreement.vt = VT_BSTR;
    agreement.bstrVal = ::SysAllocString(L"Z:\\missing.rtf");
    VARIANT texts = agreement;
    VARIANT result;
    ::VariantInit(&result);
    CHECK(LateBound(made.dialog.Get()).Call(L"LaunchEula", {agreement, texts}, &result) == S_OK);
    CHECK(result.vt == VT_BOOL);
    CHECK(result.boolVal == VARIANT_FALSE);
    CHECK(LateBound(made.dialog.Get()).Call(L"LaunchEula", {agreement}, &result) ==
          DISP_E_BADPARAMCOUNT);
    ::SysFreeString(agreement.bstrVal);
}
