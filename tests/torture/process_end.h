#pragma once

#include <windows.h>

namespace velt::torture
{
/// From here on a crash of the process is printed, with the modules' code on the stack.
void TellOfCrashes() noexcept;

/// Writes to stdout without the run-time, whose locks a hung thread may hold.
void Say(const char* text) noexcept;

/// Prints the modules' code on the stack of another thread, and leaves the thread suspended.
void PrintStackOfThread(DWORD id) noexcept;
} // namespace velt::torture
