#pragma once

#include <windows.h>

#include <map>
#include <string>
#include <vector>

namespace velt::test
{
/// One value as it lies in the registry.
struct RegistryValue
{
    DWORD type;
    std::vector<BYTE> data;

    bool operator==(const RegistryValue&) const = default;
};

/// A REG_SZ with its final NUL.
RegistryValue TextValue(const std::wstring& text);

/// The values of one key by their names; the default value's name is empty.
using RegistryValues = std::map<std::wstring, RegistryValue>;

/// Keys by their paths, each with its values. Paths and names are compared as they are written.
using RegistryTree = std::map<std::wstring, RegistryValues>;

/// Everything below a key, by paths relative to it; "" is the key itself. Empty when there is none.
/// Throws std::runtime_error when a key cannot be read.
RegistryTree SnapshotRegistry(HKEY root, const std::wstring& path = {});

/// Makes what is below a key what it was at the snapshot: only what differs is touched. What may
/// not be written stays.
void RestoreRegistry(HKEY root, const std::wstring& path, const RegistryTree& before);

/// The same for the values of the key itself alone.
void RestoreValues(HKEY root, const std::wstring& path, const RegistryValues& before);

/// What differs, one line a key or value: "+ key", "- key", "~ key [value]". For messages.
std::string RegistryDifference(const RegistryTree& before, const RegistryTree& after);

/// Denies everybody some access to a key until the end of the scope: to write in it, unless another
/// one is named. The key must exist.
class DeniedKey
{
public:
    DeniedKey(HKEY root, const wchar_t* path, REGSAM access = KEY_SET_VALUE | KEY_CREATE_SUB_KEY);

    DeniedKey(const DeniedKey&) = delete;
    DeniedKey& operator=(const DeniedKey&) = delete;

    ~DeniedKey();

private:
    void SetAccess(REGSAM denied);

    HKEY m_key = nullptr;
};
} // namespace velt::test
