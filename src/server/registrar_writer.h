#pragma once

#include "server/registrar_script.h"

#include <windows.h>

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace velt
{
/// Where the entries of HKEY_CLASSES_ROOT are written: below Software\Classes of one of these,
/// never by that root itself. It shows both, and a write would go to the user's key where there is
/// one.
enum class RegistrationScope
{
    machine, // HKEY_LOCAL_MACHINE
    user,    // HKEY_CURRENT_USER
};

/// A place in the registry.
struct RegistryLocation
{
    HKEY root;
    std::wstring path;
};

/// A value as it lies in the registry.
struct RegistryData
{
    DWORD type;
    std::vector<std::byte> bytes;

    bool operator==(const RegistryData&) const = default;
};

/// Throws SystemException::Win32 for any result but ERROR_SUCCESS.
void ThrowIfRegistryError(LSTATUS error);

/// Deletes a key with everything below it; nothing happens without one. Throws the same.
void DeleteTree(const RegistryLocation& at);

/// The classes of the machine or of the user.
RegistryLocation ClassesOf(RegistrationScope scope);

/// The key that an operation is about.
RegistryLocation Locate(const RegistryOperation& operation, RegistrationScope scope);

/// What an operation's value is written as.
RegistryData EncodeValue(const RegistryOperation::Value& value);

/// Makes the changes in their order. Throws SystemException::Win32 at the first one that fails; the
/// ones before it stay made.
void WriteRegistry(std::span<const RegistryOperation> operations, RegistrationScope scope);
} // namespace velt
