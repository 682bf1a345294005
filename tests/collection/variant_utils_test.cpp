#include "collection/variant_utils.h"

#include "tests/support/com_allocations.h"
#include "tests/support/stand_in_object.h"
#include "tests/support/variants.h"

#include <catch.hpp>

#include <cstring>

using namespace velt::test;
using velt::CoerceToLong;
using velt::CopyVariant;
using velt::IsPlainVariantType;

TEST_CASE("IsPlainVariantType: exactly the types that own nothing", "[collection]")
{
    const auto [type, plain] = GENERATE(table<int, bool>({
        {VT_EMPTY, true},
        {VT_NULL, true},
        {VT_I2, true},
        {VT_I4, true},
        {VT_R4, true},
        {VT_R8, true},
        {VT_CY, true},
        {VT_DATE, true},
        {VT_ERROR, true},
        {VT_BOOL, true},
        {VT_DECIMAL, true},
        {VT_I1, true},
        {VT_UI1, true},
        {VT_UI2, true},
        {VT_UI4, true},
        {VT_I8, true},
        {VT_UI8, true},
        {VT_INT, true},
        {VT_UINT, true},
        {VT_BSTR, false},
        {VT_DISPATCH, false},
        {VT_UNKNOWN, false},
        {VT_VARIANT, false},
        {VT_RECORD, false},
        {15, false},
        {VT_VOID, false},
        {31, false},
        {32, false},
        {VT_ARRAY | VT_I4, false},
        {VT_BYREF | VT_I4, false},
        {0xFFFF, false},
    }));
    CAPTURE(type);
    CHECK(IsPlainVariantType(static_cast<VARTYPE>(type)) == plain);
}

TEST_CASE("CopyVariant: plain values are copied with all their bytes", "[collection]")
{
    VARIANT decimal = OfType(VT_EMPTY);
    decimal.decVal.scale = 2;
    decimal.decVal.Hi32 = 0x01020304;
    decimal.decVal.Lo64 = 0x1112131415161718;
    decimal.vt = VT_DECIMAL;
    for (const VARIANT& value : {Long(-1), Double(0.1), Int64(0x1122334455667788), decimal})
    {
        CAPTURE(value.vt);
        VARIANT copy = Poisoned();
        REQUIRE(CopyVariant(&copy, value) == S_OK);
        CHECK(std::memcmp(&copy, &value, sizeof(value)) == 0);
    }
}

TEST_CASE("CopyVariant: strings are doubled and objects get a reference", "[collection]")
{
    VARIANT text = Text(L"text");
    VARIANT copy = Poisoned();
    REQUIRE(CopyVariant(&copy, text) == S_OK);
    CHECK(TextOf(copy) == L"text");
    CHECK(copy.bstrVal != text.bstrVal);
    ::VariantClear(&copy);
    ::VariantClear(&text);

    StandInObject object;
    REQUIRE(CopyVariant(&copy, object.Lent()) == S_OK);
    CHECK(object.References() == 2);
    ::VariantClear(&copy);
    CHECK(object.References() == 1);
}

TEST_CASE("CopyVariant: references are followed", "[collection]")
{
    LONG number = 6;
    VARIANT inner = Text(L"inner");
    VARIANT copy = Poisoned();
    REQUIRE(CopyVariant(&copy, ByRef(number)) == S_OK);
    CHECK(copy.vt == VT_I4);
    CHECK(copy.lVal == 6);
    REQUIRE(CopyVariant(&copy, ByRef(inner)) == S_OK);
    CHECK(TextOf(copy) == L"inner");
    CHECK(copy.bstrVal != inner.bstrVal);
    ::VariantClear(&copy);
    ::VariantClear(&inner);
}

TEST_CASE("CopyVariant: after a failure the copy is empty", "[collection]")
{
    VARIANT copy = Poisoned();
    CHECK(CopyVariant(&copy, OfType(kImpossibleType)) == DISP_E_BADVARTYPE);
    CHECK(copy.vt == VT_EMPTY);
}

TEST_CASE("CopyVariant: a reference to nothing is refused, also inside another one", "[collection]")
{
    for (const VARTYPE type : kReferableTypes)
    {
        CAPTURE(type);
        VARIANT reference = OfType(VT_BYREF | type);
        for (const VARIANT& value : {reference, ByRef(reference)})
        {
            VARIANT copy = Poisoned();
            CHECK(CopyVariant(&copy, value) == E_INVALIDARG);
            CHECK(copy.vt == VT_EMPTY);
        }
    }
}

TEST_CASE("CopyVariant: a reference that goes round in circles is refused", "[collection]")
{
    VARIANT reference = OfType(VT_BYREF | VT_VARIANT);
    reference.pvarVal = &reference;
    VARIANT copy = Poisoned();
    CHECK(CopyVariant(&copy, reference) == E_INVALIDARG);
    CHECK(copy.vt == VT_EMPTY);
}

TEST_CASE("CopyVariant: a record without its description is refused", "[collection]")
{
    int data = 0;
    for (const int type : {static_cast<int>(VT_RECORD), VT_BYREF | VT_RECORD})
    {
        CAPTURE(type);
        VARIANT record = OfType(type);
        record.pvRecord = &data;
        VARIANT copy = Poisoned();
        CHECK(CopyVariant(&copy, record) == E_INVALIDARG);
        CHECK(copy.vt == VT_EMPTY);
    }
}

TEST_CASE("CoerceToLong: a reference to nothing is refused, also inside another one",
          "[collection]")
{
    for (const VARTYPE type : kReferableTypes)
    {
        CAPTURE(type);
        VARIANT reference = OfType(VT_BYREF | type);
        LONG number = 77;
        CHECK(CoerceToLong(reference, &number) == E_INVALIDARG);
        CHECK(CoerceToLong(ByRef(reference), &number) == E_INVALIDARG);
        CHECK(number == 77);
    }
}

TEST_CASE("CoerceToLong: a failure leaves the number as it was", "[collection]")
{
    LONG number = 77;
    CHECK(CoerceToLong(OfType(VT_NULL), &number) == DISP_E_TYPEMISMATCH);
    CHECK(number == 77);
    CHECK(CoerceToLong(Double(12.0), &number) == S_OK);
    CHECK(number == 12);
    CHECK(CoerceToLong(Long(13), &number) == S_OK);
    CHECK(number == 13);
}

TEST_CASE("CoerceToLong: a string stays the caller's", "[collection]")
{
    ComAllocations& allocations = ComAllocations::Watch();
    VARIANT text = Text(L"-5");
    LONG number = 77;
    CHECK(CoerceToLong(text, &number) == S_OK);
    CHECK(number == -5);
    CHECK(allocations.IsLive(text.bstrVal));
    CHECK(TextOf(text) == L"-5");
    ::VariantClear(&text);
}
