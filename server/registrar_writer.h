#pragma once

#include "server/registrar_script.h"

#include <span>

namespace velt
{
/// Where the entries of HKEY_CLASSES_ROOT are written.
enum class RegistrationScope
{
    machine, // HKEY_CLASSES_ROOT
    user,    // HKEY_CURRENT_USER\Software\Classes
};

/// Makes the changes in their order. Throws SystemException::Win32 at the first one that fails; the
/// ones before it stay made.
void WriteRegistry(std::span<const RegistryOperation> operations, RegistrationScope scope);
} // namespace velt
