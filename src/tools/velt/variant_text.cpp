#include "tools/velt/variant_text.h"

#include "tools/velt/command_context.h"

#include <comutil.h>

namespace velt::tool
{
namespace
{
_variant_t Convert(const VARIANT& value, VARTYPE type, const wchar_t* what)
{
    _variant_t converted;
    // The system takes the value as writable and does not write to it.
    Require(::VariantChangeTypeEx(&converted, const_cast<VARIANT*>(&value), LOCALE_INVARIANT,
                                  VARIANT_ALPHABOOL, type),
            what);
    return converted;
}
} // namespace

std::wstring VariantText(const VARIANT& value)
{
    const _variant_t text = Convert(value, VT_BSTR, L"a value's text");
    return {text.bstrVal ? text.bstrVal : L"", ::SysStringLen(text.bstrVal)};
}

long VariantNumber(const VARIANT& value)
{
    return Convert(value, VT_I4, L"a number").lVal;
}
} // namespace velt::tool
