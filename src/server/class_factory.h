#pragma once

#include <windows.h>

#include <unknwn.h>

namespace velt
{
/// Makes one object, as part of an aggregate when `outer` is not null, and asks it for `iid`.
using ObjectCreator = HRESULT (*)(IUnknown* outer, REFIID iid, void** object);

/// The class factory of one class. The module owns it and keeps it until the library is unloaded,
/// so references do not end its life. They hold no module lock either: whoever keeps nothing but a
/// factory locks the server. Any thread may call.
class CClassFactory final : public IClassFactory
{
public:
    explicit CClassFactory(ObjectCreator creator) noexcept;

    CClassFactory(const CClassFactory&) = delete;
    CClassFactory& operator=(const CClassFactory&) = delete;

    ~CClassFactory() = default;

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    STDMETHODIMP CreateInstance(IUnknown* outer, REFIID iid, void** object) override;
    STDMETHODIMP LockServer(BOOL lock) override;

private:
    ObjectCreator m_creator;
    LONG m_references = 0;
};
} // namespace velt
