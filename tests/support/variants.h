#pragma once

#include <windows.h>

#include <oleauto.h>

#include <cstring>
#include <string>

namespace velt::test
{
/// VARIANTs as a compiled host fills them. Whoever gets one with a string in it frees the string.
inline VARIANT Long(LONG number) noexcept
{
    VARIANT value;
    ::VariantInit(&value);
    value.vt = VT_I4;
    value.lVal = number;
    return value;
}

inline VARIANT Double(double number) noexcept
{
    VARIANT value;
    ::VariantInit(&value);
    value.vt = VT_R8;
    value.dblVal = number;
    return value;
}

inline VARIANT Int64(LONGLONG number) noexcept
{
    VARIANT value;
    ::VariantInit(&value);
    value.vt = VT_I8;
    value.llVal = number;
    return value;
}

inline VARIANT Text(const wchar_t* text) noexcept
{
    VARIANT value;
    ::VariantInit(&value);
    value.vt = VT_BSTR;
    value.bstrVal = ::SysAllocString(text);
    return value;
}

/// A VARIANT of a type without a value.
inline VARIANT OfType(int type) noexcept
{
    VARIANT value;
    ::VariantInit(&value);
    value.vt = static_cast<VARTYPE>(type);
    return value;
}

/// Refers to a variable of the caller.
inline VARIANT ByRef(LONG& number) noexcept
{
    VARIANT value = OfType(VT_BYREF | VT_I4);
    value.plVal = &number;
    return value;
}

inline VARIANT ByRef(VARIANT& other) noexcept
{
    VARIANT value = OfType(VT_BYREF | VT_VARIANT);
    value.pvarVal = &other;
    return value;
}

/// Every type that a reference can have, the references themselves left out.
inline constexpr VARTYPE kReferableTypes[] = {
    VT_I2,      VT_I4,     VT_R4,      VT_R8,  VT_CY,  VT_DATE, VT_BSTR,         VT_DISPATCH,
    VT_ERROR,   VT_BOOL,   VT_VARIANT, VT_I1,  VT_UI1, VT_UI2,  VT_UI4,          VT_UNKNOWN,
    VT_DECIMAL, VT_RECORD, VT_I8,      VT_UI8, VT_INT, VT_UINT, VT_ARRAY | VT_I4};

/// A type that no system function knows: coercions and copies fail.
inline constexpr int kImpossibleType = 0x0FFE;

inline constexpr unsigned char kPoison = 0xCD;

/// What an out VARIANT holds before a call.
inline VARIANT Poisoned() noexcept
{
    VARIANT value;
    std::memset(&value, kPoison, sizeof(value));
    return value;
}

inline bool IsPoisoned(const VARIANT& value) noexcept
{
    const VARIANT poison = Poisoned();
    return std::memcmp(&value, &poison, sizeof(value)) == 0;
}

/// The text in a VARIANT; "<type n>" when there is none.
inline std::wstring TextOf(const VARIANT& value)
{
    if (value.vt != VT_BSTR)
    {
        return L"<type " + std::to_wstring(value.vt) + L">";
    }
    return std::wstring(value.bstrVal, ::SysStringLen(value.bstrVal));
}
} // namespace velt::test
