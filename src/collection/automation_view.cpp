#include "collection/automation_view.h"

#include "collection/enum_variant_col.h"
#include "collection/variant_utils.h"
#include "foundation/com_method.h"
#include "foundation/system_exception.h"

#include <comdef.h>

namespace velt
{
AutomationView::AutomationView(CEnumVariantCol& collection) noexcept : m_collection(collection) {}

STDMETHODIMP AutomationView::QueryInterface(REFIID iid, void** object)
{
    if (!object)
    {
        return E_POINTER;
    }
    if (::IsEqualIID(iid, IID_IUnknown) || ::IsEqualIID(iid, IID_IDispatch) ||
        ::IsEqualIID(iid, __uuidof(IEnumVariantCol)))
    {
        *object = static_cast<IEnumVariantCol*>(this);
        AddRef();
        return S_OK;
    }
    if (::IsEqualIID(iid, IID_IMarshal))
    {
        *object = nullptr; // the collection's; this object is for the standard marshaler
        return E_NOINTERFACE;
    }
    return m_collection.QueryInterface(iid, object);
}

STDMETHODIMP_(ULONG) AutomationView::AddRef()
{
    const LONG references = ::InterlockedIncrement(&m_references);
    if (references == 1)
    {
        m_collection.AddRef();
    }
    return static_cast<ULONG>(references);
}

STDMETHODIMP_(ULONG) AutomationView::Release()
{
    const LONG references = ::InterlockedDecrement(&m_references);
    if (references == 0)
    {
        m_collection.Release(); // which may be the end of this object as well
    }
    return static_cast<ULONG>(references);
}

STDMETHODIMP AutomationView::GetTypeInfoCount(UINT* count)
{
    return m_collection.GetTypeInfoCount(count);
}

STDMETHODIMP AutomationView::GetTypeInfo(UINT index, LCID locale, ITypeInfo** info)
{
    return m_collection.GetTypeInfo(index, locale, info);
}

STDMETHODIMP AutomationView::GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, LCID locale,
                                           DISPID* ids)
{
    return m_collection.GetIDsOfNames(iid, names, count, locale, ids);
}

STDMETHODIMP AutomationView::Invoke(DISPID id, REFIID iid, LCID locale, WORD flags,
                                    DISPPARAMS* parameters, VARIANT* result, EXCEPINFO* exception,
                                    UINT* argumentError)
{
    return m_collection.Invoke(id, iid, locale, flags, parameters, result, exception,
                               argumentError);
}

STDMETHODIMP AutomationView::get__NewEnum(IUnknown** ppUnk)
{
    return m_collection.get__NewEnum(ppUnk);
}

STDMETHODIMP AutomationView::get_Item(VARIANT Index, VARIANT* pVal)
{
    return ComMethod("CEnumVariantCol::get_Item", [&] {
        if (!pVal)
        {
            return E_POINTER;
        }
        LONG position = 0;
        HRESULT hr = CoerceToLong(Index, &position);
        if (FAILED(hr))
        {
            return hr;
        }
        const VARIANT* const found = m_collection.Find(position, hr);
        return found ? CopyVariant(pVal, *found) : hr;
    });
}

STDMETHODIMP AutomationView::get_Count(LONG* pVal)
{
    return m_collection.get_Count(pVal);
}

STDMETHODIMP AutomationView::Add(VARIANT Value)
{
    return ComMethod("CEnumVariantCol::Add", [&] {
        _variant_t copy;
        ThrowIfFailed(CopyVariant(&copy, Value));
        m_collection.Append(copy);
        ::VariantInit(&copy); // the collection owns it now
        return S_OK;
    });
}

STDMETHODIMP AutomationView::Remove(VARIANT Index)
{
    return m_collection.Remove(Index);
}

STDMETHODIMP AutomationView::Clear()
{
    return m_collection.Clear();
}
} // namespace velt
