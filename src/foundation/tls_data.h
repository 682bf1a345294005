#pragma once

#include "foundation/system_exception.h"
#include "foundation/velt_auto_critical_section.h"
#include "foundation/velt_critical_section.h"

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <forward_list>
#include <stdexcept>
#include <vector>

/// An array of slots that every thread has of its own, each slot starting at one value.
///
/// The blocks of all threads belong to this object and go with it: a reference to a slot is valid
/// until then, or until the thread lets its block go, on the thread that asked for it. Throws
/// SystemException::Win32 when the system has no thread-local index or cannot store the block.
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

    /// Leaves the calling thread's block, if it has one, to the next thread that needs one: there
    /// are never more than threads at the same time that way. A thread that goes on gets another.
    void LetGo() noexcept
    {
        auto* const block = static_cast<Slot*>(::TlsGetValue(m_index));
        if (!block)
        {
            return;
        }
        ::TlsSetValue(m_index, nullptr); // cannot fail where there is a value
        const VeltAutoCriticalSection lock(this);
        const auto own = std::find_if(m_blocks.begin(), m_blocks.end(), [block](const Block& each) {
            return each.slots.data() == block;
        });
        own->isFree = true;
    }

private:
    struct Block
    {
        std::vector<Slot> slots;
        bool isFree;
    };

    [[gnu::cold]] Slot* AddBlock()
    {
        Slot* const left = FreeBlock();
        if (left)
        {
            return left;
        }
        std::forward_list<Block> added;
        added.push_front({std::vector<Slot>(m_slotCount, m_initialValue), false});
        Slot* const block = added.front().slots.data();
        const VeltAutoCriticalSection lock(this);
        if (!::TlsSetValue(m_index, block))
        {
            velt::ThrowLastError();
        }
        m_blocks.splice_after(m_blocks.before_begin(), added);
        return block;
    }

    /// A block that a thread has let go, for the calling one, from the start; null when there is
    /// none.
    Slot* FreeBlock()
    {
        const VeltAutoCriticalSection lock(this);
        const auto found = std::find_if(m_blocks.begin(), m_blocks.end(),
                                        [](const Block& block) { return block.isFree; });
        if (found == m_blocks.end())
        {
            return nullptr;
        }
        if (!::TlsSetValue(m_index, found->slots.data()))
        {
            velt::ThrowLastError();
        }
        std::fill(found->slots.begin(), found->slots.end(), m_initialValue);
        found->isFree = false;
        return found->slots.data();
    }

    // constant after construction
    DWORD m_index;
    std::size_t m_slotCount;
    Slot m_initialValue;

    // guarded by this object's own lock
    std::forward_list<Block> m_blocks;
};
