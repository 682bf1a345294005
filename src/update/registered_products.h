#pragma once

#include <string>

namespace velt
{
/// Which products this user's update agent knows, by our record: one text value a product below
/// HKEY_CURRENT_USER\Software\Velt\UpdateManager, named by the installer GUID and holding the
/// product's version. A GUID that the narrow registry calls cannot spell is never on record.
///
/// Whether the product is on record with this very version. A record that cannot be read is none.
/// Throws std::bad_alloc.
bool IsUpdateGUIDRegistered(const std::wstring& installerGuid, const std::wstring& productVersion);

/// Records a product with its version; an older version is replaced. A record that cannot be
/// written is traced: the product is then registered once more next time, which harms nobody.
/// Throws std::bad_alloc.
void SetRegisteredUpdateGUIDIntoRegistry(const std::wstring& installerGuid,
                                         const std::wstring& productVersion);
} // namespace velt
