#pragma once

#include <optional>
#include <string>

namespace velt::tool
{
/// The update agent as it is registered. That it is says nothing of whether it can be started; to
/// look does not start it.
struct InstalledAgent
{
    std::wstring server;  // a library, or a program's command line
    std::wstring file;    // the same without quotes and arguments
    bool present = false; // whether the file is there
};

/// Nothing when no agent is registered with a file. Throws std::bad_alloc only.
std::optional<InstalledAgent> FindUpdateAgent();
} // namespace velt::tool
