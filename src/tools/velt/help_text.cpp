#include "tools/velt/help_text.h"

#include "tools/velt/command_table.h"

#include <algorithm>
#include <span>
#include <vector>

namespace velt::tool
{
namespace
{
/// Appends lines of a name and its explanation, the explanations below each other.
class Columns
{
public:
    void Add(std::string name, std::string_view explanation)
    {
        m_width = std::max(m_width, name.size());
        m_rows.push_back({std::move(name), explanation});
    }

    void AppendTo(std::string& text) const
    {
        for (const Row& row : m_rows)
        {
            text.append("  ").append(row.name);
            text.append(m_width - row.name.size() + 2, ' ');
            text.append(row.explanation).append("\n");
        }
    }

private:
    struct Row
    {
        std::string name;
        std::string_view explanation;
    };

    std::vector<Row> m_rows;
    std::size_t m_width = 0;
};

std::string Usage(const CommandRow& command)
{
    std::string usage = "velt ";
    usage.append(command.name);
    if (!command.options.empty())
    {
        usage.append(" [OPTION...]");
    }
    if (!command.operands.empty())
    {
        usage.append(" ").append(command.operands);
    }
    return usage;
}

void AddOptions(Columns& columns, std::span<const OptionRow> options)
{
    for (const OptionRow& option : options)
    {
        std::string name = "--";
        name.append(option.name);
        if (!option.value.empty())
        {
            name.append(" ").append(option.value);
        }
        columns.Add(std::move(name), option.help);
    }
}

std::string CommandHelp(const CommandRow& command)
{
    std::string text = "usage: " + Usage(command) + "\n\n";
    text.append(command.name).append(" - ").append(command.summary).append("\n\n");
    text.append(command.details).append("\n");
    Columns columns;
    AddOptions(columns, command.options);
    AddOptions(columns, CommonOptions());
    columns.AppendTo(text);
    text.append("\nexamples:\n");
    for (const std::string_view example : command.examples)
    {
        text.append("  ").append(example).append("\n");
    }
    return text;
}

std::string ListHelp(std::string_view firstWord)
{
    Columns columns;
    for (const CommandRow& command : Commands())
    {
        if (firstWord.empty() || command.name.substr(0, command.name.find(' ')) == firstWord)
        {
            std::string name(command.name);
            if (!command.operands.empty())
            {
                name.append(" ").append(command.operands);
            }
            columns.Add(std::move(name), command.summary);
        }
    }
    std::string text = "usage: velt COMMAND [OPTION...] [OPERAND...]\n\n";
    columns.AppendTo(text);
    text.append("\n");
    return text;
}
} // namespace

std::string HelpText(std::string_view topic)
{
    const auto commands = Commands();
    const auto found = std::find_if(commands.begin(), commands.end(),
                                    [&](const CommandRow& row) { return row.name == topic; });
    if (found != commands.end())
    {
        return CommandHelp(*found);
    }
    const bool group =
        !topic.empty() && std::any_of(commands.begin(), commands.end(), [&](const CommandRow& row) {
            return row.name.size() > topic.size() && row.name.starts_with(topic) &&
                   row.name[topic.size()] == ' ';
        });
    std::string text = ListHelp(group ? topic : std::string_view());
    if (!group)
    {
        text.append("velt help COMMAND says more about a command, with examples; --json makes its\n"
                    "result one JSON object; velt --version prints the version. Results go to\n"
                    "standard output, messages to standard error.\n\n"
                    "exit codes:\n"
                    "  0  done\n"
                    "  1  the answer is no, or nothing\n"
                    "  2  wrong usage\n"
                    "  3  failed\n");
    }
    return text;
}
} // namespace velt::tool
