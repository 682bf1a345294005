#include "tests/support/late_bound.h"
#include "tests/support/stand_in_object.h"
#include "tests/support/variants.h"
#include "tests/torture/trial.h"

#include <provider_lib.h>

#include <comutil.h>

namespace velt::torture
{
namespace
{
using Microsoft::WRL::ComPtr;
using velt::test::LateBound;

/// A collection of three numbers.
ComPtr<IEnumVariantCol> Three(const Trial& trial)
{
    auto collection = trial.Create<IEnumVariantCol>(CLSID_CEnumVariantCol);
    for (LONG number = 1; number <= 3; ++number)
    {
        collection->Add(velt::test::Long(number));
    }
    return collection;
}

LONG CountOf(IEnumVariantCol* collection)
{
    LONG count = -1;
    collection->get_Count(&count);
    return count;
}

/// Adds by the vtable: a value that was added belongs to the collection.
void Add(Trial& trial, VARIANT value)
{
    const auto collection = Three(trial);
    const HRESULT hr = trial.Act([&] { return collection->Add(value); });
    trial.Check(CountOf(collection.Get()) == (SUCCEEDED(hr) ? 4 : 3), "another count");
    if (FAILED(hr))
    {
        ::VariantClear(&value);
    }
    collection->Clear();
}

/// Calls a member as scripts do; `added` is by how much the count is greater afterwards.
void CallLate(Trial& trial, const wchar_t* name, WORD flags, std::vector<VARIANT> arguments,
              LONG added, HRESULT ordinary = S_OK)
{
    const auto collection = Three(trial);
    _variant_t result;
    const HRESULT hr = trial.Act(
        [&] {
            const LateBound late(collection.Get());
            const DISPID id = late.Find(name);
            return id == DISPID_UNKNOWN ? E_OUTOFMEMORY
                                        : late.Invoke(id, flags, arguments, &result);
        },
        ordinary, {E_OUTOFMEMORY, DISP_E_EXCEPTION, TYPE_E_CANTLOADLIBRARY, E_FAIL});
    trial.Check(CountOf(collection.Get()) == (SUCCEEDED(hr) ? 3 + added : 3), "another count");
    trial.Check(SUCCEEDED(hr) || result.vt == VT_EMPTY || !result.punkVal,
                "a failure wrote the result");
    for (VARIANT& argument : arguments)
    {
        ::VariantClear(&argument);
    }
    collection->Clear();
}

ComPtr<IEnumVARIANT> EnumeratorOf(IEnumVariantCol* collection)
{
    ComPtr<IUnknown> unknown;
    ComPtr<IEnumVARIANT> enumerator;
    collection->get__NewEnum(&unknown);
    unknown.As(&enumerator);
    return enumerator;
}

void Enumerate(Trial& trial, ULONG asked, HRESULT ordinary)
{
    auto collection = trial.Create<IEnumVariantCol>(CLSID_CEnumVariantCol);
    const LateBound late(collection.Get());
    const _variant_t text(L"text");
    for (int i = 0; i < 3; ++i)
    {
        late.Call(L"Add", {text});
    }
    const auto enumerator = EnumeratorOf(collection.Get());
    _variant_t values[5];
    ULONG fetched = 77;
    const HRESULT hr =
        trial.Act([&] { return enumerator->Next(asked, values, &fetched); }, ordinary);
    trial.Check(SUCCEEDED(hr) ? fetched == std::min(asked, 3UL) : fetched == 0 || fetched == 77,
                "another number of values");
    for (ULONG i = 0; i < 5; ++i)
    {
        const bool isGiven = SUCCEEDED(hr) && i < fetched;
        trial.Check(values[i].vt == (isGiven ? VT_BSTR : VT_EMPTY), "values are not whole");
    }
    late.Call(L"Clear");
}
/// Says that it is a collection, and is never called.
class NamedCollection final : public IUnknown
{
public:
    STDMETHODIMP QueryInterface(REFIID iid, void** object) override
    {
        const bool isKnown = iid == IID_IUnknown || iid == IID_IEnumVariantCol;
        *object = isKnown ? this : nullptr;
        return isKnown ? S_OK : E_NOINTERFACE;
    }

