#include "collection/enum_variant_col.h"

#include "collection/variant_enumerator.h"
#include "collection/variant_utils.h"
#include "foundation/com_method.h"
#include "foundation/system_exception.h"

#include <comdef.h>

using velt::ComMethod;

CEnumVariantCol::CEnumVariantCol(IUnknown* outer) noexcept
    : ComObject(outer),
      m_automationView(*this)
{
}

STDMETHODIMP CEnumVariantCol::get__NewEnum(IUnknown** ppUnk)
{
    return ComMethod("CEnumVariantCol::get__NewEnum", [&] {
        return velt::CreateComObject<velt::CVariantEnumerator>(
            nullptr, IID_IUnknown, reinterpret_cast<void**>(ppUnk), this, std::size_t{0});
    });
}

STDMETHODIMP CEnumVariantCol::get_Item(VARIANT Index, VARIANT* pVal)
{
    return ComMethod("CEnumVariantCol::get_Item", [&] {
        if (!pVal)
        {
            return E_POINTER;
        }
        LONG position = 0;
        const HRESULT hr = velt::CoerceToLong(Index, &position);
        return SUCCEEDED(hr) ? GetAt(position, pVal) : hr;
    });
}

STDMETHODIMP CEnumVariantCol::get_Count(LONG* pVal)
{
    return ComMethod("CEnumVariantCol::get_Count", [&] {
        if (!pVal)
        {
            return E_POINTER;
        }
        *pVal = static_cast<LONG>(m_values.size());
        return S_OK;
    });
}

STDMETHODIMP CEnumVariantCol::Add(VARIANT Value)
{
    return ComMethod("CEnumVariantCol::Add", [&] {
        Append(Value);
        return S_OK;
    });
}

STDMETHODIMP CEnumVariantCol::Remove(VARIANT Index)
{
    return ComMethod("CEnumVariantCol::Remove", [&] {
        if (!velt::HasItsReferences(Index))
        {
            return E_INVALIDARG;
        }
        _variant_t copy;
        velt::ThrowIfFailed(::VariantCopy(&copy, &Index));
        const HRESULT hr = ::VariantChangeType(&copy, &copy, 0, VT_I4);
        return SUCCEEDED(hr) ? RemoveAt(copy.lVal) : hr;
    });
}

STDMETHODIMP CEnumVariantCol::Clear()
{
    return ComMethod("CEnumVariantCol::Clear", [&] {
        // Emptied first: freeing a value may release an object that calls back into the collection.
        std::vector<VARIANT> values;
        values.swap(m_values);
        for (VARIANT& value : values)
        {
            ::VariantClear(&value);
        }
        return S_OK;
    });
}

HRESULT CEnumVariantCol::GetAt(LONG position, VARIANT* value) const noexcept
{
    if (!value)
    {
        return E_POINTER;
    }
    HRESULT hr = S_OK;
    if (const VARIANT* const found = Find(position, hr))
    {
        value->vt = found->vt;
        value->byref = found->byref; // as many bits as a pointer has
    }
    return hr;
}

HRESULT CEnumVariantCol::RemoveAt(LONG position) noexcept
{
    if (position < 1 || static_cast<std::size_t>(position) > m_values.size())
    {
        return E_INVALIDARG;
    }
    // Taken out first, for the same reason as in Clear.
    const auto at = m_values.begin() + (position - 1);
    VARIANT value = *at;
    m_values.erase(at);
    ::VariantClear(&value);
    return S_OK;
}

void CEnumVariantCol::Append(const VARIANT& value)
{
    m_values.push_back(value);
}

const VARIANT* CEnumVariantCol::Find(LONG position, HRESULT& result) const noexcept
{
    if (position < 1)
    {
        result = E_INVALIDARG;
        return nullptr;
    }
    const auto index = static_cast<std::size_t>(position) - 1;
    result = index < m_values.size() ? S_OK : E_FAIL;
    return SUCCEEDED(result) ? &m_values[index] : nullptr;
}

IEnumVariantCol* CEnumVariantCol::AutomationTarget() noexcept
{
    return &m_automationView;
}

IUnknown* CEnumVariantCol::MarshalledObject() noexcept
{
    return &m_automationView;
}

WORD CEnumVariantCol::AutomationFlags(WORD flags) noexcept
{
    // Engines that do not know whether a name is a method or a property ask for both. Some ask for
    // a method only and mean both, so that loops over a collection depend on it.
    return (flags & DISPATCH_METHOD) != 0 ? flags | DISPATCH_PROPERTYGET : flags;
}
