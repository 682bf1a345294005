// The collection without memory for one more value. Its code is linked into this program, whose
// allocator can fail; nothing that watches COM's own allocations may need it meanwhile.

#include "collection/enum_variant_col.h"
#include "tests/support/late_bound.h"
#include "tests/support/stand_in_object.h"
#include "tests/support/test_module.h"
#include "tests/support/variants.h"

#include <catch.hpp>

#include <cstdlib>
#include <new>

using Microsoft::WRL::ComPtr;
using namespace velt::test;

namespace
{
thread_local bool g_allocationFails = false;
} // namespace

void* operator new(std::size_t size)
{
    void* const memory = g_allocationFails ? nullptr : std::malloc(size > 0 ? size : 1);
    if (!memory)
    {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

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
        g_allocationFails = true;
        const HRESULT hr = early ? collection->Add(*value)
                                 : collection->Invoke(2, IID_NULL, 0, DISPATCH_METHOD, &parameters,
                                                      nullptr, &exception, nullptr);
        g_allocationFails = false;
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
