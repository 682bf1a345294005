#pragma once

namespace velt
{
/// Whether the library has the thread-local index that its exceptions need. Without one nothing may
/// be thrown: it would end the process.
bool HasExceptionState() noexcept;

/// When a thread ends: gives back what it has of the copies that are there for want of memory.
void EndExceptionStateOfThread() noexcept;
} // namespace velt
