#pragma once

#include "foundation/system_exception.h"
#include "foundation/velt_auto_critical_section.h"
#include "foundation/velt_critical_section.h"

#include <windows.h>

#include <cstddef>
#include <forward_list>
#include <stdexcept>
#include <vector>

/// An array of slots that every thread has of its own, each slot starting at one value.
///
/// The blocks of all threads belong to this object and go with it: a reference to a slot is valid
/// until then, on the thread that asked for it. Throws SystemException::Win32 when the system has
/// no thread-local index or cannot store the block.
template <class Slot>
class tls_data : public VeltCriticalSection
{
public:
    tls_data(std::size_t slotCount, Slot initialValue)
        : m_index(::TlsAlloc()),
          m_slotCount(slotCount),
          m_initialValue(initialValue)
    {
        if (m_index == TLS_OUT_OF_INDEXES)
        {
            velt::ThrowLastError();
        }
    }

    tls_data(const tls_data&) = delete;
    tls_data& operator=(const tls_data&) = delete;

    ~tls_data() override
    {
        ::TlsFree(m_index);
    }

    /// The calling thread's slot. Throws std::out_of_range for an index past the last slot.
    Slot& operator[](std::size_t slot)
    {
        if (slot >= m_slotCount)
        {
            throw std::out_of_range("tls_data::operator[index] - invalid index");
        }
        return Slots()[slot];
    }

    /// All slots of the calling thread.
    Slot* Slots()
    {
        // Outside the lock, which guards the list only: a thread's block is read by nobody else.
        auto* const block = static_cast<Slot*>(::TlsGetValue(m_index));
        return block ? block : AddBlock();
    }

private:
    [[gnu::cold]] Slot* AddBlock()
    {
        std::forward_list<std::vector<Slot>> added;
        Slot* const block = added.emplace_front(m_slotCount, m_initialValue).data();
        const VeltAutoCriticalSection lock(this);
        if (!::TlsSetValue(m_index, block))
        {
            velt::ThrowLastError();
        }
        m_blocks.splice_after(m_blocks.before_begin(), added);
        return block;
    }

    // constant after construction
    DWORD m_index;
    std::size_t m_slotCount;
    Slot m_initialValue;

    // guarded by this object's own lock
    std::forward_list<std::vector<Slot>> m_blocks;
};
