#pragma once

#include "foundation/com_module.h"
#include "foundation/module_lock.h"

#include <windows.h>

#include <unknwn.h>

#include <utility>

namespace velt
{
/// Which IIDs an implemented interface answers to; specialised for interfaces that derive from more
/// than IUnknown.
template <class Interface>
struct InterfaceIds
{
    static bool Contains(REFIID iid) noexcept
    {
        return ::IsEqualIID(iid, __uuidof(Interface));
    }
};

/// Reference counting, identity and aggregation of a COM object. The derived class is final, takes
/// the controlling unknown (null when the object is not aggregated) as its first constructor
/// argument, and is made by CreateComObject only.
///
/// The object has an inner unknown that counts its references; the IUnknown methods of all its
/// interfaces go to the controlling unknown, which is the outer object's when it is aggregated and
/// the inner one otherwise. A live object holds one module lock. Any thread may add and release
/// references.
template <class Derived, class... Interfaces>
class ComObject : public Interfaces...
{
public:
    ComObject(const ComObject&) = delete;
    ComObject& operator=(const ComObject&) = delete;

    STDMETHODIMP QueryInterface(REFIID iid, void** object) final
    {
        return m_controlling->QueryInterface(iid, object);
    }

    STDMETHODIMP_(ULONG) AddRef() final
    {
        return m_controlling->AddRef();
    }

    STDMETHODIMP_(ULONG) Release() final
    {
        return m_controlling->Release();
    }

protected:
    explicit ComObject(IUnknown* outer) noexcept
        : m_inner(*this),
          m_controlling(outer ? outer : &m_inner)
    {
    }

    ~ComObject() = default;

private:
    template <class Object, class... Arguments>
    friend HRESULT CreateComObject(IUnknown* outer, REFIID iid, void** object,
                                   Arguments&&... arguments);

    /// The unknown that does not delegate. Made with one reference, the creator's.
    class Inner final : public IUnknown
    {
    public:
        explicit Inner(ComObject& owner) noexcept : m_owner(owner) {}

        STDMETHODIMP QueryInterface(REFIID iid, void** object) override
        {
            if (!object)
            {
                return E_POINTER;
            }
            IUnknown* const found =
                ::IsEqualIID(iid, IID_IUnknown) ? this : m_owner.FindInterface(iid);
            *object = found;
            if (!found)
            {
                return E_NOINTERFACE;
            }
            found->AddRef();
            return S_OK;
        }

        STDMETHODIMP_(ULONG) AddRef() override
        {
            return static_cast<ULONG>(::InterlockedIncrement(&m_references));
        }

        STDMETHODIMP_(ULONG) Release() override
        {
            const LONG left = ::InterlockedDecrement(&m_references);
            if (left == 0)
            {
                m_references = 1; // references that come and go during destruction do no harm
                Destroy(static_cast<Derived*>(&m_owner));
            }
            return static_cast<ULONG>(left);
        }

    private:
        static void Destroy(Derived* object) noexcept
        {
            delete object;
            ComModule::Current().Unlock(); // last, because the library may go from then on
        }

        ComObject& m_owner;
        LONG m_references = 1;
    };

    /// The interface for an IID, as the unknown that its methods begin with; null when there is
    /// none.
    IUnknown* FindInterface(REFIID iid) noexcept
    {
        IUnknown* found = nullptr;
        ((InterfaceIds<Interfaces>::Contains(iid) && (found = static_cast<Interfaces*>(this))) ||
         ...);
        return found;
    }

    Inner m_inner;
    IUnknown* m_controlling; // not owned: the outer object owns this one
};

/// Makes an object and asks it for its first interface. `outer` is the controlling unknown of an
/// aggregate, or null; an aggregated object can first be asked for IUnknown only
/// (CLASS_E_NOAGGREGATION). Throws what the object's constructor throws.
template <class Object, class... Arguments>
HRESULT CreateComObject(IUnknown* outer, REFIID iid, void** object, Arguments&&... arguments)
{
    if (!object)
    {
        return E_POINTER;
    }
    *object = nullptr;
    if (outer && !::IsEqualIID(iid, IID_IUnknown))
    {
        return CLASS_E_NOAGGREGATION;
    }
    ModuleLock lock;
    auto* const made = new Object(outer, std::forward<Arguments>(arguments)...);
    lock.Keep(); // the object gives it back
    const HRESULT hr = made->m_inner.QueryInterface(iid, object);
    made->m_inner.Release();
    return hr;
}

/// The same for an object that is not aggregated, asked for the interface of the pointer's type.
template <class Object, class Interface, class... Arguments>
HRESULT CreateComObject(Interface** object, Arguments&&... arguments)
{
    return CreateComObject<Object>(nullptr, __uuidof(Interface), reinterpret_cast<void**>(object),
                                   std::forward<Arguments>(arguments)...);
}
} // namespace velt
