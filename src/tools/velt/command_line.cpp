#include "tools/velt/command_line.h"

#include "tools/velt/nearest_word.h"

#include <algorithm>

namespace velt::tool
{
namespace
{
bool IsText(std::wstring_view text, std::string_view ascii) noexcept
{
    return std::equal(text.begin(), text.end(), ascii.begin(), ascii.end(),
                      [](wchar_t a, char b) { return a == static_cast<wchar_t>(b); });
}

std::wstring Widen(std::string_view ascii)
{
    return {ascii.begin(), ascii.end()};
}

bool IsHelp(std::wstring_view argument) noexcept
{
    return argument == L"--help" || argument == L"-h" || argument == L"-?" || argument == L"/?";
}

/// Divides a command's name into its first word and the rest, which may be empty.
struct CommandName
{
    std::string_view first;
    std::string_view second;
};

CommandName Divide(std::string_view name) noexcept
{
    const std::size_t blank = std::min(name.find(' '), name.size());
    return {name.substr(0, blank), name.substr(std::min(blank + 1, name.size()))};
}

constexpr std::string_view kHelp = "help";
constexpr std::string_view kVersionOption = "--version";

/// What an error adds for a word that is nearly one of these: what stands before the word and the
/// nearest one.
std::wstring Proposal(const std::wstring& before, std::wstring_view word,
                      const std::vector<std::string_view>& candidates)
{
    const auto nearest = NearestWord(word, candidates);
    return nearest ? L"; did you mean " + before + Widen(*nearest) + L"?" : std::wstring();
}

/// Reads one command line from left to right.
class Parser
{
public:
    explicit Parser(std::span<const std::wstring> arguments) : m_arguments(arguments) {}

    ParsedCommandLine Parse()
    {
        ParsedCommandLine parsed = Read();
        const auto rest = m_arguments.subspan(m_at); // behind what is wrong, or was understood
        const auto end = std::find(rest.begin(), rest.end(), L"--");
        const bool json = m_line.json || std::find(rest.begin(), end, L"--json") != end;
        std::visit([json](auto& each) { each.json = json; }, parsed);
        return parsed;
    }

private:
    ParsedCommandLine Read()
    {
        while (!IsAtEnd() && Peek() == L"--json")
        {
            m_line.json = true;
            ++m_at;
        }
        if (IsAtEnd())
        {
            return UsageError{L"a command is missing", {}};
        }
        if (IsHelp(Peek()) || IsText(Peek(), kHelp))
        {
            return HelpOn();
        }
        if (IsText(Peek(), kVersionOption))
        {
            return VersionWanted{};
        }
        std::optional<ParsedCommandLine> other = ReadCommand(false);
        if (!other)
        {
            other = ReadArguments();
        }
        return other ? *std::move(other) : CheckOperands();
    }

    bool IsAtEnd() const noexcept
    {
        return m_at == m_arguments.size();
    }

    const std::wstring& Peek() const noexcept
    {
        return m_arguments[m_at];
    }

    /// "help", with or without the words of a command.
    ParsedCommandLine HelpOn()
    {
        ++m_at;
        if (IsAtEnd() || Peek() == L"--json")
        {
            return HelpWanted{};
        }
        std::optional<ParsedCommandLine> other = ReadCommand(true);
        return other ? *std::move(other) : HelpWanted{std::string(m_line.command->name)};
    }

    /// Finds the command; nothing when there is no more to say about it. For help, the first word
    /// of several commands is enough.
    std::optional<ParsedCommandLine> ReadCommand(bool forHelp)
    {
        const std::wstring& first = m_arguments[m_at++];
        const std::wstring* const second = IsAtEnd() ? nullptr : &Peek();
        std::string group;
        for (const CommandRow& row : Commands())
        {
            const CommandName name = Divide(row.name);
            if (!IsText(first, name.first))
            {
                continue;
            }
            if (name.second.empty() || (second && IsText(*second, name.second)))
            {
                m_at += name.second.empty() ? 0U : 1U;
                m_line.command = &row;
                return std::nullopt;
            }
            group = name.first;
        }
        if (group.empty())
        {
            return UsageError{L"no such command: " + first + Proposal({}, first, FirstWords()), {}};
        }
        if (second && *second != L"--json" ? IsHelp(*second) : forHelp)
        {
            return HelpWanted{group};
        }
        if (!second || *second == L"--json")
        {
            return UsageError{L"more is needed after " + first, group};
        }
        return UsageError{L"no such command: " + first + L" " + *second +
                              Proposal(first + L" ", *second, SecondWords(group)),
                          group};
    }

    /// What a command line may begin with.
    static std::vector<std::string_view> FirstWords()
    {
        std::vector<std::string_view> words{kHelp, kVersionOption, "--json", "--help"};
        for (const CommandRow& row : Commands())
        {
            words.push_back(Divide(row.name).first);
        }
        return words;
    }

