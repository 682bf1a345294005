#pragma once

#include <windows.h>

namespace velt
{
/// A function that a library exports, as the type of its pointer; null when the library is null or
/// has none of that name.
template <class Function>
Function FindFunction(HMODULE module, const char* name) noexcept
{
    const FARPROC found = module ? ::GetProcAddress(module, name) : nullptr;
    return reinterpret_cast<Function>(reinterpret_cast<void*>(found));
}
} // namespace velt
