#include "tests/support/com_allocations.h"
#include "tests/support/component_library.h"
#include "tests/support/edition.h"
#include "tests/support/late_bound.h"
#include "tests/support/outer_object.h"
#include "tests/support/stand_in_object.h"
#include "tests/support/variants.h"

#include <provider_lib.h>

#include <catch.hpp>

#include <climits>
#include <cstring>
#include <utility>
#include <vector>

using Microsoft::WRL::ComPtr;
using namespace velt::test;

namespace
{
/// A collection made the way a host makes it.
struct Made
{
    const ComponentLibrary library;
    ComPtr<IEnumVariantCol> collection = library.Create<IEnumVariantCol>(CLSID_CEnumVariantCol);

    LONG Count() const
    {
        LONG count = -77;
        REQUIRE(collection->get_Count(&count) == S_OK);
        return count;
    }

    void AddNumbers(LONG first, LONG last) const
    {
        for (LONG number = first; number <= last; ++number)
        {
            REQUIRE(collection->Add(Long(number)) == S_OK);
        }
    }

    /// Borrowed, as Item has it.
    VARIANT Item(LONG position) const
    {
        VARIANT value;
        ::VariantInit(&value);
        REQUIRE(collection->get_Item(Long(position), &value) == S_OK);
        return value;
    }
};
} // namespace

TEST_CASE("CEnumVariantCol: a new collection is empty", "[collection]")
{
    const Made made;
    CHECK(made.Count() == 0);
    VARIANT value = Poisoned();
    CHECK(made.collection->get_Item(Long(1), &value) == E_FAIL);
    CHECK(made.collection->get_Item(Long(0), &value) == E_INVALIDARG);
    CHECK(IsPoisoned(value));
    CHECK(made.collection->Remove(Long(1)) == E_INVALIDARG);
    CHECK(made.collection->Clear() == S_OK);
    CHECK(made.Count() == 0);
}

TEST_CASE("CEnumVariantCol: positions count from 1 and move down after Remove", "[collection]")
{
    const Made made;
    for (const wchar_t* text : {L"a", L"b", L"c"})
    {
        REQUIRE(made.collection->Add(Text(text)) == S_OK);
    }
    CHECK(made.Count() == 3);
    CHECK(TextOf(made.Item(2)) == L"b");
    REQUIRE(made.collection->Remove(Long(2)) == S_OK);
    CHECK(made.Count() == 2);
    CHECK(TextOf(made.Item(1)) == L"a");
    CHECK(TextOf(made.Item(2)) == L"c");
    CHECK(made.collection->Clear() == S_OK);
}

TEST_CASE("CEnumVariantCol: the first and the last value can be removed", "[collection]")
{
    const Made made;
    made.AddNumbers(1, 4);
    REQUIRE(made.collection->Remove(Long(4)) == S_OK);
    REQUIRE(made.collection->Remove(Long(1)) == S_OK);
    REQUIRE(made.Count() == 2);
    CHECK(made.Item(1).lVal == 2);
    CHECK(made.Item(2).lVal == 3);
}

TEST_CASE("CEnumVariantCol: Add takes the given string and object over", "[collection]")
{
    const Made made;
    StandInObject object;
    const VARIANT text = Text(L"taken");
    REQUIRE(made.collection->Add(text) == S_OK);
    REQUIRE(made.collection->Add(object.Given()) == S_OK);
    CHECK(object.References() == 2); // the one that was given

    CHECK(made.Item(1).bstrVal == text.bstrVal); // the very same string
    CHECK(made.Item(2).pdispVal == &object);
    CHECK(object.References() == 2); // Item lends

    REQUIRE(made.collection->Clear() == S_OK);
    CHECK(object.References() == 1);
}

