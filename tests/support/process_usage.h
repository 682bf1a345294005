#pragma once

#include <windows.h>

#include <cstddef>

namespace velt::test
{
/// What this process has taken from the system.
struct ProcessUsage
{
    std::size_t privateBytes; // committed memory that is its own
    std::size_t heapBytes;    // in blocks of all its heaps that are in use
    std::size_t handles;
    std::size_t heapPages; // the part of privateBytes that its heaps have, in use or not
};

/// Throws std::runtime_error when the system does not tell.
ProcessUsage CurrentUsage();

/// Of another process, whose heaps cannot be walked: 0 stands for them.
ProcessUsage UsageOf(HANDLE process);

/// By how much `heapBytes` may grow between two measurements while nothing more is in use: nothing
/// where the walk of a heap shows each free block. Some systems hand small blocks out of groups,
/// which the walk shows as one block in use each, also while they are empty.
std::size_t UncertainHeapBytes();

/// Whether every heap of the process is sound.
bool AreHeapsValid();

/// Whether the process's heaps check the tails of blocks and freed blocks.
bool AreHeapsChecked();

/// Has the heaps of processes of this program's file name checked, from the next start on.
void CheckHeapsOfChildren();
} // namespace velt::test
