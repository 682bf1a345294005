#include "tools/velt/report.h"

#include "foundation/utf.h"

#include <cstdio>

namespace velt::tool
{
namespace
{
void AppendUnit(std::string& json, char16_t unit)
{
    char escaped[8];
    std::snprintf(escaped, sizeof(escaped), "\\u%04X", static_cast<unsigned>(unit));
    json.append(escaped);
}

void AppendString(std::string& json, std::string_view text)
{
    json.push_back('"');
    for (const char16_t unit : Utf16FromUtf8(text))
    {
        if (unit == u'"' || unit == u'\\')
        {
            json.push_back('\\');
            json.push_back(static_cast<char>(unit));
        }
        else if (unit == u'\n')
        {
            json.append("\\n");
        }
        else if (unit < 0x20 || unit > 0x7E)
        {
            AppendUnit(json, unit);
        }
        else
        {
            json.push_back(static_cast<char>(unit));
        }
    }
    json.push_back('"');
}

/// Well-formed, with control characters shown as blanks, so that a value stays in its line.
std::string OneLine(std::string_view text)
{
    std::u16string units = Utf16FromUtf8(text);
    for (char16_t& unit : units)
    {
        if (unit < 0x20 || unit == 0x7F)
        {
            unit = u' ';
        }
    }
    return Utf8FromUtf16(units);
}
} // namespace

/// Writes values one after the other.
struct JsonWriter
{
    std::string& json;

    void operator()(std::nullptr_t) const
    {
        json.append("null");
    }

    void operator()(bool value) const
    {
        json.append(value ? "true" : "false");
    }

    void operator()(std::int64_t number) const
    {
        json.append(std::to_string(number));
    }

    void operator()(const std::string& text) const
    {
        AppendString(json, text);
    }

    // As deep as what a command reports: its own types, never what somebody sends.
    // NOLINTBEGIN(misc-no-recursion)
    void operator()(const Report& report) const
    {
        json.push_back('{');
        const char* divider = "";
        for (const auto& [name, value] : report.m_fields)
        {
            json.append(divider);
            AppendString(json, name);
            json.push_back(':');
            std::visit(*this, value.data);
            divider = ",";
        }
        json.push_back('}');
    }

    template <class Element>
    void operator()(const std::vector<Element>& elements) const
    {
        json.push_back('[');
        const char* divider = "";
        for (const Element& element : elements)
        {
            json.append(divider);
            (*this)(element);
            divider = ",";
        }
        json.push_back(']');
    }
    // NOLINTEND(misc-no-recursion)
};

void Report::Add(std::string_view name, ReportValue value)
{
    m_fields.emplace_back(std::string(name), std::move(value));
}

std::string Report::Json() const
{
    std::string json;
    JsonWriter{json}(*this);
    return json;
}

std::string Report::Text() const
{
    std::string text;
    AppendText(text, 0);
    return text;
}

// NOLINTNEXTLINE(misc-no-recursion): as above
void Report::AppendText(std::string& text, std::size_t indent) const
{
    for (const auto& [name, value] : m_fields)
    {
        if (const auto* parts = std::get_if<ReportValue::Parts>(&value.data))
        {
            for (const Report& part : *parts)
            {
                text.append(indent, ' ').append(name).append(":\n");
                part.AppendText(text, indent + 2);
            }
            continue;
        }
        text.append(indent, ' ').append(name).append(":");
        if (const auto* line = std::get_if<std::string>(&value.data))
        {
            text.append(" ").append(OneLine(*line));
        }
        else if (const auto* lines = std::get_if<ReportValue::Texts>(&value.data))
        {
            for (const std::string& each : *lines)
            {
                text.append("\n").append(indent + 2, ' ').append(OneLine(each));
            }
        }
        else if (const auto* yes = std::get_if<bool>(&value.data))
        {
            text.append(*yes ? " yes" : " no");
        }
        else if (const auto* number = std::get_if<std::int64_t>(&value.data))
        {
            text.append(" ").append(std::to_string(*number));
        }
        else
        {
            text.append(" none");
        }
        text.append("\n");
    }
}
} // namespace velt::tool
