#pragma once

#include "tests/tools/velt/velt_program.h"

#include <string>
#include <vector>

namespace velt::test
{
/// What is built of one edition, by full paths.
struct EditionPrograms
{
    const wchar_t* name; // as people read it
    std::wstring velt;
    std::wstring viewer;
    std::wstring library;
    std::wstring agent;    // an update agent in a process of its own
    std::wstring exchange; // see object_exchange.cpp
};

/// Both editions. Throws std::runtime_error that says what to build when a file is missing.
const EditionPrograms& Programs32();
const EditionPrograms& Programs64();

/// One, and then the other.
struct EditionPair
{
    const EditionPrograms& first;
    const EditionPrograms& second;
};

/// Both orders, for generators.
EditionPair InOrder(bool first64);

/// Runs an edition's velt.exe, which has to answer 0; its output.
std::string Velt(const EditionPrograms& edition, const std::vector<std::wstring>& arguments);

/// Both editions registered for the machine until the end of the scope.
class BothRegistered
{
public:
    BothRegistered();

    BothRegistered(const BothRegistered&) = delete;
    BothRegistered& operator=(const BothRegistered&) = delete;

    ~BothRegistered();
};
} // namespace velt::test
