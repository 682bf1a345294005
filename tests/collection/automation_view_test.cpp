#include "tests/support/com_allocations.h"
#include "tests/support/component_library.h"
#include "tests/support/late_bound.h"
#include "tests/support/stand_in_object.h"
#include "tests/support/variants.h"

#include <provider_lib.h>

#include <catch.hpp>

#include <cstring>

using Microsoft::WRL::ComPtr;
using namespace velt::test;

namespace
{
constexpr DISPID kCount = 1;
constexpr DISPID kAdd = 2;
constexpr DISPID kRemove = 3;
constexpr DISPID kClear = 4;

/// A collection that is used late-bound, as script hosts do.
struct Late
{
    const ComponentLibrary library;
    ComPtr<IDispatch> dispatch = library.Create<IDispatch>(CLSID_CEnumVariantCol);
    LateBound collection{dispatch.Get()};

    /// The caller owns the copy.
    VARIANT Item(const VARIANT& index) const
    {
        VARIANT value = OfType(VT_EMPTY);
        REQUIRE(collection.Get(L"Item", {index}, &value) == S_OK);
        return value;
    }

    LONG Count() const
    {
        VARIANT value = OfType(VT_EMPTY);
        REQUIRE(collection.Get(L"Count", {}, &value) == S_OK);
        REQUIRE(value.vt == VT_I4);
        return value.lVal;
    }
};
} // namespace

TEST_CASE("CEnumVariantCol late-bound: names have the published DISPIDs", "[collection]")
{
    const auto [name, id] = GENERATE(table<const wchar_t*, DISPID>({
        {L"_NewEnum", DISPID_NEWENUM},
        {L"Item", DISPID_VALUE},
        {L"Count", kCount},
        {L"Add", kAdd},
        {L"Remove", kRemove},
        {L"Clear", kClear},
        {L"cLEAR", kClear}, // automation names have no case
        {L"Append", DISPID_UNKNOWN},
        {L"", DISPID_UNKNOWN},
    }));
    const Late late;
    CHECK(late.collection.Find(name) == id);
}

TEST_CASE("CEnumVariantCol late-bound: names of arguments are found", "[collection]")
{
    const Late late;
    wchar_t method[] = L"Add";
    wchar_t argument[] = L"Value";
    LPOLESTR names[] = {method, argument};
    DISPID ids[] = {77, 77};
    REQUIRE(late.dispatch->GetIDsOfNames(IID_NULL, names, 2, LOCALE_USER_DEFAULT, ids) == S_OK);
    CHECK(ids[0] == kAdd);
    CHECK(ids[1] == 0);
}

TEST_CASE("CEnumVariantCol late-bound: GetIDsOfNames checks its arguments", "[collection]")
{
    const Late late;
    wchar_t text[] = L"Nothing";
    LPOLESTR name = text;
    DISPID id = 77;
    IDispatch& object = *late.dispatch.Get();
    CHECK(object.GetIDsOfNames(IID_NULL, &name, 1, 0, &id) == DISP_E_UNKNOWNNAME);
    CHECK(id == DISPID_UNKNOWN);
    CHECK(object.GetIDsOfNames(IID_IUnknown, &name, 1, 0, &id) == DISP_E_UNKNOWNINTERFACE);
    CHECK(object.GetIDsOfNames(IID_NULL, nullptr, 1, 0, &id) == E_POINTER);
    CHECK(object.GetIDsOfNames(IID_NULL, &name, 1, 0, nullptr) == E_POINTER);
}

TEST_CASE("CEnumVariantCol late-bound: Add stores a copy and the caller frees his own",
          "[collection]")
{
    ComAllocations& allocations = ComAllocations::Watch();
    const Late late;
    VARIANT text = Text(L"mine");
    StandInObject object;
    REQUIRE(late.collection.Call(L"Add", {text}) == S_OK);
    REQUIRE(late.collection.Call(L"Add", {object.Lent()}) == S_OK);
    CHECK(object.References() == 2);
    CHECK(allocations.IsLive(text.bstrVal));
    text.bstrVal[0] = L'M';
    ::VariantClear(&text);

    VARIANT stored = late.Item(Long(1));
    CHECK(TextOf(stored) == L"mine");
    ::VariantClear(&stored);
    REQUIRE(late.collection.Call(L"Clear") == S_OK);
    CHECK(object.References() == 1);
}

