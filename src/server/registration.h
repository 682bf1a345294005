#pragma once

#include "server/class_registration.h"
#include "server/registrar_script.h"
#include "server/registrar_writer.h"

#include <windows.h>

#include <span>
#include <string>
#include <vector>

namespace velt
{
/// Per-user when the machine's classes cannot be opened for writing: registration then needs no
/// administrator.
RegistrationScope CurrentRegistrationScope() noexcept;

/// Full path of a loaded module. Throws SystemException::Win32 and std::bad_alloc.
std::wstring ModulePath(HMODULE module);

/// The text for %MODULE%, a module's full path. Throws the same.
void AddModuleReplacement(RegistrarReplacements& replacements, HMODULE module);

/// The operations of the script that the module holds as resource `id` of type REGISTRY, encoded in
/// UTF-8. A script that does not parse is an ERROR_INVALID_DATA; its line and column are traced.
/// Throws SystemException::Win32 and std::bad_alloc.
std::vector<RegistryOperation> ReadRegistrarScript(HMODULE module, UINT id,
                                                   const RegistrarReplacements& replacements);

/// Runs such a script. One that does not parse changes nothing. Throws as above.
void RunRegistrarScript(HMODULE module, UINT id, const RegistrarReplacements& replacements,
                        RegistrationScope scope);

/// Registers a component: its application, its classes with their categories, and its type library,
/// in this order, on the system's locale. For the machine, the calling account's own entries are
/// erased first, because they would hide what is written. What follows a failure is not done; what
/// was done stays. The replacements are those that all scripts get beside %MODULE%.
/// Throws SystemException::HRESULT, SystemException::Win32 and std::bad_alloc.
void RegisterComponent(HMODULE module, RegistrationScope scope, RegistrarReplacements replacements,
                       std::span<const ClassRegistration> classes);

/// Tells the component-categories manager what a class implements and requires, which writes below
/// its CLSID key by HKEY_CLASSES_ROOT. Initialises COM for the time being when there is something
/// to tell. Throws SystemException::HRESULT.
void RegisterCategories(const CLSID& clsid, std::span<const CategoryRow> categories);

/// Registers the type library that the module holds as its first one, for the machine or for the
/// user. It is written by HKEY_CLASSES_ROOT. Throws SystemException::HRESULT,
/// SystemException::Win32 and std::bad_alloc.
void RegisterModuleTypeLibrary(HMODULE module, RegistrationScope scope);
} // namespace velt
