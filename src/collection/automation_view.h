#pragma once

#include <provider_lib.h>

class CEnumVariantCol;

namespace velt
{
/// The collection as late-bound callers see it: Add stores a copy of its own and Item hands out a
/// whole copy, because the caller frees what it passes and what it receives. Everything else goes
/// to the collection, whose part this object is.
class AutomationView final : public IEnumVariantCol
{
public:
    explicit AutomationView(CEnumVariantCol& collection) noexcept;

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    STDMETHODIMP GetTypeInfoCount(UINT* count) override;
    STDMETHODIMP GetTypeInfo(UINT index, LCID locale, ITypeInfo** info) override;
    STDMETHODIMP GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, LCID locale,
                               DISPID* ids) override;
    STDMETHODIMP Invoke(DISPID id, REFIID iid, LCID locale, WORD flags, DISPPARAMS* parameters,
                        VARIANT* result, EXCEPINFO* exception, UINT* argumentError) override;

    STDMETHODIMP get__NewEnum(IUnknown** ppUnk) override;
    STDMETHODIMP get_Item(VARIANT Index, VARIANT* pVal) override;
    STDMETHODIMP get_Count(LONG* pVal) override;
    STDMETHODIMP Add(VARIANT Value) override;
    STDMETHODIMP Remove(VARIANT Index) override;
    STDMETHODIMP Clear() override;

private:
    CEnumVariantCol& m_collection;
};
} // namespace velt
