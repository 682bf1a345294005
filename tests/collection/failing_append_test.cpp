// The collection without memory for one more value. Its code is linked into this program, whose
// allocator can fail; nothing that watches COM's own allocations may need it meanwhile.

#include "collection/enum_variant_col.h"
#include "tests/support/failing_allocation.h"
#include "tests/support/late_bound.h"
#include "tests/support/stand_in_object.h"
#include "tests/support/test_module.h"
#include "tests/support/variants.h"

#include <catch.hpp>

using Microsoft::WRL::ComPtr;
using namespace velt::test;

TEST_CASE("CEnumVariantCol: a value that finds no room is not added, and whose it was before it is "
          "still",
          "[collection]")
{
    TestModule module;
    ComPtr<IEnumVariantCol> collection;
    REQUIRE(velt::CreateComObject<CEnumVariantCol>(collection.GetAddressOf()) == S_OK);
    const LateBound late(collection.Get());
    StandInObject object;
    VARIANT text = Text(L"text");
    VARIANT lent = object.Lent();
    REQUIRE(late.Find(L"Add") == 2); // what is loaded once is there now
    const bool early = GENERATE(true, false);
    CAPTURE(early);
    for (VARIANT* value : {&text, &lent})
    {
        DISPPARAMS parameters{value, nullptr, 1, 0};
        EXCEPINFO exception{};
        const HRESULT hr = [&] {
            const FailingAllocation all(0, FailingAllocation::Extent::allFurther);
            return early ? collection->Add(*value)
                         : collection->Invoke(2, IID_NULL, 0, DISPATCH_METHOD, &parameters, nullptr,
                                              &exception, nullptr);
        }();
        CHECK(hr == (early ? E_OUTOFMEMORY : DISP_E_EXCEPTION));
        CHECK((early || exception.scode == E_OUTOFMEMORY));
        ::SysFreeString(exception.bstrSource);
        ::SysFreeString(exception.bstrDescription);
        ::SysFreeString(exception.bstrHelpFile);
    }
    LONG count = -1;
    CHECK(collection->get_Count(&count) == S_OK);
    CHECK(count == 0);
    CHECK(object.References() == 1);
    CHECK(TextOf(text) == L"text");
    ::VariantClear(&text);
}