TEST_CASE("CEnumVariantCol: Item writes the type word and the bits of a pointer only",
          "[collection]")
{
    const auto [given, bits] = GENERATE(table<VARIANT, ULONGLONG>({
        {Long(5), 5},
        {Int64(0x1122334455667788), 0x1122334455667788},
        {Double(0.1), 0x3FB999999999999A},
    }));
    const Made made;
    REQUIRE(made.collection->Add(given) == S_OK);
    VARIANT value = Poisoned();
    REQUIRE(made.collection->get_Item(Long(1), &value) == S_OK);

    VARIANT expected = Poisoned();
    expected.vt = given.vt;
    expected.byref = reinterpret_cast<void*>(static_cast<UINT_PTR>(bits)); // NOLINT: lent bits
    CHECK(std::memcmp(&value, &expected, sizeof(value)) == 0);
}

TEST_CASE("CEnumVariantCol: Item lends pointers whole, and of each type as many bits as they have",
          "[collection]")
{
    constexpr VARTYPE kTypes[] = {VT_EMPTY,
                                  VT_NULL,
                                  VT_I1,
                                  VT_I2,
                                  VT_I4,
                                  VT_I8,
                                  VT_INT,
                                  VT_UI1,
                                  VT_UI2,
                                  VT_UI4,
                                  VT_UI8,
                                  VT_UINT,
                                  VT_R4,
                                  VT_R8,
                                  VT_CY,
                                  VT_DATE,
                                  VT_BSTR,
                                  VT_DISPATCH,
                                  VT_BOOL,
                                  VT_ERROR,
                                  VT_VARIANT | VT_BYREF,
                                  VT_UNKNOWN,
                                  VT_DECIMAL,
                                  VT_RECORD,
                                  VT_I4 | VT_BYREF,
                                  VT_BSTR | VT_BYREF,
                                  VT_DISPATCH | VT_BYREF,
                                  VT_ARRAY | VT_VARIANT,
                                  VT_ARRAY | VT_UI1 | VT_BYREF};
    const Made made;
    LONG position = 0;
    for (const VARTYPE type : kTypes)
    {
        // Shallow: nobody follows what the bits would be a pointer to.
        VARIANT given = OfType(type);
        given.ullVal = 0x8877665544332211;
        REQUIRE(made.collection->Add(given) == S_OK);
        VARIANT value = Poisoned();
        REQUIRE(made.collection->get_Item(Long(++position), &value) == S_OK);
        VARIANT expected = Poisoned();
        expected.vt = type;
        std::memcpy(&expected.ullVal, &given.ullVal, kEdition.lentBytes);
        CAPTURE(type);
        CHECK(std::memcmp(&value, &expected, sizeof(value)) == 0);
        CHECK((value.byref == given.byref)); // a pointer in either edition
    }
}

TEST_CASE("CEnumVariantCol: Remove and Clear free strings and release objects", "[collection]")
{
    ComAllocations& allocations = ComAllocations::Watch();
    const Made made;
    StandInObject object;
    const VARIANT first = Text(L"first");
    const VARIANT second = Text(L"second");
    REQUIRE(made.collection->Add(first) == S_OK);
    REQUIRE(made.collection->Add(object.Given()) == S_OK);
    REQUIRE(made.collection->Add(second) == S_OK);
    REQUIRE(made.collection->Add(object.Given()) == S_OK);
    REQUIRE(allocations.IsLive(first.bstrVal));

    REQUIRE(made.collection->Remove(Long(2)) == S_OK);
    CHECK(object.References() == 2);
    CHECK(allocations.IsLive(first.bstrVal));
    REQUIRE(made.collection->Remove(Long(1)) == S_OK);
    CHECK_FALSE(allocations.IsLive(first.bstrVal));
    CHECK(allocations.IsLive(second.bstrVal));

    REQUIRE(made.collection->Clear() == S_OK);
    CHECK(object.References() == 1);
    CHECK_FALSE(allocations.IsLive(second.bstrVal));
    CHECK(made.Count() == 0);
}

