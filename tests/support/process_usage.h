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
};

/// Throws std::runtime_error when the system does not tell.
ProcessUsage CurrentUsage();

/// Whether every heap of the process is sound.
bool AreHeapsValid();

/// Whether the process's heaps check the tails of blocks and freed blocks.
bool AreHeapsChecked();

/// Has the heaps of processes of this program's file name checked, from the next start on.
void CheckHeapsOfChildren();
} // namespace velt::test