TEST_CASE("CEnumVariantCol late-bound: Item hands out a whole copy", "[collection]")
{
    const Late late;
    SECTION("a double")
    {
        REQUIRE(late.collection.Call(L"Add", {Double(0.1)}) == S_OK);
        const VARIANT value = late.Item(Long(1));
        CHECK(value.vt == VT_R8);
        CHECK(value.dblVal == 0.1);
    }
    SECTION("a 64-bit number")
    {
        REQUIRE(late.collection.Call(L"Add", {Int64(0x1122334455667788)}) == S_OK);
        const VARIANT value = late.Item(Long(1));
        CHECK(value.vt == VT_I8);
        CHECK(value.llVal == 0x1122334455667788);
    }
    SECTION("a decimal, which fills the value")
    {
        VARIANT decimal{};
        decimal.decVal.scale = 2;
        decimal.decVal.Hi32 = 0x01020304;
        decimal.decVal.Lo64 = 0x1112131415161718;
        decimal.vt = VT_DECIMAL;
        REQUIRE(late.collection.Call(L"Add", {decimal}) == S_OK);
        const VARIANT value = late.Item(Long(1));
        CHECK(std::memcmp(&value.decVal, &decimal.decVal, sizeof(DECIMAL)) == 0);
    }
    SECTION("a string")
    {
        VARIANT text = Text(L"text");
        REQUIRE(late.collection.Call(L"Add", {text}) == S_OK);
        VARIANT first = late.Item(Long(1));
        VARIANT second = late.Item(Long(1));
        CHECK(TextOf(first) == L"text");
        CHECK(first.bstrVal != second.bstrVal);
        CHECK(first.bstrVal != text.bstrVal);
        for (VARIANT* value : {&first, &second, &text})
        {
            ::VariantClear(value);
        }
    }
    SECTION("an object")
    {
        StandInObject object;
        REQUIRE(late.collection.Call(L"Add", {object.Lent()}) == S_OK);
        VARIANT value = late.Item(Long(1));
        CHECK(value.vt == VT_DISPATCH);
        CHECK(value.pdispVal == &object);
        CHECK(object.References() == 3);
        ::VariantClear(&value);
        REQUIRE(late.collection.Call(L"Remove", {Long(1)}) == S_OK);
        CHECK(object.References() == 1);
    }
    SECTION("an array")
    {
        VARIANT array = OfType(VT_ARRAY | VT_I4);
        array.parray = ::SafeArrayCreateVector(VT_I4, 0, 3);
        LONG index = 1;
        LONG number = 42;
        ::SafeArrayPutElement(array.parray, &index, &number);
        REQUIRE(late.collection.Call(L"Add", {array}) == S_OK);
        VARIANT value = late.Item(Long(1));
        REQUIRE(value.vt == (VT_ARRAY | VT_I4));
        CHECK(value.parray != array.parray);
        ::VariantClear(&array);
        number = 77;
        CHECK(::SafeArrayGetElement(value.parray, &index, &number) == S_OK);
        CHECK(number == 42);
        ::VariantClear(&value);
    }
    REQUIRE(late.collection.Call(L"Clear") == S_OK);
}

TEST_CASE("CEnumVariantCol late-bound: references to variables are followed", "[collection]")
{
    const Late late;
    VARIANT text = Text(L"a");
    LONG one = 1;
    VARIANT oneAsVariant = Long(1);
    REQUIRE(late.collection.Call(L"Add", {ByRef(text)}) == S_OK);
    ::VariantClear(&text);
    for (const VARIANT& index : {ByRef(one), ByRef(oneAsVariant)})
    {
        VARIANT value = late.Item(index);
        CHECK(TextOf(value) == L"a");
        ::VariantClear(&value);
    }
    REQUIRE(late.collection.Call(L"Remove", {ByRef(oneAsVariant)}) == S_OK);
    CHECK(late.Count() == 0);
}

