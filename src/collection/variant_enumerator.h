#pragma once

#include "foundation/com_object.h"

#include <windows.h>

#include <oaidl.h>
#include <wrl/client.h>

#include <cstddef>

class CEnumVariantCol;

namespace velt
{
/// Walks a collection by position and hands out copies. It keeps the collection alive, sees what is
/// added while it walks, and stays valid whatever happens to the collection; past the last value it
/// is at the end. It lives in the collection's apartment.
class CVariantEnumerator final : public ComObject<CVariantEnumerator, IEnumVARIANT>
{
public:
    /// `outer` is always null: enumerators are not aggregated. The first value is that at index
    /// `next`, counted from 0.
    CVariantEnumerator(IUnknown* outer, CEnumVariantCol* collection, std::size_t next) noexcept;

    /// Hands out up to `count` values into an array of that size; S_FALSE when there were fewer,
    /// and the rest of the array is VT_EMPTY. `fetched` may be null when one is asked for. When a
    /// value cannot be copied, none is handed out and the walk stays where it was.
    STDMETHODIMP Next(ULONG count, VARIANT* values, ULONG* fetched) override;

    STDMETHODIMP Skip(ULONG count) override;
    STDMETHODIMP Reset() override;
    STDMETHODIMP Clone(IEnumVARIANT** clone) override;

private:
    Microsoft::WRL::ComPtr<CEnumVariantCol> m_collection;
    std::size_t m_next;
};
} // namespace velt
