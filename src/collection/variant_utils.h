#pragma once

#include <windows.h>

#include <oleauto.h>

#include <cstdint>

namespace velt
{
/// Whether the bytes of a VARIANT of this type are its whole value, owning nothing.
constexpr bool IsPlainVariantType(VARTYPE type) noexcept
{
    constexpr std::uint32_t kPlain = 1u << VT_EMPTY | 1u << VT_NULL | 1u << VT_I2 | 1u << VT_I4 |
                                     1u << VT_R4 | 1u << VT_R8 | 1u << VT_CY | 1u << VT_DATE |
                                     1u << VT_ERROR | 1u << VT_BOOL | 1u << VT_DECIMAL |
                                     1u << VT_I1 | 1u << VT_UI1 | 1u << VT_UI2 | 1u << VT_UI4 |
                                     1u << VT_I8 | 1u << VT_UI8 | 1u << VT_INT | 1u << VT_UINT;
    return type < 32 && (kPlain >> type & 1) != 0;
}

/// Whether what a value refers to is there, also when that is a reference in its turn: the system
/// follows null pointers. A reference to a reference to a VARIANT is none that it follows.
bool HasItsReferences(const VARIANT& value) noexcept;

/// What CopyVariant does with values that are not plain.
HRESULT CopyOwningVariant(VARIANT* to, VARIANT from) noexcept;

/// Copies a value whole, following references, into a VARIANT that holds nothing yet; after a
/// failure it is VT_EMPTY; E_INVALIDARG for a reference to nothing. Taken by value, because a copy
/// may call an object that changes the place where the value came from.
inline HRESULT CopyVariant(VARIANT* to, VARIANT from) noexcept
{
    if (IsPlainVariantType(from.vt))
    {
        *to = from;
        return S_OK;
    }
    return CopyOwningVariant(to, from);
}

/// What CoerceToLong does with values of other types.
HRESULT ConvertToLong(VARIANT value, LONG* number) noexcept;

/// Coerces a value to a 32-bit integer. E_INVALIDARG for a reference to nothing.
inline HRESULT CoerceToLong(const VARIANT& value, LONG* number) noexcept
{
    if (value.vt == VT_I4)
    {
        *number = value.lVal;
        return S_OK;
    }
    return ConvertToLong(value, number);
}
} // namespace velt