TEST_CASE("CEnumVariantCol late-bound: Item is the default value, got as property or method",
          "[collection]")
{
    const Late late;
    REQUIRE(late.collection.Call(L"Add", {Long(5)}) == S_OK);
    const WORD flags = static_cast<WORD>(
        GENERATE(DISPATCH_PROPERTYGET, DISPATCH_METHOD, DISPATCH_PROPERTYGET | DISPATCH_METHOD));
    VARIANT value = OfType(VT_EMPTY);
    REQUIRE(late.collection.Invoke(DISPID_VALUE, flags, {Long(1)}, &value) == S_OK);
    CHECK(value.vt == VT_I4);
    CHECK(value.lVal == 5);
}

TEST_CASE("CEnumVariantCol late-bound: members are called only as what they are", "[collection]")
{
    const auto [id, flags, argumentCount] = GENERATE(table<DISPID, WORD, int>({
        {DISPID_VALUE, DISPATCH_PROPERTYPUT, 1},
        {kCount, DISPATCH_PROPERTYPUT, 1},
        {kAdd, DISPATCH_PROPERTYGET, 1},
        {kClear, DISPATCH_PROPERTYGET, 0},
        {99, DISPATCH_METHOD, 0},
        {DISPID_UNKNOWN, DISPATCH_METHOD, 0},
    }));
    CAPTURE(id, flags);
    const Late late;
    REQUIRE(late.collection.Call(L"Add", {Long(5)}) == S_OK);
    const std::vector<VARIANT> arguments(static_cast<std::size_t>(argumentCount), Long(1));
    VARIANT value = OfType(VT_EMPTY);
    const HRESULT hr = late.collection.Invoke(id, flags, arguments, &value);
    if (id == kCount && hr == DISP_E_BADPARAMCOUNT)
    {
        WARN("this system's type descriptions miss an argument of a property that cannot be set, "
             "where Windows answers DISP_E_MEMBERNOTFOUND");
    }
    else
    {
        CHECK(hr == DISP_E_MEMBERNOTFOUND);
    }
    CHECK(value.vt == VT_EMPTY);
    CHECK(late.Count() == 1);
}

TEST_CASE("CEnumVariantCol late-bound: missing arguments are refused", "[collection]")
{
    const auto [id, flags] = GENERATE(table<DISPID, WORD>({
        {kAdd, DISPATCH_METHOD},
        {kRemove, DISPATCH_METHOD},
        {DISPID_VALUE, DISPATCH_PROPERTYGET},
    }));
    CAPTURE(id);
    const Late late;
    REQUIRE(late.collection.Call(L"Add", {Long(5)}) == S_OK);
    VARIANT value = OfType(VT_EMPTY);
    const HRESULT hr = late.collection.Invoke(id, flags, {}, &value);
    CHECK((hr == DISP_E_BADPARAMCOUNT || hr == DISP_E_PARAMNOTOPTIONAL));
    CHECK(late.Count() == 1);
}

TEST_CASE("CEnumVariantCol late-bound: arguments too many are refused or never looked at",
          "[collection]")
{
    const auto [id, flags, argumentCount, countAfter] =
        GENERATE(table<DISPID, WORD, std::size_t, LONG>({
            {kAdd, DISPATCH_METHOD, 2, 2},
            {kRemove, DISPATCH_METHOD, 2, 0},
            {kClear, DISPATCH_METHOD, 1, 0},
            {DISPID_VALUE, DISPATCH_PROPERTYGET, 2, 1},
            {kCount, DISPATCH_PROPERTYGET, 1, 1},
        }));
    CAPTURE(id);
    const Late late;
    REQUIRE(late.collection.Call(L"Add", {Long(5)}) == S_OK);
    const std::vector<VARIANT> arguments(argumentCount, Long(1));
    VARIANT value = OfType(VT_EMPTY);
    const HRESULT hr = late.collection.Invoke(id, flags, arguments, &value);
    if (hr == S_OK)
    {
        WARN("this system's type descriptions ignore arguments too many, where Windows answers "
             "DISP_E_BADPARAMCOUNT");
        CHECK(late.Count() == countAfter);
    }
    else
    {
        // For a property without arguments Wine means an index into what it got.
        CHECK((hr == DISP_E_BADPARAMCOUNT || (id == kCount && hr == DISP_E_NOTACOLLECTION)));
        CHECK(late.Count() == 1);
    }
}

