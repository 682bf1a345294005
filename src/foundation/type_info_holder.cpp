#include "foundation/type_info_holder.h"

#include "foundation/com_module.h"

#include <wrl/client.h>

namespace velt
{
HRESULT TypeInfoHolder::Get(ITypeInfo** info) noexcept
{
    *info = m_info.load(std::memory_order_acquire);
    if (*info)
    {
        return S_OK;
    }
    const HRESULT hr = Load();
    *info = SUCCEEDED(hr) ? m_info.load(std::memory_order_acquire) : nullptr;
    return hr;
}

HRESULT TypeInfoHolder::Load() noexcept
{
    Microsoft::WRL::ComPtr<ITypeLib> library;
    Microsoft::WRL::ComPtr<ITypeInfo> info;
    HRESULT hr = ComModule::Current().GetTypeLibrary(library.GetAddressOf());
    if (SUCCEEDED(hr))
    {
        hr = library->GetTypeInfoOfGuid(m_iid, info.GetAddressOf());
    }
    // Before anything is kept, so that nothing is that could not be given back.
    if (SUCCEEDED(hr))
    {
        hr = ComModule::Current().AddTermFunc(&TypeInfoHolder::Free, this);
    }
    if (FAILED(hr))
    {
        return hr;
    }
    // Without a lock, because the type library is foreign code: of threads that get here together
    // the first one's description is kept, and given back by the first of their functions.
    ITypeInfo* expected = nullptr;
    if (m_info.compare_exchange_strong(expected, info.Get(), std::memory_order_acq_rel))
    {
        info.Detach();
    }
    return S_OK;
}

void TypeInfoHolder::Free(void* holder) noexcept
{
    if (ITypeInfo* const info = static_cast<TypeInfoHolder*>(holder)->m_info.exchange(nullptr))
    {
        info->Release();
    }
}
} // namespace velt
