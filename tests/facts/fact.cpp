#include "tests/facts/fact.h"

namespace velt::facts
{
void WriteBytes(const wchar_t* name, std::string_view bytes)
{
    std::FILE* file = ::_wfopen(name, L"wb");
    Need(file, "a file cannot be written");
    const bool whole = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    Need(std::fclose(file) == 0 && whole, "a file cannot be written");
}

std::string FileText(const wchar_t* name)
{
    std::string text;
    if (std::FILE* file = ::_wfopen(name, L"rb"))
    {
        std::array<char, 4096> part{};
        text.assign(part.data(), std::fread(part.data(), 1, part.size(), file));
        std::fclose(file);
    }
    return text;
}

std::wstring FullPath(const wchar_t* name)
{
    std::array<wchar_t, MAX_PATH> path{};
    ::GetFullPathNameW(name, static_cast<DWORD>(path.size()), path.data(), nullptr);
    return path.data();
}

void DeleteClassesKey(const wchar_t* path)
{
    for (const HKEY root : {HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE})
    {
        for (const REGSAM view : {REGSAM{KEY_WOW64_32KEY}, REGSAM{KEY_WOW64_64KEY}})
        {
            HKEY classes = nullptr;
            if (::RegOpenKeyExW(root, L"Software\\Classes", 0,
                                KEY_ENUMERATE_SUB_KEYS | KEY_QUERY_VALUE | KEY_SET_VALUE | DELETE |
                                    view,
                                &classes) == ERROR_SUCCESS)
            {
                ::RegDeleteTreeW(classes, path);
                // The other view by its place: not each system opens it below a key of a view.
                ::RegDeleteTreeW(classes, (std::wstring(L"Wow6432Node\\") + path).c_str());
                ::RegCloseKey(classes);
            }
        }
    }
    if (IsWine())
    {
        // A key that has keys stays.
        for (const wchar_t* key :
             {L"Software\\Classes\\CLSID", L"Software\\Classes\\Interface",
              L"Software\\Classes\\TypeLib", L"Software\\Classes\\Component Categories",
              L"Software\\Classes"})
        {
            ::RegDeleteKeyW(HKEY_CURRENT_USER, key);
        }
    }
}

void UndoFactLibrary()
{
    DeleteClassesKey(L"TypeLib\\{6C4E9F52-8D0B-4B0E-9A43-5E1B7C0D2A61}");
    DeleteClassesKey(L"Interface\\{6C4E9F53-8D0B-4B0E-9A43-5E1B7C0D2A61}");
}
} // namespace velt::facts
