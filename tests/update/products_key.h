#pragma once

#include "tests/support/registry_snapshot.h"

#include <windows.h>

#include <string>

namespace velt::test
{
inline const std::wstring kProduct = L"{AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841B}";

/// The record of registered products: none at the start and none left at the end.
class ProductsKey
{
public:
    static constexpr wchar_t kPath[] = L"Software\\Velt\\UpdateManager";

    ProductsKey()
    {
        Delete();
    }

    ProductsKey(const ProductsKey&) = delete;
    ProductsKey& operator=(const ProductsKey&) = delete;

    ~ProductsKey()
    {
        Delete();
    }

    /// The record's values; none without a record.
    static RegistryValues Values()
    {
        const RegistryTree tree = SnapshotRegistry(HKEY_CURRENT_USER, kPath);
        return tree.empty() ? RegistryValues() : tree.at(L"");
    }

    static void Write(const wchar_t* name, DWORD type, const void* data, DWORD sizeBytes)
    {
        ::RegSetKeyValueW(HKEY_CURRENT_USER, kPath, name, type, data, sizeBytes);
    }

private:
    static void Delete()
    {
        ::RegDeleteKeyW(HKEY_CURRENT_USER, kPath);
    }
};
} // namespace velt::test
