#pragma once

#include "foundation/last_error_scope.h"

#include <windows.h>

#include <utility>

namespace velt
{
/// Owns one system resource; moves and never copies.
///
/// Traits tell the kind of resource: `Type` (the handle), `Invalid()` (the value that stands for
/// none) and `Close(handle)`. Closing keeps the thread's last error, because a caller that is on
/// its way out of a failed call still asks for it.
template <class Traits>
class UniqueHandle
{
public:
    using Type = typename Traits::Type;

    UniqueHandle() noexcept = default;

    /// Takes over the handle.
    explicit UniqueHandle(Type handle) noexcept : m_handle(handle) {}

    UniqueHandle(const UniqueHandle&) = delete;
    UniqueHandle& operator=(const UniqueHandle&) = delete;

    UniqueHandle(UniqueHandle&& other) noexcept : m_handle(other.Release()) {}

    UniqueHandle& operator=(UniqueHandle&& other) noexcept
    {
        if (this != &other)
        {
            Reset(other.Release());
        }
        return *this;
    }

    ~UniqueHandle()
    {
        Reset();
    }

    Type Get() const noexcept
    {
        return m_handle;
    }

    explicit operator bool() const noexcept
    {
        return m_handle != Traits::Invalid();
    }

    /// Gives the handle up to the caller, who closes it from then on.
    [[nodiscard]] Type Release() noexcept
    {
        return std::exchange(m_handle, Traits::Invalid());
    }

    /// Closes what is owned and takes over another handle.
    void Reset(Type handle = Traits::Invalid()) noexcept
    {
        const Type old = std::exchange(m_handle, handle);
        if (old != Traits::Invalid() && old != handle)
        {
            const LastErrorScope keep;
            Traits::Close(old);
        }
    }

    /// The place for a call that returns a handle through a pointer; closes what is owned first.
    [[nodiscard]] Type* Put() noexcept
    {
        Reset();
        return &m_handle;
    }

private:
    Type m_handle = Traits::Invalid();
};

/// A kernel object whose failed creation answers null (events, mutexes, threads, timers).
struct KernelObjectTraits
{
    using Type = HANDLE;

    static Type Invalid() noexcept
    {
        return nullptr;
    }

    static void Close(Type handle) noexcept
    {
        ::CloseHandle(handle);
    }
};
using UniqueKernelObject = UniqueHandle<KernelObjectTraits>;

/// A block that the system allocated with LocalAlloc (message texts, for example).
template <class Element>
struct LocalMemoryTraits
{
    using Type = Element*;

    static Type Invalid() noexcept
    {
        return nullptr;
    }

    static void Close(Type memory) noexcept
    {
        ::LocalFree(memory);
    }
};
template <class Element>
using UniqueLocalMemory = UniqueHandle<LocalMemoryTraits<Element>>;
} // namespace velt
