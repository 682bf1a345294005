#include "collection/enum_variant_col.h"

#include "foundation/com_object.h"
#include "tests/support/com_allocations.h"
#include "tests/support/stand_in_object.h"
#include "tests/support/test_module.h"
#include "tests/support/variants.h"

#include <catch.hpp>

#include <climits>
#include <cstring>

using Microsoft::WRL::ComPtr;
using namespace velt::test;

namespace
{
/// The class itself, without the library around it.
struct Direct
{
    Direct()
    {
        ComPtr<IEnumVariantCol> made;
        REQUIRE(velt::CreateComObject<CEnumVariantCol>(
                    nullptr, IID_IEnumVariantCol, reinterpret_cast<void**>(made.GetAddressOf())) ==
                S_OK);
        collection = static_cast<CEnumVariantCol*>(made.Get());
    }

    void AppendNumbers(LONG first, LONG last) const
    {
        for (LONG number = first; number <= last; ++number)
        {
            collection->Append(Long(number));
        }
    }

    TestModule module;
    ComPtr<CEnumVariantCol> collection;
};
} // namespace

TEST_CASE("CEnumVariantCol::GetAt: answers for each kind of position", "[collection]")
{
    const auto [position, result] = GENERATE(table<LONG, HRESULT>({
        {LONG_MIN, E_INVALIDARG},
        {-1, E_INVALIDARG},
        {0, E_INVALIDARG},
        {1, S_OK},
        {2, S_OK},
        {3, E_FAIL},
        {LONG_MAX, E_FAIL},
    }));
    const Direct direct;
    direct.AppendNumbers(1, 2);
    VARIANT value = Poisoned();
    CHECK(direct.collection->GetAt(position, &value) == result);
    CHECK(direct.collection->GetAt(position, nullptr) == E_POINTER);

    VARIANT expected = Poisoned();
    if (result == S_OK)
    {
        expected.vt = VT_I4;
        expected.byref = reinterpret_cast<void*>(INT_PTR{position}); // NOLINT: lent bits
    }
    CHECK(std::memcmp(&value, &expected, sizeof(value)) == 0);
}

TEST_CASE("CEnumVariantCol::RemoveAt: every position that does not exist is an invalid argument",
          "[collection]")
{
    const LONG position = GENERATE(LONG_MIN, -1, 0, 3, 4, LONG_MAX);
    const Direct direct;
    direct.AppendNumbers(1, 2);
    CHECK(direct.collection->RemoveAt(position) == E_INVALIDARG);
    CHECK(direct.collection->Values().size() == 2);
}

TEST_CASE("CEnumVariantCol::RemoveAt: the last value leaves an empty collection", "[collection]")
{
    const Direct direct;
    CHECK(direct.collection->RemoveAt(1) == E_INVALIDARG);
    StandInObject object;
    direct.collection->Append(object.Given());
    CHECK(direct.collection->RemoveAt(1) == S_OK);
    CHECK(object.References() == 1);
    CHECK(direct.collection->Values().empty());
    CHECK(direct.collection->RemoveAt(1) == E_INVALIDARG);
}

TEST_CASE("CEnumVariantCol::Append: a value inside the collection survives growth", "[collection]")
{
    const Direct direct;
    direct.collection->Append(Int64(0x1122334455667788));
    for (int i = 0; i < 200; ++i)
    {
        direct.collection->Append(direct.collection->Values().front());
    }
    const auto& values = direct.collection->Values();
    REQUIRE(values.size() == 201);
    for (const VARIANT& value : values)
    {
        REQUIRE(std::memcmp(&value, &values.front(), sizeof(value)) == 0);
    }
    CHECK(values.back().llVal == 0x1122334455667788);
}

TEST_CASE("CEnumVariantCol::Append: all 16 bytes are stored as they are", "[collection]")
{
    const Direct direct;
    const VARIANT poison = Poisoned();
    direct.collection->Append(poison);
    CHECK(IsPoisoned(direct.collection->Values().front()));
    VARIANT value = OfType(VT_EMPTY);
    CHECK(direct.collection->GetAt(1, &value) == S_OK); // also of a type that does not exist
    CHECK(value.vt == poison.vt);
    CHECK(direct.collection->Clear() == S_OK);
    CHECK(direct.collection->Values().empty());
}

TEST_CASE("CEnumVariantCol::Find: answers the stored value or the reason", "[collection]")
{
    const Direct direct;
    direct.AppendNumbers(1, 2);
    HRESULT result = 77;
    CHECK(direct.collection->Find(2, result) == &direct.collection->Values()[1]);
    CHECK(result == S_OK);
    CHECK(direct.collection->Find(3, result) == nullptr);
    CHECK(result == E_FAIL);
    CHECK(direct.collection->Find(0, result) == nullptr);
    CHECK(result == E_INVALIDARG);
    CHECK(direct.collection->Find(LONG_MIN, result) == nullptr);
    CHECK(result == E_INVALIDARG);
}

TEST_CASE("CEnumVariantCol: each object and enumerator holds one module lock", "[collection]")
{
    Direct direct;
    CHECK(direct.module.LockCount() == 1);
    ComPtr<IUnknown> enumerator;
    REQUIRE(direct.collection->get__NewEnum(&enumerator) == S_OK);
    CHECK(direct.module.LockCount() == 2);
    direct.collection.Reset();
    CHECK(direct.module.LockCount() == 2); // the enumerator keeps the collection
    enumerator.Reset();
    CHECK(direct.module.LockCount() == 0);
}

TEST_CASE("CEnumVariantCol: strings that stay behind are the caller's to free", "[collection]")
{
    ComAllocations& allocations = ComAllocations::Watch();
    const VARIANT text = Text(L"stays");
    {
        const Direct direct;
        direct.collection->Append(text);
    }
    CHECK(allocations.IsLive(text.bstrVal));
    ::SysFreeString(text.bstrVal);
}
