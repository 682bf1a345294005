#include "foundation/library_utils.h"
#include "foundation/wide_text.h"
#include "tools/velt/commands.h"
#include "tools/velt/component.h"
#include "tools/velt/variant_text.h"

#include <provider_lib.h>

#include <comutil.h>

using Microsoft::WRL::ComPtr;

namespace velt::tool
{
namespace
{
/// What an argument looks like: a whole number, a number with a point, true or false, or a text.
_variant_t ValueOf(const std::wstring& text)
{
    if (text == L"true" || text == L"false")
    {
        return {text == L"true"};
    }
    _variant_t value(text.c_str());
    constexpr std::size_t kLongest = 11; // -2147483648; what does not fit fails to be converted
    const bool whole = !text.empty() && text.size() <= kLongest &&
                       text.find_first_not_of(L"0123456789", text[0] == L'-' ? 1 : 0) == text.npos;
    _variant_t converted;
    if (whole && SUCCEEDED(::VariantChangeTypeEx(&converted, &value, LOCALE_INVARIANT, 0, VT_I4)))
    {
        return converted;
    }
    const bool number =
        text.find_first_not_of(L"-.0123456789") == text.npos && text.find(L'.') != text.npos;
    if (number && SUCCEEDED(::VariantChangeTypeEx(&converted, &value, LOCALE_INVARIANT, 0, VT_R8)))
    {
        return converted;
    }
    return value;
}

std::string TextOf(const VARIANT& value)
{
    return Utf8FromWide(VariantText(value));
}

long CountOf(IEnumVariantCol& collection)
{
    long count = 0;
    Require(collection.get_Count(&count), L"Count");
    return count;
}

ReportValue::Texts Enumerate(IEnumVariantCol& collection)
{
    ComPtr<IUnknown> unknown;
    ComPtr<IEnumVARIANT> values;
    Require(collection.get__NewEnum(&unknown), L"_NewEnum");
    Require(unknown.As(&values), L"the enumerator");
    ReportValue::Texts texts;
    _variant_t value;
    HRESULT hr = S_OK;
    while ((hr = values->Next(1, &value, nullptr)) == S_OK)
    {
        texts.push_back(TextOf(value));
        value.Clear();
    }
    Require(hr, L"Next");
    return texts;
}
} // namespace

ExitCode RunCollection(const CommandLine& line, CommandContext& context)
{
    const CLibraryUtils::SmartComInitializer com;
    const Component component;
    const auto collection = component.Create<IEnumVariantCol>(CLSID_CEnumVariantCol);
    Report& results = context.Results();
    for (const std::wstring& argument : line.operands)
    {
        _variant_t value = ValueOf(argument);
        Require(collection->Add(value), L"Add");
        value.Detach(); // by design, the collection has taken over what it owns
    }
    const long count = CountOf(*collection.Get());
    results.Add("count", static_cast<std::int64_t>(count));
    ReportValue::Texts items;
    for (long i = 1; i <= count; ++i)
    {
        // By design lent, and only as many bits as a pointer has: not freed, and in the 32-bit
        // edition no good for doubles.
        VARIANT item{};
        Require(collection->get_Item(_variant_t(i), &item), L"Item");
        items.push_back(sizeof(void*) < sizeof(double) && item.vt == VT_R8 ? "(a double)"
                                                                           : TextOf(item));
    }
    results.Add("items", ReportValue{items});
    results.Add("enumerated", ReportValue{Enumerate(*collection.Get())});
    if (count > 0)
    {
        Require(collection->Remove(_variant_t(1L)), L"Remove");
        results.Add("countAfterRemove", static_cast<std::int64_t>(CountOf(*collection.Get())));
    }
    Require(collection->Clear(), L"Clear");
    results.Add("countAfterClear", static_cast<std::int64_t>(CountOf(*collection.Get())));
    return ExitCode::done;
}
} // namespace velt::tool
