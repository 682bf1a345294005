#include "tests/support/com_allocations.h"
#include "tests/support/component_library.h"
#include "tests/support/stand_in_object.h"
#include "tests/support/variants.h"

#include <provider_lib.h>

#include <catch.hpp>

#include <array>
#include <cstring>
#include <vector>

using Microsoft::WRL::ComPtr;
using namespace velt::test;

namespace
{
/// A collection of the numbers 1 to a count.
class Walk
{
public:
    explicit Walk(LONG count)
    {
        Add(1, count);
    }

    void Add(LONG first, LONG last) const
    {
        for (LONG number = first; number <= last; ++number)
        {
            REQUIRE(collection->Add(Long(number)) == S_OK);
        }
    }

    ComPtr<IEnumVARIANT> Enumerator() const
    {
        ComPtr<IUnknown> unknown;
        REQUIRE(collection->get__NewEnum(&unknown) == S_OK);
        ComPtr<IEnumVARIANT> enumerator;
        REQUIRE(unknown.As(&enumerator) == S_OK);
        return enumerator;
    }

    const ComponentLibrary library;
    ComPtr<IEnumVariantCol> collection = library.Create<IEnumVariantCol>(CLSID_CEnumVariantCol);
};

/// The numbers up to the end, one at a time; at most a hundred.
std::vector<LONG> Rest(IEnumVARIANT& enumerator)
{
    std::vector<LONG> numbers;
    VARIANT value = Poisoned();
    while (numbers.size() < 100 && enumerator.Next(1, &value, nullptr) == S_OK)
    {
        numbers.push_back(value.lVal);
    }
    return numbers;
}
} // namespace

TEST_CASE("CVariantEnumerator: Next hands out the values in order", "[collection]")
{
    const Walk walk(5);
    const auto enumerator = walk.Enumerator();
    std::array<VARIANT, 3> values{Poisoned(), Poisoned(), Poisoned()};
    ULONG fetched = 77;
    REQUIRE(enumerator->Next(2, values.data(), &fetched) == S_OK);
    CHECK(fetched == 2);
    CHECK(values[0].lVal == 1);
    CHECK(values[1].lVal == 2);
    CHECK(IsPoisoned(values[2])); // not part of the array that was given

    REQUIRE(enumerator->Next(3, values.data(), &fetched) == S_OK);
    CHECK(fetched == 3);
    CHECK(values[2].lVal == 5);
    CHECK(enumerator->Next(1, values.data(), &fetched) == S_FALSE);
    CHECK(fetched == 0);
}

TEST_CASE("CVariantEnumerator: Next past the end fills the rest with nothing", "[collection]")
{
    const Walk walk(2);
    const auto enumerator = walk.Enumerator();
    std::array<VARIANT, 4> values{Poisoned(), Poisoned(), Poisoned(), Poisoned()};
    ULONG fetched = 77;
    CHECK(enumerator->Next(4, values.data(), &fetched) == S_FALSE);
    CHECK(fetched == 2);
    CHECK(values[1].lVal == 2);
    CHECK(values[2].vt == VT_EMPTY);
    CHECK(values[3].vt == VT_EMPTY);
}

TEST_CASE("CVariantEnumerator: Next checks its pointers", "[collection]")
{
    const Walk walk(3);
    const auto enumerator = walk.Enumerator();
    std::array<VARIANT, 2> values{Poisoned(), Poisoned()};
    ULONG fetched = 77;
    CHECK(enumerator->Next(1, nullptr, &fetched) == E_POINTER);
    CHECK(fetched == 0);
    CHECK(enumerator->Next(1, nullptr, nullptr) == E_POINTER);
    CHECK(enumerator->Next(2, values.data(), nullptr) == E_POINTER); // only for a single one
    CHECK(IsPoisoned(values[0]));
    CHECK(enumerator->Next(1, values.data(), nullptr) == S_OK);
    CHECK(values[0].lVal == 1); // the refused calls have not moved
}

