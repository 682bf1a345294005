#pragma once

#include "foundation/com_method.h"
#include "foundation/com_object.h"
#include "service/cursor.h"

#include <windows.h>

#include <cstddef>

namespace velt
{
/// The qualified names of an enumerator's members in the trace.
struct CursorTraceNames
{
    const char* next;
    const char* skip;
    const char* reset;
    const char* clone;
};

/// A COM enumerator that walks over a list which does not change. The derived class tells
///     static constexpr CursorTraceNames kTraceNames   its members' names
///     bool Give(std::size_t index, Item& item)        whether the item could be handed out, with a
///                                                     reference; one that could not is passed over
///     HRESULT CloneAt(std::size_t next, Interface**)  another one of the same list
/// Any thread may call.
template <class Derived, class Interface, class Item>
class CursorEnumerator : public ComObject<Derived, Interface>
{
public:
    CursorEnumerator(const CursorEnumerator&) = delete;
    CursorEnumerator& operator=(const CursorEnumerator&) = delete;

    /// Hands out up to `count` items into an array of that size; S_FALSE when there were fewer.
    /// `fetched` may be null when one is asked for.
    STDMETHODIMP Next(ULONG count, Item* items, ULONG* fetched) override
    {
        return ComMethod(Derived::kTraceNames.next, [&] {
            if (fetched)
            {
                *fetched = 0;
            }
            if (!items || (!fetched && count != 1))
            {
                return E_POINTER;
            }
            ULONG copied = 0;
            std::size_t index = 0;
            while (copied < count && m_cursor.Take(index))
            {
                copied += Self().Give(index, items[copied]) ? 1u : 0u;
            }
            if (fetched)
            {
                *fetched = copied;
            }
            return copied == count ? S_OK : S_FALSE;
        });
    }

    STDMETHODIMP Skip(ULONG count) override
    {
        return ComMethod(Derived::kTraceNames.skip, [&] { return m_cursor.Skip(count); });
    }

    STDMETHODIMP Reset() override
    {
        return ComMethod(Derived::kTraceNames.reset, [&] {
            m_cursor.Reset();
            return S_OK;
        });
    }

    STDMETHODIMP Clone(Interface** clone) override
    {
        return ComMethod(Derived::kTraceNames.clone,
                         [&] { return Self().CloneAt(m_cursor.Next(), clone); });
    }

protected:
    /// `outer` is always null. The first item is that at index `next`, and `end` is the list's
    /// size.
    CursorEnumerator(IUnknown* outer, std::size_t next, std::size_t end) noexcept
        : ComObject<Derived, Interface>(outer),
          m_cursor(next, end)
    {
    }

    ~CursorEnumerator() = default;

private:
    Derived& Self() noexcept
    {
        return static_cast<Derived&>(*this);
    }

    Cursor m_cursor;
};
} // namespace velt