TEST_CASE("CEnumVariantCol: Clear frees the values in their order", "[collection]")
{
    const Made made;
    std::vector<int> order;
    StandInObject objects[3];
    for (int i = 0; i < 3; ++i)
    {
        objects[i].OnRelease([&order, i] { order.push_back(i); });
        REQUIRE(made.collection->Add(objects[i].Given()) == S_OK);
    }
    REQUIRE(made.collection->Clear() == S_OK);
    CHECK(order == std::vector<int>{0, 1, 2});
}

TEST_CASE("CEnumVariantCol: the destructor frees no value", "[collection]")
{
    ComAllocations& allocations = ComAllocations::Watch();
    StandInObject object;
    const VARIANT text = Text(L"stays");
    {
        const Made made;
        REQUIRE(made.collection->Add(text) == S_OK);
        REQUIRE(made.collection->Add(object.Given()) == S_OK);
    }
    CHECK(object.References() == 2);
    CHECK(allocations.IsLive(text.bstrVal));
    ::SysFreeString(text.bstrVal);
    CHECK_FALSE(allocations.IsLive(text.bstrVal));
}

TEST_CASE("CEnumVariantCol: an index of another type is coerced to a number", "[collection]")
{
    ComAllocations& allocations = ComAllocations::Watch();
    LONG two = 2;
    VARIANT text = Text(L"2");
    for (const VARIANT& index :
         {Long(2), text, Double(2.0), Double(1.9), Int64(2), ByRef(two), ByRef(text)})
    {
        CAPTURE(index.vt);
        const Made made;
        made.AddNumbers(1, 3);
        const std::size_t before = allocations.LiveCount();

        VARIANT value = Poisoned();
        REQUIRE(made.collection->get_Item(index, &value) == S_OK);
        CHECK(value.lVal == 2);
        REQUIRE(made.collection->Remove(index) == S_OK);
        REQUIRE(made.Count() == 2);
        CHECK(made.Item(2).lVal == 3);

        CHECK(allocations.LiveCount() == before); // no temporary is left
        CHECK(TextOf(text) == L"2");              // and the caller's index is as it was
        CHECK(two == 2);
    }
    ::VariantClear(&text);
}

TEST_CASE("CEnumVariantCol: the failure of the index's coercion is the result", "[collection]")
{
    const Made made;
    made.AddNumbers(1, 3);
    std::pair<VARIANT, HRESULT> rows[] = {
        {Text(L"two"), DISP_E_TYPEMISMATCH},    {Text(L""), DISP_E_TYPEMISMATCH},
        {OfType(VT_NULL), DISP_E_TYPEMISMATCH}, {OfType(VT_ERROR), DISP_E_TYPEMISMATCH},
        {Text(L"2147483648"), DISP_E_OVERFLOW}, {Double(1e10), DISP_E_OVERFLOW},
        {Int64(0x100000002), DISP_E_OVERFLOW},  {OfType(VT_EMPTY), E_INVALIDARG}, // nothing is 0
    };
    for (auto& [index, result] : rows)
    {
        CAPTURE(index.vt, result);
        VARIANT value = Poisoned();
        CHECK(made.collection->get_Item(index, &value) == result);
        CHECK(IsPoisoned(value));
        CHECK(made.collection->Remove(index) == result);
        ::VariantClear(&index);
    }
    CHECK(made.Count() == 3);
}

TEST_CASE("CEnumVariantCol: an index that cannot be copied fails and changes nothing",
          "[collection]")
{
    const Made made;
    made.AddNumbers(1, 2);
    VARIANT value = Poisoned();
    CHECK(made.collection->get_Item(OfType(kImpossibleType), &value) == DISP_E_BADVARTYPE);
    CHECK(IsPoisoned(value));
    CHECK(made.collection->Remove(OfType(kImpossibleType)) == DISP_E_BADVARTYPE);
    CHECK(made.Count() == 2);
}

