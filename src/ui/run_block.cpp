#include "ui/run_block.h"

namespace velt
{
namespace
{
constexpr std::size_t kStep = 100;
constexpr std::size_t kMost = 2000;

static_assert(sizeof(PixelRect) == sizeof(RECT));

constexpr SIZE_T BytesFor(std::size_t runs) noexcept
{
    return sizeof(RGNDATAHEADER) + runs * sizeof(RECT);
}

/// Movable memory stays where it is until the end of the scope.
class LockedRuns
{
public:
    explicit LockedRuns(HGLOBAL memory) noexcept
        : m_memory(memory),
          m_data(static_cast<RGNDATA*>(::GlobalLock(memory)))
    {
    }

    LockedRuns(const LockedRuns&) = delete;
    LockedRuns& operator=(const LockedRuns&) = delete;

    ~LockedRuns()
    {
        if (m_data)
        {
            ::GlobalUnlock(m_memory);
        }
    }

    /// Null when the memory could not be locked.
    RGNDATA* Get() const noexcept
    {
        return m_data;
    }

private:
    HGLOBAL m_memory;
    RGNDATA* m_data;
};
} // namespace

RunBlock::RunBlock() noexcept : m_memory(::GlobalAlloc(GMEM_MOVEABLE, BytesFor(kStep)))
{
    m_capacity = m_memory ? kStep : 0;
}

RunBlock::operator bool() const noexcept
{
    return static_cast<bool>(m_memory);
}

bool RunBlock::TakeFrom(PixelRuns& runs) noexcept
{
    const LockedRuns data(m_memory.Get());
    if (!data.Get())
    {
        return false;
    }
    const std::size_t room = m_capacity - m_count;
    PixelRect* const rects = reinterpret_cast<PixelRect*>(data.Get()->Buffer) + m_count;
    const std::size_t taken = runs.Next({rects, room}, m_bounds);
    m_count += taken;
    return taken == room;
}

bool RunBlock::IsComplete() const noexcept
{
    return m_count == kMost;
}

bool RunBlock::Grow() noexcept
{
    const HGLOBAL larger =
        ::GlobalReAlloc(m_memory.Get(), BytesFor(m_capacity + kStep), GMEM_MOVEABLE);
    if (!larger)
    {
        return false; // the old block is still there
    }
    (void)m_memory.Release();
    m_memory.Reset(larger);
    m_capacity += kStep;
    return true;
}

std::size_t RunBlock::Count() const noexcept
{
    return m_count;
}

void RunBlock::Clear() noexcept
{
    m_count = 0;
    m_bounds = PixelRuns::kNoBounds;
}

UniqueRegion RunBlock::MakeRegion() const noexcept
{
    const LockedRuns data(m_memory.Get());
    if (!data.Get())
    {
        return {};
    }
    RGNDATAHEADER& header = data.Get()->rdh;
    header.dwSize = sizeof(header);
    header.iType = RDH_RECTANGLES;
    header.nCount = static_cast<DWORD>(m_count);
    header.nRgnSize = 0;
    header.rcBound = {m_bounds.left, m_bounds.top, m_bounds.right, m_bounds.bottom};
    return UniqueRegion(
        ::ExtCreateRegion(nullptr, static_cast<DWORD>(BytesFor(m_count)), data.Get()));
}
} // namespace velt
