#pragma once

#include <windows.h>

// The linker's name for the start of the module that this code is in.
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" IMAGE_DOS_HEADER __ImageBase;

namespace velt
{
/// The module that this code is in, whose resources are ours.
inline HINSTANCE OwnModule() noexcept
{
    return reinterpret_cast<HINSTANCE>(&__ImageBase);
}
} // namespace velt
