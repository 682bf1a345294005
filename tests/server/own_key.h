#pragma once

#include "tests/support/registry_operations.h"
#include "tests/support/registry_snapshot.h"

#include <windows.h>

#include <string>
#include <utility>

namespace velt::test
{
/// A key of the test's own in HKEY_CURRENT_USER, not there at first and removed at the end, and
/// operations on it.
class OwnKey
{
public:
    static constexpr wchar_t kPath[] = L"Software\\VeltTestKey"; // below whichever root

    OwnKey()
    {
        ::RegDeleteTreeW(HKEY_CURRENT_USER, kPath);
    }

    OwnKey(const OwnKey&) = delete;
    OwnKey& operator=(const OwnKey&) = delete;

    ~OwnKey()
    {
        ::RegDeleteTreeW(HKEY_CURRENT_USER, kPath);
    }

    static std::wstring Path(const std::wstring& below = {})
    {
        return below.empty() ? kPath : kPath + (L'\\' + below);
    }

    static RegistryOperation Create(const std::wstring& below = {})
    {
        return CreateKey(Path(below), RegistryRoot::currentUser);
    }

    static RegistryOperation Delete(const std::wstring& below = {})
    {
        return DeleteTree(Path(below), RegistryRoot::currentUser);
    }

    static RegistryOperation Set(const std::wstring& name, RegistryOperation::Value value)
    {
        return SetValue(Path(), name, std::move(value), RegistryRoot::currentUser);
    }

    static RegistryTree Written()
    {
        return SnapshotRegistry(HKEY_CURRENT_USER, kPath);
    }
};
} // namespace velt::test