TEST_CASE("CVariantEnumerator: Next of none is a success that does nothing", "[collection]")
{
    const Walk walk(1);
    const auto enumerator = walk.Enumerator();
    VARIANT value = Poisoned();
    ULONG fetched = 77;
    CHECK(enumerator->Next(0, &value, &fetched) == S_OK);
    CHECK(fetched == 0);
    CHECK(IsPoisoned(value));
    CHECK(Rest(*enumerator.Get()) == std::vector<LONG>{1});
    CHECK(enumerator->Next(0, &value, &fetched) == S_OK); // at the end too
}

TEST_CASE("CVariantEnumerator: Skip tells whether there were enough", "[collection]")
{
    const auto [count, result, rest] = GENERATE(table<ULONG, HRESULT, std::vector<LONG>>({
        {0, S_OK, {1, 2, 3}},
        {1, S_OK, {2, 3}},
        {3, S_OK, {}},
        {4, S_FALSE, {}},
        {0x7FFFFFFF, S_FALSE, {}},
        {0xFFFFFFFF, S_FALSE, {}},
    }));
    const Walk walk(3);
    const auto enumerator = walk.Enumerator();
    CHECK(enumerator->Skip(count) == result);
    CHECK(Rest(*enumerator.Get()) == rest);
}

TEST_CASE("CVariantEnumerator: a huge Skip stays at the end and does not wrap", "[collection]")
{
    const Walk walk(3);
    const auto enumerator = walk.Enumerator();
    REQUIRE(enumerator->Skip(2) == S_OK);
    CHECK(enumerator->Skip(0xFFFFFFFF) == S_FALSE);
    CHECK(enumerator->Skip(0xFFFFFFFF) == S_FALSE);
    CHECK(enumerator->Skip(1) == S_FALSE);
    CHECK(enumerator->Skip(0) == S_OK);
    CHECK(Rest(*enumerator.Get()).empty());
    walk.Add(4, 4);
    CHECK(Rest(*enumerator.Get()) == std::vector<LONG>{4}); // it was at the end, not beyond
}

TEST_CASE("CVariantEnumerator: Reset starts from the first value", "[collection]")
{
    const Walk walk(3);
    const auto enumerator = walk.Enumerator();
    CHECK(Rest(*enumerator.Get()).size() == 3);
    CHECK(enumerator->Reset() == S_OK);
    CHECK(Rest(*enumerator.Get()) == std::vector<LONG>{1, 2, 3});
}

TEST_CASE("CVariantEnumerator: a clone goes on from the same place by itself", "[collection]")
{
    const Walk walk(4);
    const auto enumerator = walk.Enumerator();
    REQUIRE(enumerator->Skip(1) == S_OK);
    ComPtr<IEnumVARIANT> clone;
    REQUIRE(enumerator->Clone(&clone) == S_OK);
    CHECK(clone.Get() != enumerator.Get());
    REQUIRE(enumerator->Skip(2) == S_OK);
    CHECK(Rest(*clone.Get()) == std::vector<LONG>{2, 3, 4});
    CHECK(Rest(*enumerator.Get()) == std::vector<LONG>{4});
    REQUIRE(clone->Reset() == S_OK);
    CHECK(Rest(*clone.Get()) == std::vector<LONG>{1, 2, 3, 4});
    CHECK(Rest(*enumerator.Get()).empty());
    CHECK(enumerator->Clone(nullptr) == E_POINTER);
}

TEST_CASE("CVariantEnumerator: each one walks by itself", "[collection]")
{
    const Walk walk(2);
    const auto first = walk.Enumerator();
    const auto second = walk.Enumerator();
    CHECK(Rest(*first.Get()) == std::vector<LONG>{1, 2});
    CHECK(Rest(*second.Get()) == std::vector<LONG>{1, 2});
}

