#pragma once

#include <windows.h>

namespace velt::test
{
/// The user's choice of dark programs, as long as it lives. They are told by WM_SETTINGCHANGE.
class DarkChoice
{
public:
    DarkChoice()
    {
        Set(0);
    }

    DarkChoice(const DarkChoice&) = delete;
    DarkChoice& operator=(const DarkChoice&) = delete;

    ~DarkChoice()
    {
        Set(1);
    }

private:
    static void Set(DWORD light)
    {
        ::RegSetKeyValueW(HKEY_CURRENT_USER,
                          L"Software\\Microsoft\\Windows\\CurrentVersion\\Themes\\Personalize",
                          L"AppsUseLightTheme", REG_DWORD, &light, sizeof(light));
    }
};
} // namespace velt::test
