#pragma once

#include <windows.h>

#include <string>
#include <string_view>

namespace velt::tool
{
/// The system's text for a failure, those of the internet API included; ours, which is English,
/// where the system has none; empty where neither has. `what` it was that failed is named where the
/// system's text has a place for it: what stands before its first colon and blank, such as a path.
/// Throws std::bad_alloc only.
std::wstring FailureText(HRESULT hr, std::wstring_view what);
} // namespace velt::tool
