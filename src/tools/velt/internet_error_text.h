#pragma once

#include <windows.h>

#include <string>

namespace velt::tool
{
/// The system's text for a failure, those of the internet API included; empty when it has none.
/// Throws std::bad_alloc only.
std::wstring FailureText(HRESULT hr);
} // namespace velt::tool
