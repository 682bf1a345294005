#include "collection/variant_utils.h"

namespace velt
{
namespace
{
bool IsWhole(const VARIANT& value) noexcept
{
    const bool needsPointer = (value.vt & VT_BYREF) != 0;
    const bool needsRecordInfo =
        (value.vt & VT_TYPEMASK) == VT_RECORD && (value.vt & VT_ARRAY) == 0;
    return (!needsPointer || value.byref) && (!needsRecordInfo || value.pRecInfo);
}
} // namespace

bool HasItsReferences(const VARIANT& value) noexcept
{
    constexpr VARTYPE kReferenceToVariant = VT_BYREF | VT_VARIANT;
    if (!IsWhole(value))
    {
        return false;
    }
    return value.vt != kReferenceToVariant ||
           (value.pvarVal->vt != kReferenceToVariant && IsWhole(*value.pvarVal));
}

HRESULT CopyOwningVariant(VARIANT* to, VARIANT from) noexcept
{
    ::VariantInit(to);
    return HasItsReferences(from) ? ::VariantCopyInd(to, &from) : E_INVALIDARG;
}

HRESULT ConvertToLong(VARIANT value, LONG* number) noexcept
{
    if (!HasItsReferences(value))
    {
        return E_INVALIDARG;
    }
    VARIANT coerced;
    ::VariantInit(&coerced);
    const HRESULT hr = ::VariantChangeType(&coerced, &value, 0, VT_I4);
    if (SUCCEEDED(hr))
    {
        *number = coerced.lVal;
    }
    return hr;
}
} // namespace velt
