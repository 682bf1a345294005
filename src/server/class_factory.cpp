#include "server/class_factory.h"

#include "foundation/com_method.h"
#include "foundation/com_module.h"

namespace velt
{
CClassFactory::CClassFactory(ObjectCreator creator) noexcept : m_creator(creator) {}

STDMETHODIMP CClassFactory::QueryInterface(REFIID iid, void** object)
{
    if (!object)
    {
        return E_POINTER;
    }
    const bool known = ::IsEqualIID(iid, IID_IUnknown) || ::IsEqualIID(iid, IID_IClassFactory);
    *object = known ? static_cast<IClassFactory*>(this) : nullptr;
    if (!known)
    {
        return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
}

STDMETHODIMP_(ULONG) CClassFactory::AddRef()
{
    return static_cast<ULONG>(::InterlockedIncrement(&m_references));
}

STDMETHODIMP_(ULONG) CClassFactory::Release()
{
    return static_cast<ULONG>(::InterlockedDecrement(&m_references));
}

STDMETHODIMP CClassFactory::CreateInstance(IUnknown* outer, REFIID iid, void** object)
{
    return ComMethod("CClassFactory::CreateInstance", [&] {
        if (!object)
        {
            return E_POINTER;
        }
        *object = nullptr;
        return m_creator(outer, iid, object);
    });
}

STDMETHODIMP CClassFactory::LockServer(BOOL lock)
{
    return ComMethod("CClassFactory::LockServer", [&] {
        if (lock)
        {
            ComModule::Current().Lock();
        }
        else
        {
            ComModule::Current().Unlock();
        }
        return S_OK;
    });
}
} // namespace velt
