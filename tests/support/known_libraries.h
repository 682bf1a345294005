#pragma once

#include <windows.h>

#include <algorithm>
#include <array>
#include <cwctype>
#include <set>
#include <string>

namespace velt::test
{
/// What the component and its programs import at their start, by file name, the common controls
/// aside: known libraries of every Windows that they are for.
inline constexpr const wchar_t* kImportedLibraries[] = {
    L"advapi32.dll", L"comdlg32.dll", L"gdi32.dll",   L"kernel32.dll", L"msvcrt.dll",
    L"ole32.dll",    L"oleaut32.dll", L"shell32.dll", L"user32.dll"};

inline std::wstring LowerCase(std::wstring text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](wchar_t c) { return static_cast<wchar_t>(std::towlower(c)); });
    return text;
}

/// The file names of the libraries that the system takes from nowhere but its own folder. Empty on
/// a system without them.
inline std::set<std::wstring> KnownLibraries()
{
    std::set<std::wstring> names;
    HKEY key = nullptr;
    if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE,
                        L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\KnownDLLs", 0,
                        KEY_QUERY_VALUE, &key) != ERROR_SUCCESS)
    {
        return names;
    }
    LSTATUS error = ERROR_SUCCESS;
    for (DWORD i = 0; error == ERROR_SUCCESS; ++i)
    {
        std::array<wchar_t, 256> name{};
        std::array<wchar_t, MAX_PATH> file{}; // the end of its text is in any case there
        DWORD nameLength = static_cast<DWORD>(name.size());
        DWORD size = static_cast<DWORD>(sizeof(file) - sizeof(wchar_t));
        error = ::RegEnumValueW(key, i, name.data(), &nameLength, nullptr, nullptr,
                                reinterpret_cast<BYTE*>(file.data()), &size);
        if (error == ERROR_SUCCESS)
        {
            names.insert(LowerCase(file.data()));
        }
    }
    ::RegCloseKey(key);
    return names;
}
} // namespace velt::test
