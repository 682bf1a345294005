#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace velt::test
{
/// Texts and how often each came, for tests that may find the same thing thousands of times.
class CountedTexts
{
public:
    void Add(const std::string& text)
    {
        ++m_counts[text];
    }

    /// "<text> (<how often>)" for each text.
    std::vector<std::string> All() const
    {
        std::vector<std::string> all;
        for (const auto& [text, count] : m_counts)
        {
            all.push_back(text + " (" + std::to_string(count) + ")");
        }
        return all;
    }

private:
    std::map<std::string, std::size_t> m_counts;
};
} // namespace velt::test
