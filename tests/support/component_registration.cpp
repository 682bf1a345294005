#include "tests/support/component_registration.h"

#include "tests/support/edition.h"

#include <array>
#include <string_view>
#include <utility>

namespace velt::test
{
namespace
{
constexpr wchar_t kAppId[] = L"{0808C913-0251-4F8F-9EB2-5EF1D9FFD5DC}";
constexpr wchar_t kTypeLibrary[] = L"{AB6A43CE-5CEE-40EE-9AD0-A7AA608DBB6C}";

struct ClassKeys
{
    const wchar_t* clsid;
    const wchar_t* classKey;
    const wchar_t* progId;
    const wchar_t* versionedProgId;
    const wchar_t* description;
    const wchar_t* threadingModel;
};
constexpr std::array<ClassKeys, 3> kClasses = {{
    {L"{5A6B579B-3C37-4A16-A3A5-F6C72FA15C40}", L"CLSID\\{5A6B579B-3C37-4A16-A3A5-F6C72FA15C40}",
     L"VeltHTTPClient.VeltHTTPService12OEM", L"VeltHTTPClient.VeltHTTPService12OEM.2",
     L"VeltHTTPService Class", L"Free"},
    {L"{344E0DAC-547C-47B5-A1A0-FF9A9C193352}", L"CLSID\\{{344E0DAC-547C-47B5-A1A0-FF9A9C193352}}",
     L"VeltHTTPClient.EnumVariantCol12OEM", L"VeltHTTPClient.EnumVariantCol12OEM.2",
     L"EnumVariantCol Class", L"Apartment"},
    {L"{E9F9957F-AE23-4BBC-A97D-9815EA6E4C83}", L"CLSID\\{E9F9957F-AE23-4BBC-A97D-9815EA6E4C83}",
     L"VeltHTTPClientX.VeltEulaDlg12OEM", L"VeltHTTPClientX.VeltEulaDlg12OEM.1",
     L"VeltEulaDlg Class", L"Both"},
}};

struct InterfaceKeys
{
    const wchar_t* iid;
    const wchar_t* name;
    const wchar_t* marshaler;
};
constexpr wchar_t kAutomationMarshaler[] = L"{00020424-0000-0000-C000-000000000046}";
constexpr wchar_t kDispatchMarshaler[] = L"{00020420-0000-0000-C000-000000000046}";
constexpr std::array<InterfaceKeys, 4> kInterfaces = {{
    {L"{E80BEAE1-D86E-4EF7-9780-53657BFF68C6}", L"IVeltHTTPService", kAutomationMarshaler},
    {L"{7CCEC608-9BBD-42AC-BD9C-DD84955B61FF}", L"IVeltHTTPServiceEvents", kDispatchMarshaler},
    {L"{3F5FB31D-9A73-4C69-BC12-5544993222AA}", L"IEnumVariantCol", kAutomationMarshaler},
    {L"{BB98678D-21E9-478C-9103-B163FFE269E5}", L"IVeltEulaDlg", kAutomationMarshaler},
}};

std::vector<std::wstring> OwnKeys()
{
    std::vector<std::wstring> keys = {
        std::wstring(L"AppID\\") + kAppId, L"AppID\\VeltHTTPClient12OEM.DLL",
        std::wstring(L"TypeLib\\") + kTypeLibrary,
        L"CLSID\\{344E0DAC-547C-47B5-A1A0-FF9A9C193352}"}; // never written: its braces are doubled
    for (const ClassKeys& row : kClasses)
    {
        keys.insert(keys.end(), {row.classKey, row.progId, row.versionedProgId});
    }
    const std::vector<std::wstring> interfaces = OwnInterfaceKeys();
    keys.insert(keys.end(), interfaces.begin(), interfaces.end());
    return keys;
}

std::wstring Below(const std::wstring& path, const std::wstring& key)
{
    return path.empty() || key.empty() ? path + key : path + L'\\' + key;
}

/// The type library's FLAGS without the one for "has a disk image", which Windows leaves out and
/// Wine writes.
void EvenOutFlags(RegistryValues& values)
{
    const auto found = values.find(L"");
    if (found != values.end() && found->second == TextValue(L"8"))
    {
        found->second = TextValue(L"0");
    }
}

/// What 64-bit Windows keeps for programs of 32 bits. Some of it is the very keys of all others,
/// and the interfaces of a type library are written to both.
constexpr std::wstring_view kOtherView = L"Wow6432Node\\";

RegistryTree EvenedOut(const RegistryTree& tree)
{
    // Wine's names of keys, and Windows'.
    constexpr std::pair<std::wstring_view, std::wstring_view> kNames[] = {{L"Typelib", L"TypeLib"},
                                                                          {L"AppId", L"AppID"}};
    RegistryTree result;
    for (const auto& [treePath, treeValues] : tree)
    {
        const std::size_t view = treePath.starts_with(kOtherView) ? kOtherView.size() : 0;
        std::wstring path = treePath.substr(view);
        RegistryValues values = treeValues;
        for (const auto& [from, to] : kNames)
        {
            if (path.starts_with(from))
            {
                path.replace(0, from.size(), to);
            }
        }
        if (path == std::wstring(L"TypeLib\\") + kTypeLibrary + L"\\1.0\\FLAGS")
        {
            EvenOutFlags(values);
        }
        bool own16BitProxy = false;
        for (const InterfaceKeys& row : kInterfaces)
        {
            own16BitProxy |= path == std::wstring(L"Interface\\") + row.iid + L"\\ProxyStubClsid";
        }
        if (!own16BitProxy)
        {
            result.emplace(treePath.substr(0, view) + path, std::move(values));
        }
    }
    return ViewsOnce(std::move(result));
}
} // namespace

std::vector<std::wstring> OwnInterfaceKeys()
{
    std::vector<std::wstring> keys;
    for (const InterfaceKeys& row : kInterfaces)
    {
        keys.push_back(std::wstring(L"Interface\\") + row.iid);
    }
    return keys;
}

RegistryTree ExpectedClassKeys(const std::wstring& library)
{
    RegistryTree tree;
    tree[std::wstring(L"AppID\\") + kAppId][L""] = TextValue(L"VeltHTTPClient");
    tree[L"AppID\\VeltHTTPClient12OEM.DLL"][L"AppID"] = TextValue(kAppId);
    for (const ClassKeys& row : kClasses)
    {
        const std::wstring versioned = row.versionedProgId;
        tree[versioned][L""] = TextValue(row.description);
        tree[versioned + L"\\CLSID"][L""] = TextValue(row.clsid);
        const std::wstring progId = row.progId;
        tree[progId][L""] = TextValue(row.description);
        tree[progId + L"\\CLSID"][L""] = TextValue(row.clsid);
        tree[progId + L"\\CurVer"][L""] = TextValue(versioned);
        const std::wstring key = row.classKey;
        tree[key][L""] = TextValue(row.description);
        tree[key + L"\\ProgID"][L""] = TextValue(versioned);
        tree[key + L"\\VersionIndependentProgID"][L""] = TextValue(progId);
        tree[key + L"\\Programmable"] = {};
        tree[key + L"\\InprocServer32"] = {{L"", TextValue(library)},
                                           {L"ThreadingModel", TextValue(row.threadingModel)}};
        tree[key + L"\\TypeLib"][L""] = TextValue(kTypeLibrary);
    }
    return tree;
}

RegistryTree ExpectedTypeLibraryKeys(const std::wstring& library)
{
    RegistryTree tree;
    const std::wstring key = std::wstring(L"TypeLib\\") + kTypeLibrary;
    tree[key] = {};
    tree[key + L"\\1.0"][L""] = TextValue(L"VeltHTTPClient 1.0 Type Library");
    tree[key + L"\\1.0\\0"] = {};
    tree[key + L"\\1.0\\0\\" + kEdition.system][L""] = TextValue(library);
    tree[key + L"\\1.0\\FLAGS"][L""] = TextValue(L"0");
    tree[key + L"\\1.0\\HELPDIR"][L""] = TextValue(library.substr(0, library.rfind(L'\\')));
    for (const InterfaceKeys& row : kInterfaces)
    {
        const std::wstring path = std::wstring(L"Interface\\") + row.iid;
        tree[path][L""] = TextValue(row.name);
        tree[path + L"\\ProxyStubClsid32"][L""] = TextValue(row.marshaler);
        tree[path + L"\\TypeLib"] = {{L"", TextValue(kTypeLibrary)},
                                     {L"Version", TextValue(L"1.0")}};
    }
    return tree;
}

std::vector<std::wstring> OwnClassesKeys()
{
    std::vector<std::wstring> keys = OwnKeys();
    for (const std::wstring& key : OwnKeys())
    {
        keys.push_back(kOtherView.data() + key);
    }
    return keys;
}

RegistryTree ComponentKeys(HKEY root, const std::wstring& path)
{
    RegistryTree tree;
    for (const std::wstring& key : OwnKeys())
    {
        for (auto& [below, values] : SnapshotRegistry(root, Below(path, key)))
        {
            tree.emplace(Below(key, below), values);
        }
    }
    return EvenedOut(tree);
}

RegistryTree AllClassesKeys(HKEY root, const std::wstring& path)
{
    return EvenedOut(SnapshotRegistry(root, path));
}

RegistryTree ViewsOnce(RegistryTree tree)
{
    const auto lowered = [](std::wstring path) {
        ::CharLowerBuffW(path.data(), static_cast<DWORD>(path.size()));
        return path;
    };
    RegistryTree own;
    for (const auto& [path, values] : tree)
    {
        own.emplace(lowered(path), values);
    }
    std::erase_if(tree, [&](const auto& entry) {
        const auto& [path, values] = entry;
        const auto found = path.starts_with(kOtherView)
                               ? own.find(lowered(path.substr(kOtherView.size())))
                               : own.end();
        return found != own.end() && found->second == values;
    });
    return tree;
}

void DeleteComponentKeys(HKEY root, const std::wstring& path)
{
    for (const std::wstring& key : OwnClassesKeys())
    {
        ::RegDeleteTreeW(root, Below(path, key).c_str());
    }
}

RegistryTree Merge(RegistryTree first, const RegistryTree& second)
{
    for (const auto& [path, values] : second)
    {
        first.insert_or_assign(path, values);
    }
    return first;
}
} // namespace velt::test
