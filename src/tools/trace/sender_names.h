#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace velt
{
/// The names of processes that records are shown with, by number, so that a record keeps four bytes
/// of them.
class SenderNames
{
public:
    /// The number of a name, a new one if need be. Throws std::bad_alloc.
    std::uint32_t Number(std::string_view name)
    {
        const auto known = m_numbers.find(name);
        if (known != m_numbers.end())
        {
            return known->second;
        }
        const auto number = static_cast<std::uint32_t>(m_names.size());
        m_names.emplace_back(name); // first: one without its number does no harm
        m_numbers.emplace(name, number);
        return number;
    }

    /// "?" for a number that was not given. Valid until the next Number or Clear.
    std::string_view Name(std::uint32_t number) const noexcept
    {
        return number < m_names.size() ? std::string_view(m_names[number]) : "?";
    }

    void Clear() noexcept
    {
        m_names.clear();
        m_numbers.clear();
    }

private:
    std::vector<std::string> m_names; // by number
    std::map<std::string, std::uint32_t, std::less<>> m_numbers;
};
} // namespace velt