TEST_CASE("CEnumVariantCol late-bound: failures are the methods' own", "[collection]")
{
    const Late late;
    VARIANT word = Text(L"word");
    REQUIRE(late.collection.Call(L"Add", {Long(5)}) == S_OK);
    VARIANT value = OfType(VT_EMPTY);
    CHECK(late.collection.Get(L"Item", {Long(0)}, &value) == E_INVALIDARG);
    CHECK(late.collection.Get(L"Item", {Long(2)}, &value) == E_FAIL);
    CHECK(late.collection.Get(L"Item", {word}, &value) == DISP_E_TYPEMISMATCH);
    CHECK(late.collection.Call(L"Remove", {Long(2)}) == E_INVALIDARG);
    CHECK(late.collection.Call(L"Remove", {Long(-1)}) == E_INVALIDARG);
    CHECK(late.collection.Call(L"Remove", {word}) == DISP_E_TYPEMISMATCH);
    CHECK(value.vt == VT_EMPTY);
    CHECK(late.Count() == 1);
    ::VariantClear(&word);
}

TEST_CASE("CEnumVariantCol late-bound: a method's failure arrives as an exception with its code",
          "[collection]")
{
    const Late late;
    VARIANT index = Long(1);
    DISPPARAMS parameters{&index, nullptr, 1, 0};
    EXCEPINFO exception{};
    CHECK(late.dispatch->Invoke(DISPID_VALUE, IID_NULL, 0, DISPATCH_PROPERTYGET, &parameters,
                                nullptr, &exception, nullptr) == DISP_E_EXCEPTION);
    CHECK(exception.scode == E_FAIL);
}

TEST_CASE("CEnumVariantCol late-bound: a value that cannot be copied is not added", "[collection]")
{
    const Late late;
    CHECK(FAILED(late.collection.Call(L"Add", {OfType(kImpossibleType)})));
    CHECK(late.Count() == 0);

    // One that came in through the vtable cannot go out whole.
    ComPtr<IEnumVariantCol> collection;
    REQUIRE(late.dispatch.As(&collection) == S_OK);
    REQUIRE(collection->Add(OfType(kImpossibleType)) == S_OK);
    VARIANT value = OfType(VT_EMPTY);
    CHECK(late.collection.Get(L"Item", {Long(1)}, &value) == DISP_E_BADVARTYPE);
    CHECK(value.vt == VT_EMPTY);
}

TEST_CASE("CEnumVariantCol: references to nothing are refused in every argument", "[collection]")
{
    const Late late;
    ComPtr<IEnumVariantCol> direct;
    REQUIRE(late.dispatch.As(&direct) == S_OK);
    REQUIRE(late.collection.Call(L"Add", {Long(5)}) == S_OK);
    for (const VARTYPE type : kReferableTypes)
    {
        CAPTURE(type);
        VARIANT reference = OfType(VT_BYREF | type);
        for (const VARIANT& value : {reference, ByRef(reference)})
        {
            VARIANT out = OfType(VT_EMPTY);
            CHECK(late.collection.Call(L"Add", {value}) == E_INVALIDARG);
            CHECK(late.collection.Get(L"Item", {value}, &out) == E_INVALIDARG);
            CHECK(late.collection.Call(L"Remove", {value}) == E_INVALIDARG);
            CHECK(direct->get_Item(value, &out) == E_INVALIDARG);
            CHECK(direct->Remove(value) == E_INVALIDARG);
            CHECK(out.vt == VT_EMPTY);
        }
    }
    CHECK(late.Count() == 1);
}

