#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace velt::torture
{
/// What a child process does: operations in an order, from one of their runs on.
struct Plan
{
    unsigned seed = 0;                // 0: all runs, in their order
    std::size_t runs = 0;             // of each operation, chosen by the seed; 0 for all
    bool withPairs = false;           // an allocation and a later call, of short operations
    std::string only;                 // the operations whose "room: name" has this in it
    std::size_t operation = 0;        // the place in the order
    std::size_t run = 0;              // the first one of that operation
    std::vector<std::size_t> skipped; // of that operation: runs that end the process
};

/// The codes with which a child ends.
inline constexpr unsigned kEnded = 0;
inline constexpr unsigned kFound = 1;
inline constexpr unsigned kGoOn = 95; // the process is spent: go on after this run
inline constexpr unsigned kHung = 96;
inline constexpr unsigned kBroken = 94; // the program itself

/// Runs the plan and reports on stdout, a line each:
///
///     op <place> <room>: <name>
///     run <number> <what fails>
///     find <what was found>
///     end <calls> <faults> <pairs>     of the operation
unsigned RunChild(const Plan& plan);

/// One run of an operation, with what is known of it printed.
unsigned RunOne(const std::string& name, std::size_t run);

void ListOperations();
} // namespace velt::torture