    STDMETHODIMP_(ULONG) AddRef() override
    {
        return 2; // its scope owns it
    }

    STDMETHODIMP_(ULONG) Release() override
    {
        return 1;
    }
};

void MarshalBare()
{
    NamedCollection collection;
    ComPtr<IStream> stream;
    if (SUCCEEDED(
            ::CoMarshalInterThreadInterfaceInStream(IID_IEnumVariantCol, &collection, &stream)))
    {
        ComPtr<IUnknown> same;
        ::CoGetInterfaceAndReleaseStream(stream.Detach(), IID_IEnumVariantCol,
                                         reinterpret_cast<void**>(same.GetAddressOf()));
    }
}
} // namespace

void AddCollectionOperations(std::vector<Operation>& operations)
{
    const auto add = [&](const char* name, std::function<void(Trial&)> run) {
        operations.push_back({"collection", name, std::move(run)});
    };
    add("Add a number", [](Trial& trial) { Add(trial, velt::test::Long(7)); });
    add("Add a text", [](Trial& trial) { Add(trial, velt::test::Text(L"text")); });
    add("Add an object", [](Trial& trial) {
        velt::test::StandInObject object;
        Add(trial, object.Given());
        trial.Check(object.References() == 1, "references are left");
    });
    add("Add fifty", [](Trial& trial) {
        const auto collection = trial.Create<IEnumVariantCol>(CLSID_CEnumVariantCol);
        LONG added = 0;
        for (LONG i = 0; i < 50; ++i)
        {
            added += trial.Act([&] { return collection->Add(velt::test::Long(i)); }) == S_OK;
        }
        trial.Check(CountOf(collection.Get()) == added, "another count");
    });
    add("Item", [](Trial& trial) {
        const auto collection = Three(trial);
        VARIANT value = velt::test::Long(99);
        const HRESULT hr =
            trial.Act([&] { return collection->get_Item(velt::test::Long(2), &value); });
        trial.Check(value.lVal == (SUCCEEDED(hr) ? 2 : 99), "another value");
    });
    add("Item past the end", [](Trial& trial) {
        const auto collection = Three(trial);
        VARIANT value = velt::test::Long(99);
        trial.Act([&] { return collection->get_Item(velt::test::Long(4), &value); }, E_FAIL);
        trial.Check(value.lVal == 99, "a failure wrote the out value");
    });
    add("Item by a text", [](Trial& trial) {
        const auto collection = Three(trial);
        VARIANT value = velt::test::Long(99);
        const _variant_t index(L"2");
        HRESULT ordinary = E_UNEXPECTED;
        trial.Act([&] { return ordinary = collection->get_Item(index, &value); }, S_OK,
                  {E_FAIL, E_INVALIDARG, DISP_E_TYPEMISMATCH});
        trial.Check(value.lVal == (SUCCEEDED(ordinary) ? 2 : 99), "another value");
    });
    add("Count", [](Trial& trial) {
        const auto collection = Three(trial);
        LONG count = 99;
        const HRESULT hr = trial.Act([&] { return collection->get_Count(&count); });
        trial.Check(count == (SUCCEEDED(hr) ? 3 : 99), "another count");
    });
    add("Count to nowhere", [](Trial& trial) {
        const auto collection = Three(trial);
        trial.Act([&] { return collection->get_Count(nullptr); }, E_POINTER);
    });
    add("Remove", [](Trial& trial) {
        const auto collection = Three(trial);
        const HRESULT hr = trial.Act([&] { return collection->Remove(velt::test::Long(1)); });
        trial.Check(CountOf(collection.Get()) == (SUCCEEDED(hr) ? 2 : 3), "another count");
    });
    add("Remove past the end", [](Trial& trial) {
        const auto collection = Three(trial);
        trial.Act([&] { return collection->Remove(velt::test::Long(0)); }, E_INVALIDARG);
        trial.Check(CountOf(collection.Get()) == 3, "another count");
    });
    add("Clear", [](Trial& trial) {
        const auto collection = Three(trial);
        const HRESULT hr = trial.Act([&] { return collection->Clear(); });
        trial.Check(CountOf(collection.Get()) == (SUCCEEDED(hr) ? 0 : 3), "another count");
    });
    add("_NewEnum", [](Trial& trial) {
        const auto collection = Three(trial);
        ComPtr<IUnknown> enumerator;
        const HRESULT hr = trial.Act([&] { return collection->get__NewEnum(&enumerator); });
        trial.Check(SUCCEEDED(hr) == (enumerator != nullptr), "the out value is not whole");
    });
    add("Next", [](Trial& trial) { Enumerate(trial, 2, S_OK); });
    add("Next past the end", [](Trial& trial) { Enumerate(trial, 5, S_FALSE); });
    add("Skip, Reset, Clone", [](Trial& trial) {
        const auto collection = Three(trial);
        const auto enumerator = EnumeratorOf(collection.Get());
        trial.Act([&] { return enumerator->Skip(2); });
        trial.Act([&] { return enumerator->Reset(); });
        ComPtr<IEnumVARIANT> copy;
        const HRESULT hr = trial.Act([&] { return enumerator->Clone(&copy); });
        trial.Check(SUCCEEDED(hr) == (copy != nullptr), "the out value is not whole");
    });
    add("Add, late-bound", [](Trial& trial) {
        CallLate(trial, L"Add", DISPATCH_METHOD, {velt::test::Text(L"text")}, 1);
    });
    add("Item, late-bound", [](Trial& trial) {
        CallLate(trial, L"Item", DISPATCH_PROPERTYGET, {velt::test::Long(1)}, 0);
    });
    add("Count, late-bound",
        [](Trial& trial) { CallLate(trial, L"Count", DISPATCH_PROPERTYGET, {}, 0); });
    add("_NewEnum, late-bound",
        [](Trial& trial) { CallLate(trial, L"_NewEnum", DISPATCH_PROPERTYGET, {}, 0); });
    add("Remove, late-bound", [](Trial& trial) {
        CallLate(trial, L"Remove", DISPATCH_METHOD, {velt::test::Long(3)}, -1);
    });
    add("Clear, late-bound",
        [](Trial& trial) { CallLate(trial, L"Clear", DISPATCH_METHOD, {}, -3); });
    add("Item by a word, late-bound", [](Trial& trial) {
        CallLate(trial, L"Item", DISPATCH_PROPERTYGET, {velt::test::Text(L"word")}, 0,
                 DISP_E_TYPEMISMATCH);
    });
    add("GetTypeInfo", [](Trial& trial) {
        const auto collection = Three(trial);
        ComPtr<ITypeInfo> info;
        const HRESULT hr =
            trial.Act([&] { return collection->GetTypeInfo(0, LOCALE_USER_DEFAULT, &info); });
        trial.Check(SUCCEEDED(hr) == (info != nullptr), "the out value is not whole");
    });
    const auto marshal = [](Trial& trial) {
        const auto collection = Three(trial);
        ComPtr<IStream> stream;
        HRESULT hr = trial.Act(
            [&] {
                return ::CoMarshalInterThreadInterfaceInStream(IID_IEnumVariantCol,
                                                               collection.Get(), &stream);
            },
            S_OK, {E_FAIL});
        if (SUCCEEDED(hr))
        {
            ComPtr<IEnumVariantCol> same;
            hr = trial.Act(
                [&] {
                    return ::CoGetInterfaceAndReleaseStream(
                        stream.Get(), IID_IEnumVariantCol,
                        reinterpret_cast<void**>(same.GetAddressOf()));
                },
                S_OK, {E_FAIL});
            stream.Detach();
            trial.Check(SUCCEEDED(hr) == (same != nullptr), "the out value is not whole");
            if (same)
            {
                LONG count = 0;
                trial.Act([&] { return same->get_Count(&count); });
            }
        }
    };
    operations.push_back(
        {"collection", "Marshalled, called and disconnected", marshal, &MarshalBare});
}
} // namespace velt::torture
