#pragma once

#include "server/registrar_script.h"
#include "server/registrar_writer.h"

#include <windows.h>

#include <optional>
#include <span>
#include <string>

namespace velt
{
/// A value as it lies in a key now; nothing when it cannot be read.
std::optional<RegistryData> ReadValue(const RegistryLocation& key, const wchar_t* name);

/// The same as text; nothing for other types than REG_SZ, too.
std::optional<std::wstring> ReadText(const RegistryLocation& key, const wchar_t* name);

/// Deletes a key that has no value and no subkey; nothing happens to any other, or without one.
/// `view` is KEY_WOW64_32KEY or KEY_WOW64_64KEY, or 0 for the process's own. Throws
/// SystemException::Win32.
void DeleteEmptyKey(HKEY root, const wchar_t* path, REGSAM view = 0);

/// Erases a value, whatever its data; nothing happens without one. Throws the same.
void EraseValue(HKEY root, const wchar_t* path, const wchar_t* name, REGSAM view = 0);

/// Erases a value, and the key when nothing is left in it. Throws the same.
void EraseEntry(HKEY root, const wchar_t* path, const wchar_t* name, REGSAM view = 0);

/// How far erasing goes on 64-bit Windows, where classes and interfaces have a key for each kind of
/// program, and all else below the classes is one key for both.
enum class EraseExtent
{
    all,
    ownView, // the other edition is registered and needs what both have in common
};

/// Takes back what the operations have written, the last one first: values that are still as they
/// were written, capitals aside, and keys in which nothing is left. What others put there stays.
/// Shared keys stay too; those of the user go when they are empty, because the user's classes may
/// have been without them before. Throws SystemException::Win32 at the first failure.
void EraseRegistry(std::span<const RegistryOperation> operations, RegistrationScope scope,
                   EraseExtent extent);

/// Erases from the user's classes what would hide the same operations' entries for the machine:
/// values by their names, whatever their data, whole trees where the operations begin one anew, and
/// keys in which nothing is left. What stays for the other edition hides nothing else: it says the
/// same. Throws SystemException::Win32 at the first failure.
void EraseHidingEntries(std::span<const RegistryOperation> operations, EraseExtent extent);
} // namespace velt
