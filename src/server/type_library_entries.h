#pragma once

#include "server/registrar_eraser.h"
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

    /// What else may be erased there once the library's own entries are: while it is registered for
    /// the other kind of system, the other edition is. Throws SystemException::Win32.
    EraseExtent Extent(RegistrationScope scope) const;

    /// Erases the entries for its kind of system whatever file they name, and those that are the
    /// same for all kinds with the last one: the version's, and the interfaces', which the system
    /// writes for 32-bit and 64-bit programs alike. What others put there stays.
    /// Throws SystemException::Win32 and std::bad_alloc.
    void Erase(RegistrationScope scope) const;

private:
    /// The help folder is that of the edition that was registered last. With the library's own
    /// entry gone, it is the folder of the file that stays.
    void HandHelpFolderOver(RegistrationScope scope, const std::wstring& ownFile) const;

    void EraseInterfaces(RegistrationScope scope) const;

    TLIBATTR m_library;
    std::vector<GUID> m_interfaces;
};
} // namespace velt
