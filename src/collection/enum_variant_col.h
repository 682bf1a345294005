#pragma once

#include "collection/automation_view.h"
#include "collection/view_marshal.h"
#include "foundation/com_object.h"
#include "foundation/dispatch_impl.h"

#include <provider_lib.h>

#include <vector>

/// An ordered list of VARIANTs that scripts and hosts fill, read and enumerate; positions count
/// from 1. It lives in one apartment, so calls are not locked.
///
/// By design, calls through the vtable handle values shallowly: Add takes over whatever the given
/// VARIANT owns, Item lends what it hands out, Remove and Clear free it, and the destructor frees
/// nothing. Late-bound calls, and all that come through a proxy, go to the automation view instead.
class CEnumVariantCol final
    : public velt::ComObject<CEnumVariantCol, velt::DispatchImpl<IEnumVariantCol>,
                             velt::ViewMarshal>
{
public:
    explicit CEnumVariantCol(IUnknown* outer) noexcept;

    STDMETHODIMP get__NewEnum(IUnknown** ppUnk) override;
    STDMETHODIMP get_Item(VARIANT Index, VARIANT* pVal) override;
    STDMETHODIMP get_Count(LONG* pVal) override;
    STDMETHODIMP Add(VARIANT Value) override;
    STDMETHODIMP Remove(VARIANT Index) override;
    STDMETHODIMP Clear() override;

    /// Writes the type word and as many bits of the value at a position as a pointer has; the
    /// other bytes of `value` stay as they are. E_INVALIDARG below position 1 and E_FAIL past the
    /// end.
    HRESULT GetAt(LONG position, VARIANT* value) const noexcept;

    /// Frees the value at a position and moves the later ones down. By design, unlike GetAt, it
    /// answers E_INVALIDARG for every position that does not exist.
    HRESULT RemoveAt(LONG position) noexcept;

    /// Appends the bytes as they are, also when they lie in the collection itself.
    /// Throws std::bad_alloc.
    void Append(const VARIANT& value);

    /// The value at a position, without a copy; null as GetAt fails, with its code in `result`.
    const VARIANT* Find(LONG position, HRESULT& result) const noexcept;

    /// The values in order; valid until the next change.
    const std::vector<VARIANT>& Values() const noexcept
    {
        return m_values;
    }

private:
    IEnumVariantCol* AutomationTarget() noexcept override;
    WORD AutomationFlags(WORD flags) noexcept override;
    IUnknown* MarshalledObject() noexcept override;

    std::vector<VARIANT> m_values; // VARIANTs, not owners of what they hold: see above
    velt::AutomationView m_automationView;
};
