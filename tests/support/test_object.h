#pragma once

#include "foundation/com_object.h"

#include <windows.h>

#include <objidl.h>
#include <ocidl.h>

#include <functional>
#include <utility>

namespace velt
{
/// IPersistStreamInit is an IPersist too.
template <>
struct InterfaceIds<IPersistStreamInit>
{
    static bool Contains(REFIID iid) noexcept
    {
        return ::IsEqualIID(iid, IID_IPersistStreamInit) || ::IsEqualIID(iid, IID_IPersist);
    }
};
} // namespace velt

namespace velt::test
{
/// What a test gives to an object at its making: both may be empty.
struct TestObjectHooks
{
    std::function<void(IUnknown*)> made;      // with the controlling unknown; may throw
    std::function<void(IUnknown*)> destroyed; // with the object's own interface
};

/// A small object on our base, with two interfaces, one of which derives from another.
class TestObject final : public ComObject<TestObject, IPersistStreamInit, IOleWindow>
{
public:
    explicit TestObject(IUnknown* outer, TestObjectHooks hooks = {})
        : ComObject(outer),
          m_hooks(std::move(hooks))
    {
        if (m_hooks.made)
        {
            m_hooks.made(static_cast<IOleWindow*>(this));
        }
    }

    ~TestObject()
    {
        if (m_hooks.destroyed)
        {
            m_hooks.destroyed(static_cast<IOleWindow*>(this));
        }
    }

    STDMETHODIMP GetClassID(CLSID* clsid) override
    {
        *clsid = CLSID_NULL;
        return S_OK;
    }

    STDMETHODIMP IsDirty() override
    {
        return S_FALSE;
    }

    STDMETHODIMP Load(IStream*) override
    {
        return E_NOTIMPL;
    }

    STDMETHODIMP Save(IStream*, BOOL) override
    {
        return E_NOTIMPL;
    }

    STDMETHODIMP GetSizeMax(ULARGE_INTEGER*) override
    {
        return E_NOTIMPL;
    }

    STDMETHODIMP InitNew() override
    {
        return S_OK;
    }

    STDMETHODIMP GetWindow(HWND* window) override
    {
        *window = nullptr;
        return S_OK;
    }

    STDMETHODIMP ContextSensitiveHelp(BOOL) override
    {
        return E_NOTIMPL;
    }

private:
    TestObjectHooks m_hooks;
};
} // namespace velt::test