TEST_CASE("CVariantEnumerator: an empty collection has nothing to hand out", "[collection]")
{
    const Walk walk(0);
    const auto enumerator = walk.Enumerator();
    VARIANT value = Poisoned();
    ULONG fetched = 77;
    CHECK(enumerator->Next(1, &value, &fetched) == S_FALSE);
    CHECK(fetched == 0);
    CHECK(value.vt == VT_EMPTY);
    CHECK(enumerator->Reset() == S_OK);
    CHECK(enumerator->Skip(1) == S_FALSE);
}

TEST_CASE("CVariantEnumerator: the walk sees what happens to the collection", "[collection]")
{
    const Walk walk(3);
    const auto enumerator = walk.Enumerator();
    REQUIRE(enumerator->Skip(2) == S_OK);
    SECTION("values that are added, however much the array grows")
    {
        walk.Add(4, 90);
        const auto rest = Rest(*enumerator.Get());
        REQUIRE(rest.size() == 88);
        CHECK(rest.front() == 3);
        CHECK(rest.back() == 90);
    }
    SECTION("values that are added after its end was reached")
    {
        CHECK(Rest(*enumerator.Get()) == std::vector<LONG>{3});
        CHECK(Rest(*enumerator.Get()).empty());
        walk.Add(4, 5);
        CHECK(Rest(*enumerator.Get()) == std::vector<LONG>{4, 5});
    }
    SECTION("a value removed before its place moves the later ones down")
    {
        REQUIRE(walk.collection->Remove(Long(1)) == S_OK);
        CHECK(Rest(*enumerator.Get()).empty()); // 3 is at position 2 now
        walk.Add(4, 4);
        CHECK(Rest(*enumerator.Get()) == std::vector<LONG>{4});
    }
    SECTION("a value removed at its place")
    {
        walk.Add(4, 4);
        REQUIRE(walk.collection->Remove(Long(3)) == S_OK);
        CHECK(Rest(*enumerator.Get()) == std::vector<LONG>{4});
    }
    SECTION("a clear ends the walk")
    {
        REQUIRE(walk.collection->Clear() == S_OK);
        CHECK(Rest(*enumerator.Get()).empty());
        CHECK(enumerator->Skip(1) == S_FALSE);
        CHECK(enumerator->Skip(0) == S_OK);
    }
    SECTION("after a clear and a reset it walks over the new values")
    {
        REQUIRE(walk.collection->Clear() == S_OK);
        walk.Add(7, 8);
        CHECK(enumerator->Reset() == S_OK);
        CHECK(Rest(*enumerator.Get()) == std::vector<LONG>{7, 8});
    }
}

TEST_CASE("CVariantEnumerator: values are handed out as copies of their own", "[collection]")
{
    ComAllocations& allocations = ComAllocations::Watch();
    const Walk walk(0);
    StandInObject object;
    const VARIANT text = Text(L"text");
    REQUIRE(walk.collection->Add(text) == S_OK);
    REQUIRE(walk.collection->Add(object.Given()) == S_OK);
    REQUIRE(walk.collection->Add(Double(0.1)) == S_OK);
    std::array<VARIANT, 3> values{Poisoned(), Poisoned(), Poisoned()};
    ULONG fetched = 77;
    REQUIRE(walk.Enumerator()->Next(3, values.data(), &fetched) == S_OK);
    CHECK(values[0].bstrVal != text.bstrVal);
    CHECK(object.References() == 3);
    CHECK(values[2].dblVal == 0.1);

    REQUIRE(walk.collection->Clear() == S_OK);
    CHECK_FALSE(allocations.IsLive(text.bstrVal));
    CHECK(TextOf(values[0]) == L"text");
    CHECK(object.References() == 2);
    ::VariantClear(&values[0]);
    ::VariantClear(&values[1]);
    CHECK(object.References() == 1);
}