TEST_CASE("CEnumVariantCol: Item and Remove answer differently to positions that do not exist",
          "[collection]")
{
    const auto [position, item, remove] = GENERATE(table<LONG, HRESULT, HRESULT>({
        {LONG_MIN, E_INVALIDARG, E_INVALIDARG},
        {-1, E_INVALIDARG, E_INVALIDARG},
        {0, E_INVALIDARG, E_INVALIDARG},
        {4, E_FAIL, E_INVALIDARG},
        {5, E_FAIL, E_INVALIDARG},
        {LONG_MAX, E_FAIL, E_INVALIDARG},
    }));
    const Made made;
    made.AddNumbers(1, 3);
    VARIANT value = Poisoned();
    CHECK(made.collection->get_Item(Long(position), &value) == item);
    CHECK(IsPoisoned(value));
    CHECK(made.collection->Remove(Long(position)) == remove);
    CHECK(made.Count() == 3);
}

TEST_CASE("CEnumVariantCol: a null out pointer is refused before anything else", "[collection]")
{
    const Made made;
    made.AddNumbers(1, 1);
    CHECK(made.collection->get_Item(Long(1), nullptr) == E_POINTER);
    CHECK(made.collection->get_Item(Long(0), nullptr) == E_POINTER);
    CHECK(made.collection->get_Item(OfType(VT_NULL), nullptr) == E_POINTER);
    CHECK(made.collection->get_Count(nullptr) == E_POINTER);
    CHECK(made.collection->get__NewEnum(nullptr) == E_POINTER);
}

TEST_CASE("CEnumVariantCol: many values keep their order", "[collection]")
{
    constexpr LONG kMany = 3000;
    const Made made;
    made.AddNumbers(1, kMany);
    REQUIRE(made.Count() == kMany);
    for (LONG position = 1; position <= kMany; position += 271)
    {
        CHECK(made.Item(position).lVal == position);
    }
    CHECK(made.Item(kMany).lVal == kMany);
}

TEST_CASE("CEnumVariantCol: an object that calls back while it is released does no harm",
          "[collection]")
{
    const Made made;
    StandInObject object;
    made.AddNumbers(1, 2);
    REQUIRE(made.collection->Add(object.Given()) == S_OK);
    made.AddNumbers(4, 5);

    SECTION("Clear: the collection is empty by then and can be filled")
    {
        LONG seen = -1;
        object.OnRelease([&] {
            seen = made.Count();
            made.AddNumbers(100, 200);
            made.collection->Remove(Long(1));
        });
        REQUIRE(made.collection->Clear() == S_OK);
        CHECK(seen == 0);
        REQUIRE(made.Count() == 100);
        CHECK(made.Item(1).lVal == 101);
    }
    SECTION("Remove: the value is gone by then")
    {
        LONG seen = -1;
        LONG third = -1;
        object.OnRelease([&] {
            seen = made.Count();
            third = made.Item(3).lVal;
            made.collection->Clear();
            made.AddNumbers(7, 7);
        });
        REQUIRE(made.collection->Remove(Long(3)) == S_OK);
        CHECK(seen == 4);
        CHECK(third == 4);
        REQUIRE(made.Count() == 1);
        CHECK(made.Item(1).lVal == 7);
    }
    SECTION("Clear within Clear")
    {
        object.OnRelease([&] { made.collection->Clear(); });
        REQUIRE(made.collection->Clear() == S_OK);
        CHECK(made.Count() == 0);
    }
    CHECK(object.References() == 1);
}

TEST_CASE("CEnumVariantCol: a collection can hold itself and another one", "[collection]")
{
    const Made made;
    const auto inner = made.library.Create<IEnumVariantCol>(CLSID_CEnumVariantCol);
    for (IEnumVariantCol* const element : {inner.Get(), made.collection.Get()})
    {
        VARIANT value = OfType(VT_DISPATCH);
        value.pdispVal = element;
        element->AddRef();
        REQUIRE(made.collection->Add(value) == S_OK);
    }
    CHECK(made.Item(2).pdispVal == made.collection.Get());
    REQUIRE(made.collection->Clear() == S_OK);
    CHECK(inner->AddRef() == 2);
    CHECK(inner->Release() == 1);
}

