#pragma once

#include "tests/support/registry_snapshot.h"

#include <windows.h>

#include <string>
#include <vector>

namespace velt::test
{
/// What registration writes for the component's classes, below HKEY_CLASSES_ROOT (or the user's
/// classes): `library` is the DLL's full path.
RegistryTree ExpectedClassKeys(const std::wstring& library);

/// What registration writes for the type library.
RegistryTree ExpectedTypeLibraryKeys(const std::wstring& library);

/// The keys of the component's interfaces, below HKEY_CLASSES_ROOT.
std::vector<std::wstring> OwnInterfaceKeys();

/// Every key that the component could write, below the classes key, in both views.
std::vector<std::wstring> OwnClassesKeys();

/// The component's own keys below the classes key `path` of `root`: every key that it could write,
/// with what is below it. What differs between platforms in how the system registers a type library
/// is evened out: the case of "TypeLib", the flag that says that it came from a file, and the key
/// for 16-bit proxies.
RegistryTree ComponentKeys(HKEY root, const std::wstring& path = {});

/// All of a classes key, evened out the same.
RegistryTree AllClassesKeys(HKEY root, const std::wstring& path = {});

/// Both views of the classes, without what the one for 32-bit programs has the same: some of it is
/// the very keys of all others, though not spelled alike.
RegistryTree ViewsOnce(RegistryTree tree);

/// Deletes the component's own keys.
void DeleteComponentKeys(HKEY root, const std::wstring& path = {});

/// Both trees; a key in both is the second one's.
RegistryTree Merge(RegistryTree first, const RegistryTree& second);

inline constexpr wchar_t kUserClasses[] = L"Software\\Classes"; // below HKEY_CURRENT_USER
} // namespace velt::test
