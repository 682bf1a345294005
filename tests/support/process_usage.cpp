#include "tests/support/process_usage.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>
#include <vector>

namespace velt::test
{
namespace
{
constexpr ULONG kHeapChecks = 0x70; // tails, freed blocks and parameters

template <class Function>
Function FromNtdll(const char* name)
{
    const FARPROC found = ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), name);
    if (!found)
    {
        throw std::runtime_error(std::string("not in ntdll: ") + name);
    }
    return reinterpret_cast<Function>(reinterpret_cast<void*>(found));
}

/// One row of the system's table of all handles.
struct HandleRow
{
    USHORT process;
    USHORT creator;
    UCHAR type;
    UCHAR attributes;
    USHORT handle;
    void* object;
    ULONG access;
};

struct HandleTable
{
    ULONG count;
    HandleRow rows[1];
};

std::size_t CountHandles(DWORD processId)
{
    constexpr int kSystemHandleInformation = 16;
    constexpr LONG kLengthMismatch = static_cast<LONG>(0xC0000004);
    const auto query =
        FromNtdll<LONG(WINAPI*)(int, void*, ULONG, ULONG*)>("NtQuerySystemInformation");
    std::vector<std::byte> buffer(256 * 1024);
    LONG status = 0;
    while ((status = query(kSystemHandleInformation, buffer.data(),
                           static_cast<ULONG>(buffer.size()), nullptr)) == kLengthMismatch)
    {
        buffer.resize(buffer.size() * 2);
    }
    if (status < 0)
    {
        throw std::runtime_error("the system does not list handles");
    }
    const auto* const table = reinterpret_cast<const HandleTable*>(buffer.data());
    return static_cast<std::size_t>(
        std::count_if(table->rows, table->rows + table->count,
                      [processId](const HandleRow& row) { return row.process == processId; }));
}

/// Adds what a process has of its own, and what of it is in allocations of its heaps. Counted page
/// by page, because not every system keeps the sum.
void CountPages(HANDLE process, const std::vector<const void*>& heapAllocations,
                ProcessUsage& usage)
{
    MEMORY_BASIC_INFORMATION region{};
    const char* at = nullptr;
    while (::VirtualQueryEx(process, at, &region, sizeof(region)) != 0)
    {
        if (region.State == MEM_COMMIT && region.Type == MEM_PRIVATE)
        {
            usage.privateBytes += region.RegionSize;
            const bool isHeaps =
                std::binary_search(heapAllocations.begin(), heapAllocations.end(),
                                   static_cast<const void*>(region.AllocationBase));
            usage.heapPages += isHeaps ? region.RegionSize : 0;
        }
        at = static_cast<const char*>(region.BaseAddress) + region.RegionSize;
        if (!at)
        {
            break;
        }
    }
}

std::vector<HANDLE> Heaps()
{
    std::vector<HANDLE> heaps(256);
    heaps.resize(::GetProcessHeaps(static_cast<DWORD>(heaps.size()), heaps.data()));
    return heaps;
}

/// What a walk through heaps has seen. The room is there before: who walks a heap must not change
/// it.
struct HeapBlocks
{
    HeapBlocks()
    {
        constexpr std::size_t kMostAllocations = 16'384;
        allocations.reserve(kMostAllocations);
    }

    std::size_t bytes = 0; // of blocks in use
    std::vector<const void*> allocations;
};

/// Adds the blocks of a heap.
void CountBlocks(HANDLE heap, HeapBlocks& blocks)
{
    PROCESS_HEAP_ENTRY entry{};
    MEMORY_BASIC_INFORMATION region{};
    bool isKept = true;
    ::HeapLock(heap);
    while (::HeapWalk(heap, &entry))
    {
        if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0)
        {
            blocks.bytes += entry.cbData;
        }
        const auto* const start = static_cast<const char*>(region.BaseAddress);
        const auto* const data = static_cast<const char*>(entry.lpData);
        if ((data < start || data >= start + region.RegionSize) &&
            ::VirtualQuery(data, &region, sizeof(region)) != 0)
        {
            isKept = isKept && blocks.allocations.size() < blocks.allocations.capacity();
            if (isKept)
            {
                blocks.allocations.push_back(region.AllocationBase);
            }
        }
    }
    ::HeapUnlock(heap);
    if (!isKept)
    {
        throw std::runtime_error("the heaps have more allocations than are counted");
    }
}
} // namespace

ProcessUsage CurrentUsage()
{
    HeapBlocks blocks;
    for (const HANDLE heap : Heaps())
    {
        CountBlocks(heap, blocks);
    }
    std::sort(blocks.allocations.begin(), blocks.allocations.end());
    ProcessUsage usage{0, blocks.bytes, CountHandles(::GetCurrentProcessId()), 0};
    CountPages(::GetCurrentProcess(), blocks.allocations, usage);
    return usage;
}

ProcessUsage UsageOf(HANDLE process)
{
    ProcessUsage usage{0, 0, CountHandles(::GetProcessId(process)), 0};
    CountPages(process, {}, usage);
    return usage;
}

std::size_t UncertainHeapBytes()
{
    constexpr std::size_t kGroupBytes = 32 * 1024;
    constexpr SIZE_T kBlockBytes = 40;
    std::array<void*, 100> blocks{};
    const HANDLE heap = ::HeapCreate(0, 0, 0);
    const auto usedBytes = [&] {
        HeapBlocks used;
        CountBlocks(heap, used);
        return used.bytes;
    };
    const std::size_t before = usedBytes();
    for (void*& block : blocks)
    {
        block = ::HeapAlloc(heap, 0, kBlockBytes);
    }
    for (void* const block : blocks)
    {
        ::HeapFree(heap, 0, block);
    }
    const bool isGrouped = usedBytes() > before;
    ::HeapDestroy(heap);
    return isGrouped ? kGroupBytes : 0;
}

bool AreHeapsValid()
{
    const std::vector<HANDLE> heaps = Heaps();
    return std::all_of(heaps.begin(), heaps.end(),
                       [](HANDLE heap) { return ::HeapValidate(heap, 0, nullptr) != FALSE; });
}

bool AreHeapsChecked()
{
    return (FromNtdll<ULONG(WINAPI*)()>("RtlGetNtGlobalFlags")() & kHeapChecks) == kHeapChecks;
}

void CheckHeapsOfChildren()
{
    std::array<wchar_t, MAX_PATH> path{};
    ::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    const std::wstring program(path.data());
    const std::wstring key = L"Software\\Microsoft\\Windows NT\\CurrentVersion\\"
                             L"Image File Execution Options\\" +
                             program.substr(program.rfind(L'\\') + 1);
    const DWORD flags = kHeapChecks;
    if (::RegSetKeyValueW(HKEY_LOCAL_MACHINE, key.c_str(), L"GlobalFlag", REG_DWORD, &flags,
                          sizeof(flags)) != ERROR_SUCCESS)
    {
        throw std::runtime_error("heap checks cannot be switched on");
    }
}
} // namespace velt::test
