#pragma once

#include "server/registrar_script.h"
#include "server/registrar_writer.h"

#include <windows.h>

#include <optional>
#include <span>
#include <string>

namespace velt
{
/// The place of an operation's key in what belongs to the machine or the user alone, where
/// HKEY_CLASSES_ROOT shows both.
RegistryLocation LocateAlone(const RegistryOperation& operation, RegistrationScope scope);

/// The value that an operation sets, as it lies there now; nothing when it cannot be read.
std::optional<RegistryData> ReadValue(const RegistryOperation& operation, RegistrationScope scope);

/// Takes back what the operations have written, the last one first: values that are still as they
/// were written, capitals aside, and keys in which nothing is left. What others put there stays.
/// Shared keys stay too; those of the user go when they are empty, because the user's classes may
/// have been without them before. Throws SystemException::Win32 at the first failure.
void EraseRegistry(std::span<const RegistryOperation> operations, RegistrationScope scope);

/// Deletes a key that has no value and no subkey; nothing happens to any other, or without one.
/// Throws SystemException::Win32.
void DeleteEmptyKey(const RegistryLocation& at);
} // namespace velt
