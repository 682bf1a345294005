#pragma once

#include <windows.h>

#include <objidl.h>

#include <map>

namespace velt::test
{
/// Sees every block that is taken from COM's allocator and given back to it, strings and arrays in
/// VARIANTs among them, from the first question to the end of the process.
class ComAllocations final : public IMallocSpy
{
public:
    /// Throws std::runtime_error when the system does not let it look.
    static ComAllocations& Watch();

    ComAllocations(const ComAllocations&) = delete;
    ComAllocations& operator=(const ComAllocations&) = delete;

    /// How many blocks are allocated that it has seen.
    std::size_t LiveCount() const;

    /// Whether a pointer lies in such a block.
    bool IsLive(const void* pointer) const;

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;
    STDMETHODIMP_(SIZE_T) PreAlloc(SIZE_T size) override;
    STDMETHODIMP_(void*) PostAlloc(void* block) override;
    STDMETHODIMP_(void*) PreFree(void* block, BOOL spied) override;
    STDMETHODIMP_(void) PostFree(BOOL spied) override;
    STDMETHODIMP_(SIZE_T)
    PreRealloc(void* block, SIZE_T size, void** newBlock, BOOL spied) override;
    STDMETHODIMP_(void*) PostRealloc(void* block, BOOL spied) override;
    STDMETHODIMP_(void*) PreGetSize(void* block, BOOL spied) override;
    STDMETHODIMP_(SIZE_T) PostGetSize(SIZE_T size, BOOL spied) override;
    STDMETHODIMP_(void*) PreDidAlloc(void* block, BOOL spied) override;
    STDMETHODIMP_(int) PostDidAlloc(void* block, BOOL spied, int actual) override;
    STDMETHODIMP_(void) PreHeapMinimize() override;
    STDMETHODIMP_(void) PostHeapMinimize() override;

private:
    ComAllocations();
    ~ComAllocations() = default;

    // The allocator holds its own lock during its calls; the test asks on its own thread.
    SIZE_T m_size = 0;
    std::map<const char*, SIZE_T> m_live;
};
} // namespace velt::test
