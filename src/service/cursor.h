#pragma once

#include <windows.h>

#include <atomic>
#include <cstddef>

namespace velt
{
/// The place of a COM enumerator in its list. Any thread may move it.
class Cursor
{
public:
    Cursor(std::size_t next, std::size_t end) noexcept : m_next(next < end ? next : end), m_end(end)
    {
    }

    Cursor(const Cursor&) = delete;
    Cursor& operator=(const Cursor&) = delete;

    ~Cursor() = default;

    /// Takes one item, and answers with its index; false at the end.
    bool Take(std::size_t& index) noexcept
    {
        index = m_next;
        while (index < m_end && !m_next.compare_exchange_weak(index, index + 1))
        {
        }
        return index < m_end;
    }

    /// Passes over items; S_FALSE when there were fewer.
    HRESULT Skip(ULONG count) noexcept
    {
        std::size_t from = m_next;
        while (!m_next.compare_exchange_weak(from, count < m_end - from ? from + count : m_end))
        {
        }
        return count <= m_end - from ? S_OK : S_FALSE;
    }

    void Reset() noexcept
    {
        m_next = 0;
    }

    std::size_t Next() const noexcept
    {
        return m_next;
    }

private:
    std::atomic<std::size_t> m_next;
    const std::size_t m_end;
};
} // namespace velt
