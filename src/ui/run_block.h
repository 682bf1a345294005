#pragma once

#include "foundation/unique_handle.h"
#include "ui/gdi_handles.h"
#include "ui/pixel_runs.h"

#include <windows.h>

#include <cstddef>

namespace velt
{
/// A block of movable memory, owned by a handle.
struct GlobalMemoryTraits
{
    using Type = HGLOBAL;

    static Type Invalid() noexcept
    {
        return nullptr;
    }

    static void Close(Type memory) noexcept
    {
        ::GlobalFree(memory);
    }
};
using UniqueGlobalMemory = UniqueHandle<GlobalMemoryTraits>;

/// Runs of pixels as the system takes them for a region: room for 100 at first and 100 more at a
/// time, up to 2000, because building a region of one huge block is slow and fails on some systems.
class RunBlock
{
public:
    RunBlock() noexcept;

    /// Whether there is memory at all.
    explicit operator bool() const noexcept;

    /// Fills the room that is left; false when the runs have come to their end before it was full.
    bool TakeFrom(PixelRuns& runs) noexcept;

    /// Whether no more room is to be made.
    bool IsComplete() const noexcept;

    /// Makes more room; false when there is no memory.
    bool Grow() noexcept;

    std::size_t Count() const noexcept;

    /// Forgets the runs and keeps the room.
    void Clear() noexcept;

    /// The region of the runs, an empty one for none; null when it cannot be made.
    UniqueRegion MakeRegion() const noexcept;

private:
    UniqueGlobalMemory m_memory;
    std::size_t m_capacity = 0;
    std::size_t m_count = 0;
    PixelRect m_bounds = PixelRuns::kNoBounds;
};
} // namespace velt
