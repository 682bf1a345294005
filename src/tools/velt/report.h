#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace velt::tool
{
class Report;

/// One result. Texts are UTF-8; what is not well-formed becomes U+FFFD.
struct ReportValue
{
    using Texts = std::vector<std::string>;
    using Parts = std::vector<Report>;

    std::variant<std::nullptr_t, bool, std::int64_t, std::string, Texts, Parts> data;
};

/// The results of a command by their names, in order.
class Report
{
public:
    void Add(std::string_view name, ReportValue value);

    void Add(std::string_view name, std::string_view text)
    {
        Add(name, ReportValue{std::string(text)});
    }

    void Add(std::string_view name, const char* text)
    {
        Add(name, std::string_view(text));
    }

    void Add(std::string_view name, bool value)
    {
        Add(name, ReportValue{value});
    }

    void Add(std::string_view name, std::int64_t number)
    {
        Add(name, ReportValue{number});
    }

    /// A result that there is not.
    void AddNothing(std::string_view name)
    {
        Add(name, ReportValue{nullptr});
    }

    /// One JSON object without line ends, which is pure ASCII: other characters are escaped.
    std::string Json() const;

    /// Lines of "name: value"; the lines of parts are indented.
    std::string Text() const;

private:
    void AppendText(std::string& text, std::size_t indent) const;

    std::vector<std::pair<std::string, ReportValue>> m_fields;

    friend struct JsonWriter;
};
} // namespace velt::tool
