#pragma once

namespace velt::facts
{
// What this program does when a question starts it as another process.

/// Has a window that takes data, until the process is ended. Returns when there can be no window.
int RunReceiver();

/// Loads a component, calls one of its exports and frees it; 0 when all went well.
int LoadAndFree(const wchar_t* library);
} // namespace velt::facts