TEST_CASE("CEnumVariantCol: a reference to nothing that came in through the vtable stays inside",
          "[collection]")
{
    const Late late;
    ComPtr<IEnumVariantCol> direct;
    REQUIRE(late.dispatch.As(&direct) == S_OK);
    VARIANT enumerator = OfType(VT_EMPTY);
    REQUIRE(late.collection.Invoke(DISPID_NEWENUM, DISPATCH_PROPERTYGET, {}, &enumerator) == S_OK);
    ComPtr<IEnumVARIANT> values;
    REQUIRE(enumerator.punkVal->QueryInterface(IID_PPV_ARGS(&values)) == S_OK);
    ::VariantClear(&enumerator);
    for (const VARTYPE type : kReferableTypes)
    {
        CAPTURE(type);
        VARIANT reference = OfType(VT_BYREF | type);
        for (const VARIANT& value : {reference, ByRef(reference)})
        {
            REQUIRE(direct->Add(value) == S_OK); // the 16 bytes as they are
            VARIANT out = OfType(VT_EMPTY);
            CHECK(late.collection.Get(L"Item", {Long(1)}, &out) == E_INVALIDARG);
            ULONG fetched = 77;
            CHECK(values->Next(1, &out, &fetched) == E_INVALIDARG);
            CHECK(fetched == 0);
            CHECK(out.vt == VT_EMPTY);
            REQUIRE(direct->Clear() == S_OK);
        }
    }
}

TEST_CASE("CEnumVariantCol late-bound: a result that nobody wants is freed", "[collection]")
{
    ComAllocations& allocations = ComAllocations::Watch();
    const Late late;
    StandInObject object;
    VARIANT text = Text(L"text");
    REQUIRE(late.collection.Call(L"Add", {text}) == S_OK);
    REQUIRE(late.collection.Call(L"Add", {object.Lent()}) == S_OK);
    const std::size_t before = allocations.LiveCount();
    CHECK(late.collection.Get(L"Item", {Long(1)}, nullptr) == S_OK);
    CHECK(late.collection.Get(L"Item", {Long(2)}, nullptr) == S_OK);
    CHECK(allocations.LiveCount() == before);
    CHECK(object.References() == 2);
    REQUIRE(late.collection.Call(L"Clear") == S_OK);
    ::VariantClear(&text);
}

TEST_CASE("CEnumVariantCol late-bound: nothing is left of calls", "[collection]")
{
    ComAllocations& allocations = ComAllocations::Watch();
    const Late late;
    StandInObject object;
    VARIANT text = Text(L"text");
    VARIANT index = Text(L"1");
    const auto useAll = [&] {
        REQUIRE(late.collection.Call(L"Add", {text}) == S_OK);
        REQUIRE(late.collection.Call(L"Add", {ByRef(text)}) == S_OK);
        REQUIRE(late.collection.Call(L"Add", {object.Lent()}) == S_OK);
        for (LONG position = 1; position <= 3; ++position)
        {
            VARIANT value = late.Item(Long(position));
            ::VariantClear(&value);
        }
        REQUIRE(late.collection.Call(L"Remove", {index}) == S_OK);
        CHECK(late.collection.Call(L"Remove", {text}) == DISP_E_TYPEMISMATCH);
        CHECK(late.collection.Call(L"Add") != S_OK);
        VARIANT enumerator = OfType(VT_EMPTY);
        REQUIRE(late.collection.Invoke(DISPID_NEWENUM, DISPATCH_PROPERTYGET, {}, &enumerator) ==
                S_OK);
        ::VariantClear(&enumerator);
        REQUIRE(late.collection.Call(L"Clear") == S_OK);
    };
    useAll(); // what is loaded once is there now
    const std::size_t before = allocations.LiveCount();
    for (int round = 0; round < 10; ++round)
    {
        useAll();
    }
    CHECK(allocations.LiveCount() == before);
    CHECK(object.References() == 1);
    ::VariantClear(&text);
    ::VariantClear(&index);
}

