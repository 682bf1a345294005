#pragma once

#include <provider_lib.h>

class CEnumVariantCol;

namespace velt
{
/// The collection as late-bound callers and callers through a proxy see it: Add stores a copy of
/// its own and Item hands out a whole copy, because the caller, or the marshaler in its place,
/// frees what it passes and what it receives. Everything else goes to the collection, whose part
/// this object is.
///
/// It is an object with an identity of its own, because the marshaler reaches an interface through
/// the object that it was given: it answers for the collection's interfaces itself and keeps the
/// collection alive while it has references. Of an aggregate's other interfaces it hands out those
/// of the outer object, so that they can be reached through proxies, too. Any thread may add and
/// release references.
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
    LONG m_references = 0; // together they are one on the collection
};
} // namespace velt
