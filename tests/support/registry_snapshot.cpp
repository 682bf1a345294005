#include "tests/support/registry_snapshot.h"

#include "foundation/reg_key.h"
#include "foundation/wide_text.h"

#include <array>
#include <stdexcept>

namespace velt::test
{
namespace
{
constexpr DWORD kLongestName = 16'384;

void Check(LSTATUS error, const char* what)
{
    if (error != ERROR_SUCCESS)
    {
        throw std::runtime_error(std::string(what) + ": error " + std::to_string(error));
    }
}

RegistryValues ReadValues(HKEY key)
{
    RegistryValues values;
    std::wstring name(kLongestName, L'\0');
    for (DWORD index = 0;; ++index)
    {
        DWORD length = kLongestName;
        DWORD size = 0;
        RegistryValue value{};
        LSTATUS error =
            ::RegEnumValueW(key, index, name.data(), &length, nullptr, nullptr, nullptr, &size);
        if (error == ERROR_NO_MORE_ITEMS)
        {
            return values;
        }
        Check(error, "size of a value");
        value.data.resize(size);
        length = kLongestName;
        error = ::RegEnumValueW(key, index, name.data(), &length, nullptr, &value.type,
                                value.data.data(), &size);
        Check(error, "a value");
        values.emplace(name.substr(0, length), std::move(value));
    }
}

void ReadTree(HKEY key, const std::wstring& path, RegistryTree& tree)
{
    tree.emplace(path, ReadValues(key));
    std::array<wchar_t, 256> name{};
    for (DWORD index = 0;; ++index)
    {
        auto length = static_cast<DWORD>(name.size());
        const LSTATUS error =
            ::RegEnumKeyExW(key, index, name.data(), &length, nullptr, nullptr, nullptr, nullptr);
        if (error == ERROR_NO_MORE_ITEMS)
        {
            return;
        }
        Check(error, "a key's name");
        CRegKeyW child;
        Check(child.Open(key, name.data(), KEY_READ), "a key");
        ReadTree(child.GetKey(), path.empty() ? name.data() : path + L'\\' + name.data(), tree);
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

DeniedKey::DeniedKey(HKEY root, const wchar_t* path)
{
    Check(::RegOpenKeyExW(root, path, 0, KEY_ALL_ACCESS, &m_key), "key to deny");
    SetAccess(true);
}

DeniedKey::~DeniedKey()
{
    SetAccess(false);
    ::RegCloseKey(m_key);
}

void DeniedKey::SetAccess(bool denied)
{
    std::array<BYTE, SECURITY_MAX_SID_SIZE> everybody{};
    auto size = static_cast<DWORD>(everybody.size());
    ::CreateWellKnownSid(WinWorldSid, nullptr, everybody.data(), &size);
    alignas(DWORD) std::array<BYTE, 256> space{};
    auto* const list = reinterpret_cast<ACL*>(space.data());
    ::InitializeAcl(list, static_cast<DWORD>(space.size()), ACL_REVISION);
    if (denied)
    {
        ::AddAccessDeniedAce(list, ACL_REVISION, KEY_SET_VALUE | KEY_CREATE_SUB_KEY,
                             everybody.data());
    }
    ::AddAccessAllowedAceEx(list, ACL_REVISION, CONTAINER_INHERIT_ACE, KEY_ALL_ACCESS,
                            everybody.data());
    SECURITY_DESCRIPTOR descriptor{};
    ::InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
    ::SetSecurityDescriptorDacl(&descriptor, TRUE, list, FALSE);
    Check(::RegSetKeySecurity(m_key, DACL_SECURITY_INFORMATION, &descriptor), "security of a key");
}
} // namespace velt::test
