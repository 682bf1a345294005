#pragma once

namespace velt
{
/// Whether the library has the thread-local index that its exceptions need. Without one nothing may
/// be thrown: it would end the process.
bool HasExceptionState() noexcept;
} // namespace velt