    /// What may follow the first word of several commands.
    static std::vector<std::string_view> SecondWords(std::string_view first)
    {
        std::vector<std::string_view> words;
        for (const CommandRow& row : Commands())
        {
            if (Divide(row.name).first == first)
            {
                words.push_back(Divide(row.name).second);
            }
        }
        return words;
    }

    std::optional<ParsedCommandLine> ReadArguments()
    {
        bool options = true;
        while (!IsAtEnd())
        {
            const std::wstring& argument = m_arguments[m_at++];
            if (options && argument == L"--")
            {
                options = false;
            }
            else if (options && IsHelp(argument))
            {
                return HelpWanted{std::string(m_line.command->name)};
            }
            else if (options && argument.starts_with(L"--"))
            {
                if (auto error = ReadOption(argument))
                {
                    return error;
                }
            }
            else
            {
                m_line.operands.push_back(argument);
                options = options && !m_line.command->takesRest;
            }
        }
        return std::nullopt;
    }

    std::optional<ParsedCommandLine> ReadOption(std::wstring_view argument)
    {
        const std::size_t equals = std::min(argument.find(L'='), argument.size());
        const std::wstring_view name = argument.substr(2, std::max<std::size_t>(equals, 2) - 2);
        if (IsText(name, "json"))
        {
            if (equals < argument.size())
            {
                return Wrong(L"--json takes no value");
            }
            m_line.json = true;
            return std::nullopt;
        }
        const auto& options = m_line.command->options;
        const auto row = std::find_if(options.begin(), options.end(),
                                      [&](const OptionRow& r) { return IsText(name, r.name); });
        if (row == options.end())
        {
            return Wrong(L"no such option: --" + std::wstring(name) +
                         Proposal(L"--", name, OptionNames()));
        }
        if (equals < argument.size())
        {
            if (row->value.empty())
            {
                return Wrong(L"--" + std::wstring(name) + L" takes no value");
            }
            m_line.options[row->name].emplace_back(argument.substr(equals + 1));
        }
        else if (row->value.empty())
        {
            m_line.options[row->name].emplace_back();
        }
        else if (IsAtEnd())
        {
            return Wrong(L"--" + std::wstring(name) + L" needs a value: " + Widen(row->value));
        }
        else
        {
            m_line.options[row->name].push_back(m_arguments[m_at++]);
        }
        return std::nullopt;
    }

    std::vector<std::string_view> OptionNames() const
    {
        std::vector<std::string_view> names;
        for (const auto& options : {m_line.command->options, CommonOptions()})
        {
            for (const OptionRow& row : options)
            {
                names.push_back(row.name);
            }
        }
        return names;
    }

    ParsedCommandLine CheckOperands()
    {
        const CommandRow& command = *m_line.command;
        if (m_line.operands.size() < command.leastOperands)
        {
            return Wrong(L"more is needed: " + Widen(command.operands));
        }
        if (m_line.operands.size() > command.mostOperands)
        {
            return Wrong(L"too much: " + m_line.operands[command.mostOperands]);
        }
        return std::move(m_line);
    }

    UsageError Wrong(std::wstring message) const
    {
        return {std::move(message), std::string(m_line.command->name)};
    }

    std::span<const std::wstring> m_arguments;
    std::size_t m_at = 0;
    CommandLine m_line{};
};
} // namespace

std::wstring CommandLine::Value(std::string_view option, std::wstring_view otherwise) const
{
    const auto found = options.find(option);
    return found == options.end() ? std::wstring(otherwise) : found->second.back();
}

std::vector<std::wstring> CommandLine::Values(std::string_view option) const
{
    const auto found = options.find(option);
    return found == options.end() ? std::vector<std::wstring>() : found->second;
}

ParsedCommandLine ParseCommandLine(std::span<const std::wstring> arguments)
{
    return Parser(arguments).Parse();
}

std::optional<std::uint32_t> ParseNumber(std::wstring_view text, std::uint32_t least,
                                         std::uint32_t most) noexcept
{
    constexpr std::size_t kMostDigits = 10;
    if (text.empty() || text.size() > kMostDigits)
    {
        return std::nullopt;
    }
    std::uint64_t number = 0;
    for (const wchar_t c : text)
    {
        if (c < L'0' || c > L'9')
        {
            return std::nullopt;
        }
        number = number * 10 + static_cast<std::uint64_t>(c - L'0');
    }
    if (number < least || number > most)
    {
        return std::nullopt;
    }
    return static_cast<std::uint32_t>(number);
}

bool IsGuidText(std::wstring_view text) noexcept
{
    constexpr std::wstring_view kShape = L"{00000000-0000-0000-0000-000000000000}";
    return std::equal(text.begin(), text.end(), kShape.begin(), kShape.end(),
                      [](wchar_t c, wchar_t shape) {
                          const bool digit = (c >= L'0' && c <= L'9') || (c >= L'a' && c <= L'f') ||
                                             (c >= L'A' && c <= L'F');
                          return shape == L'0' ? digit : c == shape;
                      });
}
} // namespace velt::tool
