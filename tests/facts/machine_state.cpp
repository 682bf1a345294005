#include "tests/facts/machine_state.h"

#include "tests/support/component_registration.h"

#include <stdexcept>
#include <utility>

namespace velt::facts
{
MachineState::MachineState()
{
    constexpr wchar_t kVersion[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\";
    for (const wchar_t* const settings : {L"Internet Settings", L"Themes\\Personalize"})
    {
        const std::wstring path = std::wstring(kVersion) + settings;
        test::RegistryTree tree = test::SnapshotRegistry(HKEY_CURRENT_USER, path);
        (tree.empty() ? m_keys : m_settings).push_back({HKEY_CURRENT_USER, path, std::move(tree)});
    }
    for (const HKEY root : {HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE})
    {
        std::vector<std::wstring> paths{L"Software\\Velt", L"Software\\Lumenfield Technologies",
                                        L"Software\\VeltTestScript", L"Software\\VeltTestWriter"};
        std::vector<std::wstring> classes = test::OwnClassesKeys();
        classes.insert(classes.end(),
                       {L"VeltTest.Script", L"CLSID\\{D8F219B9-D0C0-470C-8210-74650E79D3DC}",
                        L"TypeLib\\{2663C58D-48A0-4625-ADF8-00E46B52380D}"});
        for (const std::wstring& key : classes)
        {
            paths.push_back(std::wstring(test::kUserClasses) + L"\\" + key);
        }
        // Parents that are not there yet are made with what is below them; the lowest come first.
        for (const wchar_t* const parent :
             {L"\\CLSID", L"\\Interface", L"\\TypeLib", L"\\AppID", L"\\Wow6432Node", L""})
        {
            const std::wstring path = std::wstring(test::kUserClasses) + parent;
            HKEY key = nullptr;
            if (::RegOpenKeyExW(root, path.c_str(), 0, KEY_QUERY_VALUE, &key) == ERROR_SUCCESS)
            {
                ::RegCloseKey(key);
            }
            else
            {
                paths.push_back(path);
            }
        }
        for (const std::wstring& path : paths)
        {
            m_keys.push_back({root, path, test::SnapshotRegistry(root, path)});
        }
    }
}

void MachineState::Restore() const
{
    for (int i = 0; i < 100; ++i)
    {
        try
        {
            RestoreOnce();
            return;
        }
        catch (const std::runtime_error&)
        {
            ::Sleep(100); // a key has gone while it was read
        }
    }
}

void MachineState::RestoreOnce() const
{
    for (const Key& key : m_settings)
    {
        test::RestoreValues(key.root, key.path, key.tree.at(L""));
    }
    for (const Key& key : m_keys)
    {
        test::RestoreRegistry(key.root, key.path, key.tree);
    }
}
} // namespace velt::facts
