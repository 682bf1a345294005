#include "tests/support/registry_snapshot.h"

#include "foundation/reg_key.h"
#include "foundation/wide_text.h"

#include <array>
#include <stdexcept>
#include <utility>

namespace velt::test
{
namespace
{
void Check(LSTATUS error, const char* what)
{
    if (error != ERROR_SUCCESS)
    {
        throw std::runtime_error(std::string(what) + ": error " + std::to_string(error));
    }
}

/// How much there is in a key: asked once, because each question goes to another process.
struct KeyExtent
{
    DWORD keyCount = 0;
    DWORD longestKeyLength = 0;
    DWORD valueCount = 0;
    DWORD longestNameLength = 0;
    DWORD largestDataBytes = 0;
};

KeyExtent ExtentOf(HKEY key)
{
    KeyExtent extent;
    Check(::RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &extent.keyCount,
                             &extent.longestKeyLength, nullptr, &extent.valueCount,
                             &extent.longestNameLength, &extent.largestDataBytes, nullptr, nullptr),
          "a key's extent");
    return extent;
}

RegistryValues ReadValues(HKEY key, const KeyExtent& extent)
{
    RegistryValues values;
    std::wstring name(extent.longestNameLength + 1, L'\0');
    for (DWORD index = 0; index < extent.valueCount; ++index)
    {
        auto length = static_cast<DWORD>(name.size());
        DWORD size = extent.largestDataBytes;
        RegistryValue value{0, std::vector<BYTE>(size)};
        Check(::RegEnumValueW(key, index, name.data(), &length, nullptr, &value.type,
                              value.data.data(), &size),
              "a value");
        value.data.resize(size);
        values.emplace(name.substr(0, length), std::move(value));
    }
    return values;
}

void ReadTree(HKEY key, const std::wstring& path, RegistryTree& tree)
{
    const KeyExtent extent = ExtentOf(key);
    tree.emplace(path, ReadValues(key, extent));
    std::wstring name(extent.longestKeyLength + 1, L'\0');
    for (DWORD index = 0; index < extent.keyCount; ++index)
    {
        auto length = static_cast<DWORD>(name.size());
        Check(::RegEnumKeyExW(key, index, name.data(), &length, nullptr, nullptr, nullptr, nullptr),
              "a key's name");
        CRegKeyW child;
        Check(child.Open(key, name.c_str(), KEY_READ), "a key");
        ReadTree(child.GetKey(), path.empty() ? name.c_str() : path + L'\\' + name.c_str(), tree);
    }
}
} // namespace

RegistryValue TextValue(const std::wstring& text)
{
    const auto* const bytes = reinterpret_cast<const BYTE*>(text.c_str());
    return {REG_SZ, {bytes, bytes + (text.size() + 1) * sizeof(wchar_t)}};
}

RegistryTree SnapshotRegistry(HKEY root, const std::wstring& path)
{
    RegistryTree tree;
    CRegKeyW key;
    const LSTATUS error = key.Open(root, path.c_str(), KEY_READ);
    if (error != ERROR_FILE_NOT_FOUND)
    {
        Check(error, "key of a snapshot");
        ReadTree(key.GetKey(), {}, tree);
    }
    return tree;
}

void RestoreValues(HKEY root, const std::wstring& path, const RegistryValues& before)
{
    CRegKeyW key;
    if (key.Create(root, path.c_str()) != ERROR_SUCCESS)
    {
        return;
    }
    const RegistryValues now = ReadValues(key.GetKey(), ExtentOf(key.GetKey()));
    for (const auto& [name, value] : now)
    {
        if (!before.contains(name))
        {
            ::RegDeleteValueW(key.GetKey(), name.c_str());
        }
    }
    for (const auto& [name, value] : before)
    {
        const auto found = now.find(name);
        if (found == now.end() || found->second != value)
        {
            ::RegSetValueExW(key.GetKey(), name.c_str(), 0, value.type, value.data.data(),
                             static_cast<DWORD>(value.data.size()));
        }
    }
}

void RestoreRegistry(HKEY root, const std::wstring& path, const RegistryTree& before)
{
    const auto full = [&](const std::wstring& below) {
        return below.empty() ? path : path + L'\\' + below;
    };
    const RegistryTree now = SnapshotRegistry(root, path);
    for (const auto& [below, values] : now)
    {
        if (!before.contains(below))
        {
            ::RegDeleteTreeW(root, full(below).c_str()); // again for those below it
        }
    }
    for (const auto& [below, values] : before)
    {
        const auto found = now.find(below);
        if (found == now.end() || found->second != values)
        {
            RestoreValues(root, full(below), values);
        }
    }
}

std::string RegistryDifference(const RegistryTree& before, const RegistryTree& after)
{
    std::wstring text;
    for (const auto& [path, values] : before)
    {
        if (!after.contains(path))
        {
            text += L"- " + path + L'\n';
        }
    }
    for (const auto& [path, values] : after)
    {
        const auto old = before.find(path);
        if (old == before.end())
        {
            text += L"+ " + path + L'\n';
        }
        RegistryValues names = values;
        if (old != before.end())
        {
            names.insert(old->second.begin(), old->second.end());
        }
        for (const auto& [name, any] : names)
        {
            const auto is = values.find(name);
            const auto was =
                old == before.end() ? RegistryValues::const_iterator{} : old->second.find(name);
            const bool existed = old != before.end() && was != old->second.end();
            if (is == values.end() || !existed || is->second != was->second)
            {
                text += L"~ " + path + L" [" + name + L"]";
                if (is != values.end() && is->second.type == REG_SZ)
                {
                    // As a C text: without its final NUL, which would end the message.
                    text += L" = ";
                    text += reinterpret_cast<const wchar_t*>(is->second.data.data());
                }
                text += L'\n';
            }
        }
    }
    return Utf8FromWide(text);
}

DeniedKey::DeniedKey(HKEY root, const wchar_t* path, REGSAM access)
{
    Check(::RegOpenKeyExW(root, path, 0, KEY_ALL_ACCESS, &m_key), "key to deny");
    SetAccess(access);
}

DeniedKey::~DeniedKey()
{
    SetAccess(0);
    ::RegCloseKey(m_key);
}

void DeniedKey::SetAccess(REGSAM denied)
{
    std::array<BYTE, SECURITY_MAX_SID_SIZE> everybody{};
    auto size = static_cast<DWORD>(everybody.size());
    ::CreateWellKnownSid(WinWorldSid, nullptr, everybody.data(), &size);
    alignas(DWORD) std::array<BYTE, 256> space{};
    auto* const list = reinterpret_cast<ACL*>(space.data());
    ::InitializeAcl(list, static_cast<DWORD>(space.size()), ACL_REVISION);
    if (denied != 0)
    {
        ::AddAccessDeniedAce(list, ACL_REVISION, denied, everybody.data());
    }
    ::AddAccessAllowedAceEx(list, ACL_REVISION, CONTAINER_INHERIT_ACE, KEY_ALL_ACCESS,
                            everybody.data());
    SECURITY_DESCRIPTOR descriptor{};
    ::InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
    ::SetSecurityDescriptorDacl(&descriptor, TRUE, list, FALSE);
    Check(::RegSetKeySecurity(m_key, DACL_SECURITY_INFORMATION, &descriptor), "security of a key");
}
} // namespace velt::test