TEST_CASE("CVariantEnumerator: when a copy fails, nothing is handed out", "[collection]")
{
    ComAllocations& allocations = ComAllocations::Watch();
    const Walk walk(0);
    StandInObject object;
    REQUIRE(walk.collection->Add(object.Given()) == S_OK);
    REQUIRE(walk.collection->Add(Text(L"text")) == S_OK);
    REQUIRE(walk.collection->Add(OfType(kImpossibleType)) == S_OK);
    REQUIRE(walk.collection->Add(Long(4)) == S_OK);
    const auto enumerator = walk.Enumerator();
    const std::size_t before = allocations.LiveCount();

    std::array<VARIANT, 4> values{Poisoned(), Poisoned(), Poisoned(), Poisoned()};
    ULONG fetched = 77;
    CHECK(enumerator->Next(4, values.data(), &fetched) == DISP_E_BADVARTYPE);
    CHECK(fetched == 0);
    CHECK(object.References() == 2);
    CHECK(allocations.LiveCount() == before);
    CHECK(values[0].vt == VT_EMPTY);
    CHECK(values[1].vt == VT_EMPTY);

    CHECK(enumerator->Next(1, values.data(), &fetched) == S_OK); // it has not moved
    CHECK(values[0].pdispVal == &object);
    ::VariantClear(&values[0]);
    REQUIRE(enumerator->Skip(2) == S_OK); // and gets over the value
    CHECK(Rest(*enumerator.Get()) == std::vector<LONG>{4});
    REQUIRE(walk.collection->Clear() == S_OK);
    CHECK(object.References() == 1);
}

TEST_CASE("CVariantEnumerator: an object that clears the collection while it is copied does no "
          "harm",
          "[collection]")
{
    const Walk walk(1);
    StandInObject object;
    REQUIRE(walk.collection->Add(object.Given()) == S_OK);
    walk.Add(3, 40);
    const auto enumerator = walk.Enumerator();
    std::array<VARIANT, 10> values;
    values.fill(Poisoned());
    object.OnAddRef([&] { walk.collection->Clear(); });
    ULONG fetched = 77;
    CHECK(enumerator->Next(10, values.data(), &fetched) == S_FALSE);
    CHECK(fetched == 2);
    CHECK(values[0].lVal == 1);
    CHECK(values[1].pdispVal == &object);
    CHECK(values[2].vt == VT_EMPTY);
    ::VariantClear(&values[1]);
    CHECK(object.References() == 1);
    CHECK(Rest(*enumerator.Get()).empty());
}

TEST_CASE("CVariantEnumerator: it keeps the collection and the library", "[collection]")
{
    const ComponentLibrary library;
    auto collection = library.Create<IEnumVariantCol>(CLSID_CEnumVariantCol);
    REQUIRE(collection->Add(Long(1)) == S_OK);
    ComPtr<IUnknown> unknown;
    REQUIRE(collection->get__NewEnum(&unknown) == S_OK);
    ComPtr<IEnumVARIANT> enumerator;
    REQUIRE(unknown.As(&enumerator) == S_OK);
    unknown.Reset();

    collection.Reset();
    CHECK(library.CanUnloadNow() == S_FALSE);
    ComPtr<IEnumVARIANT> clone;
    REQUIRE(enumerator->Clone(&clone) == S_OK);
    enumerator.Reset();
    CHECK(library.CanUnloadNow() == S_FALSE);
    CHECK(Rest(*clone.Get()) == std::vector<LONG>{1});
    clone.Reset();
    CHECK(library.CanUnloadNow() == S_OK);
}

TEST_CASE("CVariantEnumerator: it answers to its interfaces only", "[collection]")
{
    const Walk walk(0);
    const auto enumerator = walk.Enumerator();
    ComPtr<IUnknown> unknown;
    CHECK(enumerator.As(&unknown) == S_OK);
    void* other = unknown.Get();
    CHECK(enumerator->QueryInterface(IID_IDispatch, &other) == E_NOINTERFACE);
    CHECK(other == nullptr);
    CHECK(enumerator->QueryInterface(IID_IEnumVARIANT, nullptr) == E_POINTER);
}
