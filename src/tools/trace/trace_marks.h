#pragma once

#include <cstdint>
#include <iterator>
#include <optional>
#include <set>

namespace velt
{
/// The records that a reader has marked, by their sequence numbers.
class TraceMarks
{
public:
    bool Has(std::uint64_t sequence) const noexcept
    {
        return m_marks.contains(sequence);
    }

    /// Marks a record, or takes its mark away. Throws std::bad_alloc.
    void Toggle(std::uint64_t sequence)
    {
        if (m_marks.erase(sequence) == 0)
        {
            m_marks.insert(sequence);
        }
    }

    /// The nearest mark behind a record; without one the first.
    std::optional<std::uint64_t> After(std::optional<std::uint64_t> sequence) const noexcept
    {
        const auto found = sequence ? m_marks.upper_bound(*sequence) : m_marks.begin();
        return found != m_marks.end() ? std::optional(*found) : std::nullopt;
    }

    /// The nearest mark before a record; without one the last.
    std::optional<std::uint64_t> Before(std::optional<std::uint64_t> sequence) const noexcept
    {
        const auto found = sequence ? m_marks.lower_bound(*sequence) : m_marks.end();
        return found != m_marks.begin() ? std::optional(*std::prev(found)) : std::nullopt;
    }

    /// Forgets those of records before this one, which are no longer there.
    void LeaveOutBefore(std::uint64_t first) noexcept
    {
        m_marks.erase(m_marks.begin(), m_marks.lower_bound(first));
    }

    void Clear() noexcept
    {
        m_marks.clear();
    }

    bool IsEmpty() const noexcept
    {
        return m_marks.empty();
    }

private:
    std::set<std::uint64_t> m_marks;
};
} // namespace velt
