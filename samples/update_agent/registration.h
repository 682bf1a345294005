#pragma once

#include <windows.h>

/// The agent's entries in the machine's registry: its class, and the type library by which its
/// interfaces cross processes.
namespace registration
{
HRESULT Register();
HRESULT Unregister();
} // namespace registration
