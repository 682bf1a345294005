#pragma once

#include "foundation/unique_handle.h"

#include <windows.h>

#include <map>
#include <string>
#include <string_view>

namespace velt
{
/// "host.exe (12)". Throws std::bad_alloc.
std::string ProcessLabel(std::wstring_view name, DWORD processId);

/// The names of processes whose ids are known. Each is opened once: as long as it is held, its id
/// means no other one. Belongs to one thread.
class ProcessNames
{
public:
    /// Such as "host.exe (12)"; "? (12)" for one that cannot be opened. Throws std::bad_alloc.
    std::string NameOf(DWORD processId);

    /// Marks those that have ended, and those that could not be opened, whose id may come to mean
    /// another one. They keep their names until ForgetMarked: what they sent may still be under
    /// way.
    void MarkEnded() noexcept;
    void ForgetMarked() noexcept;

private:
    struct Process
    {
        UniqueKernelObject held;
        std::string name;
        bool marked = false;
    };

    std::map<DWORD, Process> m_processes;
};
} // namespace velt