TEST_CASE("CEnumVariantCol late-bound: _NewEnum answers an enumerator", "[collection]")
{
    const Late late;
    VARIANT value = OfType(VT_EMPTY);
    const WORD flags = static_cast<WORD>(
        GENERATE(DISPATCH_PROPERTYGET, DISPATCH_METHOD, DISPATCH_PROPERTYGET | DISPATCH_METHOD));
    REQUIRE(late.collection.Invoke(DISPID_NEWENUM, flags, {}, &value) == S_OK);
    REQUIRE(value.vt == VT_UNKNOWN);
    ComPtr<IEnumVARIANT> enumerator;
    CHECK(value.punkVal->QueryInterface(IID_PPV_ARGS(&enumerator)) == S_OK);
    ::VariantClear(&value);
}

TEST_CASE("CEnumVariantCol late-bound: Invoke checks its arguments", "[collection]")
{
    const Late late;
    DISPPARAMS none{};
    VARIANT value = OfType(VT_EMPTY);
    IDispatch& object = *late.dispatch.Get();
    CHECK(object.Invoke(kCount, IID_IDispatch, 0, DISPATCH_PROPERTYGET, &none, &value, nullptr,
                        nullptr) == DISP_E_UNKNOWNINTERFACE);
    CHECK(object.Invoke(kCount, IID_NULL, 0, DISPATCH_PROPERTYGET, nullptr, &value, nullptr,
                        nullptr) == E_POINTER);
    CHECK(value.vt == VT_EMPTY);
    CHECK(object.Invoke(kCount, IID_NULL, 0, DISPATCH_PROPERTYGET, &none, &value, nullptr,
                        nullptr) == S_OK); // neither error place is needed
    CHECK(value.vt == VT_I4);
}

TEST_CASE("CEnumVariantCol late-bound: there is one type description", "[collection]")
{
    const Late late;
    UINT count = 77;
    CHECK(late.dispatch->GetTypeInfoCount(&count) == S_OK);
    CHECK(count == 1);
    CHECK(late.dispatch->GetTypeInfoCount(nullptr) == E_POINTER);

    ITypeInfo* info = reinterpret_cast<ITypeInfo*>(&count);
    CHECK(late.dispatch->GetTypeInfo(1, 0, &info) == DISP_E_BADINDEX);
    CHECK(info == nullptr);
    CHECK(late.dispatch->GetTypeInfo(0, 0, nullptr) == E_POINTER);
}

TEST_CASE("CEnumVariantCol late-bound: the type description tells all members", "[collection]")
{
    const auto [id, kind, flags, parameterCount] = GENERATE(table<DISPID, int, int, int>({
        {DISPID_NEWENUM, INVOKE_PROPERTYGET, FUNCFLAG_FRESTRICTED, 0},
        {DISPID_VALUE, INVOKE_PROPERTYGET, 0, 1},
        {kCount, INVOKE_PROPERTYGET, 0, 0},
        {kAdd, INVOKE_FUNC, 0, 1},
        {kRemove, INVOKE_FUNC, 0, 1},
        {kClear, INVOKE_FUNC, 0, 0},
    }));
    CAPTURE(id);
    const Late late;
    ComPtr<ITypeInfo> info;
    REQUIRE(late.dispatch->GetTypeInfo(0, LOCALE_USER_DEFAULT, &info) == S_OK);
    TYPEATTR* attributes = nullptr;
    REQUIRE(info->GetTypeAttr(&attributes) == S_OK);
    CHECK(attributes->guid == IID_IEnumVariantCol);
    CHECK(attributes->typekind == TKIND_DISPATCH);
    CHECK((attributes->wTypeFlags & TYPEFLAG_FDUAL) != 0);
    const WORD functionCount = attributes->cFuncs;
    info->ReleaseTypeAttr(attributes);

    int found = 0;
    for (UINT i = 0; i < functionCount; ++i)
    {
        FUNCDESC* function = nullptr;
        REQUIRE(info->GetFuncDesc(i, &function) == S_OK);
        if (function->memid == id)
        {
            ++found;
            CHECK(function->invkind == kind);
            CHECK(function->wFuncFlags == flags);
            CHECK(function->cParams == parameterCount);
        }
        info->ReleaseFuncDesc(function);
    }
    CHECK(found == 1);
}