TEST_CASE("CEnumVariantCol: a live object keeps the library", "[collection]")
{
    const ComponentLibrary library;
    CHECK(library.CanUnloadNow() == S_OK);
    auto collection = library.Create<IEnumVariantCol>(CLSID_CEnumVariantCol);
    CHECK(library.CanUnloadNow() == S_FALSE);
    collection.Reset();
    CHECK(library.CanUnloadNow() == S_OK);
}

TEST_CASE("CEnumVariantCol: it answers to its interfaces with one identity", "[collection]")
{
    const Made made;
    ComPtr<IUnknown> unknown;
    ComPtr<IDispatch> dispatch;
    REQUIRE(made.collection.As(&unknown) == S_OK);
    REQUIRE(made.collection.As(&dispatch) == S_OK);
    ComPtr<IUnknown> again;
    REQUIRE(dispatch.As(&again) == S_OK);
    CHECK(again.Get() == unknown.Get());
    void* other = made.collection.Get();
    CHECK(made.collection->QueryInterface(IID_IEnumVARIANT, &other) == E_NOINTERFACE);
    CHECK(other == nullptr);
    CHECK(made.collection->QueryInterface(IID_IUnknown, nullptr) == E_POINTER);
}

TEST_CASE("CEnumVariantCol: as part of an aggregate it has the outer object's identity and life",
          "[collection]")
{
    const ComponentLibrary library;
    {
        const auto aggregate = OuterObject::Make();
        OuterObject& outer = *aggregate.Get();
        const auto factory = library.Factory(CLSID_CEnumVariantCol);
        REQUIRE(factory->CreateInstance(&outer, IID_IUnknown, outer.InnerPlace()) == S_OK);
        CHECK(outer.References() == 1); // an aggregated object does not hold its outer one
        CHECK(library.CanUnloadNow() == S_FALSE);

        ComPtr<IEnumVariantCol> collection;
        REQUIRE(outer.QueryInterface(IID_PPV_ARGS(&collection)) == S_OK);
        CHECK(outer.References() == 2);
        ComPtr<IUnknown> unknown;
        REQUIRE(collection.As(&unknown) == S_OK);
        CHECK(unknown.Get() == &outer);
        ComPtr<IServiceProvider> ofOuter; // an interface that only the outer object has
        REQUIRE(collection.As(&ofOuter) == S_OK);
        ComPtr<IDispatch> dispatch;
        REQUIRE(ofOuter.As(&dispatch) == S_OK);
        CHECK(outer.References() == 5);

        REQUIRE(collection->Add(Long(3)) == S_OK);
        REQUIRE(LateBound(dispatch.Get()).Call(L"Add", {Double(0.1)}) == S_OK);
        LONG count = -77;
        CHECK(collection->get_Count(&count) == S_OK);
        CHECK(count == 2);
        CHECK(outer.References() == 5);

        ComPtr<IUnknown> enumerator;
        REQUIRE(collection->get__NewEnum(&enumerator) == S_OK);
        CHECK(outer.References() == 6); // through the collection it keeps the whole aggregate
        enumerator.Reset();
        CHECK(outer.References() == 5);
    }
    CHECK(library.CanUnloadNow() == S_OK);
}

TEST_CASE("CEnumVariantCol: an aggregated object is first asked for IUnknown only", "[collection]")
{
    const ComponentLibrary library;
    const auto aggregate = OuterObject::Make();
    OuterObject& outer = *aggregate.Get();
    void* object = &outer;
    CHECK(library.Factory(CLSID_CEnumVariantCol)
              ->CreateInstance(&outer, IID_IEnumVariantCol, &object) == CLASS_E_NOAGGREGATION);
    CHECK(object == nullptr);
    CHECK(outer.References() == 1);
    CHECK(library.CanUnloadNow() == S_OK);
}
