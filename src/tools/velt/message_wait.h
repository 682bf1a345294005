#pragma once

#include <windows.h>

#include <functional>
#include <optional>

namespace velt::tool
{
/// Dispatches the thread's messages, calls from other apartments among them, until the condition
/// holds, the event is set, or the time is over (nothing: never). The condition is asked after each
/// message. Returns whether it holds.
bool WaitWithMessages(const std::function<bool()>& condition, HANDLE event,
                      std::optional<DWORD> limitMs);
} // namespace velt::tool
