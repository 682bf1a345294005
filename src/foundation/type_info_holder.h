#pragma once

#include <windows.h>

#include <oaidl.h>

#include <atomic>

namespace velt
{
/// Keeps the description of one interface from the library's type library: loaded at the first
/// question, given back when the module ends. A constant-initialised static; any thread may ask.
class TypeInfoHolder
{
public:
    /// `iid` must outlive the holder.
    explicit constexpr TypeInfoHolder(const IID& iid) noexcept : m_iid(iid) {}

    TypeInfoHolder(const TypeInfoHolder&) = delete;
    TypeInfoHolder& operator=(const TypeInfoHolder&) = delete;

    ~TypeInfoHolder() = default;

    /// The description without a reference of the caller's own: valid until the module ends. Null
    /// after a failure, which leaves nothing behind: the next question tries again.
    HRESULT Get(ITypeInfo** info) noexcept;

private:
    HRESULT Load() noexcept;
    static void Free(void* holder) noexcept;

    const IID& m_iid;
    std::atomic<ITypeInfo*> m_info = nullptr;
};
} // namespace velt
