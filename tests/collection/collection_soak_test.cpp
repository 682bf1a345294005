#include "tests/support/component_library.h"
#include "tests/support/debuggee.h"
#include "tests/support/environment_variable.h"
#include "tests/support/late_bound.h"
#include "tests/support/process_usage.h"
#include "tests/support/stand_in_object.h"
#include "tests/support/variants.h"

#include <provider_lib.h>

#include <catch.hpp>

using Microsoft::WRL::ComPtr;
using namespace velt::test;

namespace
{
/// What may come and go between two measurements without a leak.
constexpr std::size_t kSlackBytes = 256 * 1024;

/// One object's whole life: made, filled both ways, read, walked, emptied and released.
void UseOne(IClassFactory& factory, StandInObject& object)
{
    ComPtr<IEnumVariantCol> collection;
    if (factory.CreateInstance(nullptr, IID_PPV_ARGS(&collection)) != S_OK)
    {
        FAIL("no object");
    }
    collection->Add(Text(L"text"));
    collection->Add(object.Given());
    VARIANT number = Long(5);
    LateBound late(collection.Get());
    late.Invoke(2, DISPATCH_METHOD, {number});
    VARIANT value = OfType(VT_EMPTY);
    late.Invoke(DISPID_VALUE, DISPATCH_PROPERTYGET, {Long(1)}, &value);
    ::VariantClear(&value);

    ComPtr<IUnknown> unknown;
    collection->get__NewEnum(&unknown);
    ComPtr<IEnumVARIANT> enumerator;
    unknown.As(&enumerator);
    VARIANT values[3];
    ULONG fetched = 0;
    enumerator->Next(3, values, &fetched);
    for (ULONG i = 0; i < fetched; ++i)
    {
        ::VariantClear(&values[i]);
    }
    collection->Remove(OfType(kImpossibleType)); // an exception inside
    collection->Remove(Long(1));
    collection->Clear();
}

void UseMany(int count)
{
    REQUIRE(AreHeapsChecked());
    const ComponentLibrary library;
    const auto factory = library.Factory(CLSID_CEnumVariantCol);
    StandInObject object;
    for (int i = 0; i < 500; ++i)
    {
        UseOne(*factory.Get(), object); // what is made once is there now
    }
    const ProcessUsage before = CurrentUsage();
    for (int i = 0; i < count; ++i)
    {
        UseOne(*factory.Get(), object);
    }
    const ProcessUsage after = CurrentUsage();
    CHECK(after.handles == before.handles);
    CHECK(after.heapBytes <= before.heapBytes + 1024 + UncertainHeapBytes());
    CHECK(after.privateBytes <= before.privateBytes + kSlackBytes);
    CHECK(before.handles > 0);
    CHECK(before.privateBytes > kSlackBytes);
    CHECK(object.References() == 1);
    CHECK(AreHeapsValid());
}
} // namespace

TEST_CASE("child: 100000 untraced objects", "[.child]")
{
    UseMany(100'000);
}

TEST_CASE("child: 2000 traced objects", "[.child]")
{
    UseMany(2'000);
}

TEST_CASE("CEnumVariantCol: 100,000 objects leave no memory, no handles and sound heaps behind",
          "[collection]")
{
    CheckHeapsOfChildren();
    const EnvironmentVariable trace("VELT_TRACE", "0");
    CHECK(RunInChild("child: 100000 untraced objects") == 0);
}

TEST_CASE("CEnumVariantCol: the same with tracing", "[collection]")
{
    CheckHeapsOfChildren();
    CHECK(RunInChild("child: 2000 traced objects") == 0);
}
