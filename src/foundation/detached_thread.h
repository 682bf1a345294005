#pragma once

namespace velt
{
/// Runs a function on a thread of its own that nobody waits for. Until it has ended, the thread
/// holds a module lock, and a reference on the library that this code is in, so that neither goes
/// from under it. Returns false, and the function does not run, when the system has no thread to
/// give. COM is not initialised on the thread.
bool RunDetached(void (*function)(void* argument) noexcept, void* argument) noexcept;
} // namespace velt
