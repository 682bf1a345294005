#pragma once

#include "tools/velt/command_table.h"

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace velt::tool
{
/// A command line that says what to do.
struct CommandLine
{
    const CommandRow* command;
    std::vector<std::wstring> operands;
    std::map<std::string_view, std::vector<std::wstring>> options; // by name, in their order
    bool json = false;

    bool Has(std::string_view option) const
    {
        return options.contains(option);
    }

    /// The last value of an option, or what it is without one.
    std::wstring Value(std::string_view option, std::wstring_view otherwise = {}) const;

    /// All values of an option.
    std::vector<std::wstring> Values(std::string_view option) const;
};

/// A command line that asks for help.
struct HelpWanted
{
    std::string topic; // the name of a command, or the first word of several; empty for all
    bool json = false;
};

/// A command line that asks for the program's version.
struct VersionWanted
{
    bool json = false;
};

/// A command line that is wrong.
struct UsageError
{
    std::wstring message;
    std::string topic; // where help would help, as above
    bool json = false; // also when it stands behind what is wrong
};

using ParsedCommandLine = std::variant<CommandLine, HelpWanted, VersionWanted, UsageError>;

/// Reads the arguments that follow the program's name.
///
///     [--json] COMMAND { --option | --option VALUE | --option=VALUE | operand } [ -- operand... ]
///
/// Options and operands may be mixed; after "--" everything is an operand. An option may
/// stand several times; a switch has an empty value. For a word that is nearly one of ours, the
/// error proposes that. Every input is valid. Throws std::bad_alloc only.
ParsedCommandLine ParseCommandLine(std::span<const std::wstring> arguments);

/// A decimal number of that range; nothing for any other text.
std::optional<std::uint32_t> ParseNumber(std::wstring_view text, std::uint32_t least,
                                         std::uint32_t most) noexcept;

/// Whether a text is a GUID in braces.
bool IsGuidText(std::wstring_view text) noexcept;
} // namespace velt::tool
