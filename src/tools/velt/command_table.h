#pragma once

#include <cstddef>
#include <span>
#include <string_view>

namespace velt::tool
{
/// One option of a command.
struct OptionRow
{
    std::string_view name;  // without the two hyphens
    std::string_view value; // what follows it, as help calls it; empty for a switch
    std::string_view help;
};

/// Every command has one; what carries it out is chosen by it.
enum class CommandId
{
    status,
    cookieGet,
    cookieSet,
    safeGet,
    safeSet,
    updateCheck,
    updateStart,
    eulaShow,
    collection,
    script,
    fetch,
    proxy,
    ping,
    registerComponent,
    unregisterComponent,
    traceOn,
};

/// One command: what the parser accepts, and what help says.
struct CommandRow
{
    CommandId id;
    std::string_view name;     // one word, or two divided by a blank
    std::string_view operands; // as help shows them
    std::size_t leastOperands;
    std::size_t mostOperands;
    std::string_view summary; // one line
    std::string_view details; // lines of at most 78 characters
    std::span<const OptionRow> options;
    std::span<const std::string_view> examples; // command lines
    bool takesRest; // the first operand ends the options: what follows is the operand's own
};

inline constexpr std::size_t kAnyNumber = static_cast<std::size_t>(-1);

/// All commands, in the order in which help lists them.
std::span<const CommandRow> Commands() noexcept;

/// Options that every command has.
std::span<const OptionRow> CommonOptions() noexcept;
} // namespace velt::tool
