#pragma once

#include "server/registrar_writer.h"

#include <windows.h>

#include <oaidl.h>

#include <optional>
#include <string>
#include <vector>

namespace velt
{
/// What the system writes when a type library is registered, for taking it back in one scope:
/// the system's own function for that goes by HKEY_CLASSES_ROOT, which shows two.
class TypeLibraryEntries
{
public:
    /// Reads what it needs of the library. Throws SystemException::HRESULT and std::bad_alloc.
    explicit TypeLibraryEntries(ITypeLib& library);

    TypeLibraryEntries(const TypeLibraryEntries&) = delete;
    TypeLibraryEntries& operator=(const TypeLibraryEntries&) = delete;

    ~TypeLibraryEntries() = default;

    /// The file that the library is registered with for its kind of system; nothing when it is not
    /// registered there.
    std::optional<std::wstring> File(RegistrationScope scope) const;

    /// Erases the entries for its kind of system whatever file they name, and those that are the
    /// same for all kinds with the last one. What others put there stays.
    /// Throws SystemException::Win32.
    void Erase(RegistrationScope scope) const;

private:
    TLIBATTR m_library;
    std::vector<GUID> m_interfaces;
};
} // namespace velt
