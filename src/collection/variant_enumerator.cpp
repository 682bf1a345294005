#include "collection/variant_enumerator.h"

#include "collection/enum_variant_col.h"
#include "collection/variant_utils.h"
#include "foundation/com_method.h"

#include <algorithm>

namespace velt
{
CVariantEnumerator::CVariantEnumerator(IUnknown* outer, CEnumVariantCol* collection,
                                       std::size_t next) noexcept
    : ComObject(outer),
      m_collection(collection),
      m_next(next)
{
}

STDMETHODIMP CVariantEnumerator::Next(ULONG count, VARIANT* values, ULONG* fetched)
{
    return ComMethod("CVariantEnumerator::Next", [&] {
        if (fetched)
        {
            *fetched = 0;
        }
        if (!values || (!fetched && count != 1))
        {
            return E_POINTER;
        }
        // The end is looked up anew each time: a copy may call an object that changes the
        // collection.
        const std::vector<VARIANT>& source = m_collection->Values();
        ULONG copied = 0;
        for (; copied < count && m_next + copied < source.size(); ++copied)
        {
            const HRESULT hr = CopyVariant(&values[copied], source[m_next + copied]);
            if (FAILED(hr))
            {
                std::for_each(values, values + copied, [](VARIANT& v) { ::VariantClear(&v); });
                return hr;
            }
        }
        std::for_each(values + copied, values + count, [](VARIANT& v) { ::VariantInit(&v); });
        m_next += copied;
        if (fetched)
        {
            *fetched = copied;
        }
        return copied == count ? S_OK : S_FALSE;
    });
}

STDMETHODIMP CVariantEnumerator::Skip(ULONG count)
{
    return ComMethod("CVariantEnumerator::Skip", [&] {
        const std::size_t size = m_collection->Values().size();
        const std::size_t ahead = size - std::min(m_next, size);
        m_next += std::min<std::size_t>(ahead, count);
        return ahead >= count ? S_OK : S_FALSE;
    });
}

STDMETHODIMP CVariantEnumerator::Reset()
{
    return ComMethod("CVariantEnumerator::Reset", [&] {
        m_next = 0;
        return S_OK;
    });
}

STDMETHODIMP CVariantEnumerator::Clone(IEnumVARIANT** clone)
{
    return ComMethod("CVariantEnumerator::Clone", [&] {
        return CreateComObject<CVariantEnumerator>(
            nullptr, IID_IEnumVARIANT, reinterpret_cast<void**>(clone), m_collection.Get(), m_next);
    });
}
} // namespace velt
