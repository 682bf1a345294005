#include "tests/support/com_allocations.h"

#include <oleauto.h>

#include <stdexcept>

extern "C" void SetOaNoCache(); // strings go back to the allocator when they are freed

namespace velt::test
{
ComAllocations::ComAllocations()
{
    ::SetOaNoCache();
    if (FAILED(::CoRegisterMallocSpy(this)))
    {
        throw std::runtime_error("COM's allocator cannot be watched");
    }
}

ComAllocations& ComAllocations::Watch()
{
    // Never deleted: what the system allocates and keeps goes back through it.
    static ComAllocations& watch = *new ComAllocations;
    return watch;
}

std::size_t ComAllocations::LiveCount() const
{
    return m_live.size();
}

bool ComAllocations::IsLive(const void* pointer) const
{
    const auto* const at = static_cast<const char*>(pointer);
    auto next = m_live.upper_bound(at);
    if (next == m_live.begin())
    {
        return false;
    }
    --next;
    return at < next->first + next->second;
}

STDMETHODIMP ComAllocations::QueryInterface(REFIID iid, void** object)
{
    const bool known = iid == IID_IUnknown || iid == IID_IMallocSpy;
    *object = known ? this : nullptr;
    return known ? S_OK : E_NOINTERFACE;
}

STDMETHODIMP_(ULONG) ComAllocations::AddRef()
{
    return 1;
}

STDMETHODIMP_(ULONG) ComAllocations::Release()
{
    return 1;
}

STDMETHODIMP_(SIZE_T) ComAllocations::PreAlloc(SIZE_T size)
{
    m_size = size;
    return size;
}

STDMETHODIMP_(void*) ComAllocations::PostAlloc(void* block)
{
    if (block)
    {
        m_live[static_cast<const char*>(block)] = m_size;
    }
    return block;
}

STDMETHODIMP_(void*) ComAllocations::PreFree(void* block, BOOL)
{
    m_live.erase(static_cast<const char*>(block));
    return block;
}

STDMETHODIMP_(void) ComAllocations::PostFree(BOOL) {}

STDMETHODIMP_(SIZE_T)
ComAllocations::PreRealloc(void* block, SIZE_T size, void** newBlock, BOOL)
{
    m_live.erase(static_cast<const char*>(block));
    m_size = size;
    *newBlock = block;
    return size;
}

STDMETHODIMP_(void*) ComAllocations::PostRealloc(void* block, BOOL)
{
    return PostAlloc(block);
}

STDMETHODIMP_(void*) ComAllocations::PreGetSize(void* block, BOOL)
{
    return block;
}

STDMETHODIMP_(SIZE_T) ComAllocations::PostGetSize(SIZE_T size, BOOL)
{
    return size;
}

STDMETHODIMP_(void*) ComAllocations::PreDidAlloc(void* block, BOOL)
{
    return block;
}

STDMETHODIMP_(int) ComAllocations::PostDidAlloc(void*, BOOL, int actual)
{
    return actual;
}

STDMETHODIMP_(void) ComAllocations::PreHeapMinimize() {}

STDMETHODIMP_(void) ComAllocations::PostHeapMinimize() {}
} // namespace velt::test
