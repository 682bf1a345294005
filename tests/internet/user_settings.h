#pragma once

#include "internet/internet_settings.h"

#include <windows.h>

#include <stdexcept>
#include <string>

namespace velt::test
{
/// The values of the user's settings that the layer reads, none of them there at first, and gone at
/// the end. For test programs with a registry of their own.
class UserSettings
{
public:
    static constexpr wchar_t kLegacyKey[] =
        L"SOFTWARE\\Lumenfield Technologies\\Quillplayer\\Internet";

    UserSettings()
    {
        Clear();
    }

    UserSettings(const UserSettings&) = delete;
    UserSettings& operator=(const UserSettings&) = delete;

    ~UserSettings()
    {
        Clear();
    }

    /// Makes the key when it is missing.
    void Set(const wchar_t* key, const wchar_t* name, DWORD type, const void* data, DWORD size)
    {
        const LSTATUS error = ::RegSetKeyValueW(HKEY_CURRENT_USER, key, name, type, data, size);
        if (error != ERROR_SUCCESS)
        {
            throw std::runtime_error("the value cannot be written");
        }
    }

    void SetText(const wchar_t* key, const wchar_t* name, const std::wstring& text,
                 DWORD type = REG_SZ)
    {
        Set(key, name, type, text.c_str(), static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
    }

    void SetNumber(const wchar_t* key, const wchar_t* name, DWORD number)
    {
        Set(key, name, REG_DWORD, &number, sizeof(number));
    }

    void SetLegacyProxy(const std::wstring& text)
    {
        SetText(kLegacyKey, L"proxy", text);
    }

    void SetSystemProxy(const std::wstring& text, DWORD enabled = 1)
    {
        SetText(kInternetSettingsKey, L"ProxyServer", text);
        SetNumber(kInternetSettingsKey, L"ProxyEnable", enabled);
    }

private:
    static void Clear() noexcept
    {
        ::RegDeleteTreeW(HKEY_CURRENT_USER, L"SOFTWARE\\Lumenfield Technologies");
        for (const wchar_t* const name :
             {L"ProxyEnable", L"ProxyServer", L"User-Agent", L"UserAgent", L"User Agent", L"Velt"})
        {
            ::RegDeleteKeyValueW(HKEY_CURRENT_USER, kInternetSettingsKey, name);
        }
    }
};
} // namespace velt::test
