#include "tests/support/temp_folder.h"

#include "foundation/unique_file.h"

#include <windows.h>

#include <array>
#include <stdexcept>

namespace velt::test
{
void RemoveFolder(const std::wstring& path) // NOLINT(misc-no-recursion): as deep as the folders
{
    constexpr DWORD kKind = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
    WIN32_FIND_DATAW found{};
    const HANDLE search = ::FindFirstFileW((path + L"\\*").c_str(), &found);
    if (search != INVALID_HANDLE_VALUE)
    {
        do
        {
            const std::wstring name = found.cFileName;
            std::wstring entry = path;
            entry.append(L"\\").append(name);
            if (name == L"." || name == L"..")
            {
                continue;
            }
            if ((found.dwFileAttributes & kKind) == FILE_ATTRIBUTE_DIRECTORY)
            {
                RemoveFolder(entry);
            }
            else
            {
                if ((found.dwFileAttributes & FILE_ATTRIBUTE_READONLY) != 0)
                {
                    ::SetFileAttributesW(entry.c_str(), FILE_ATTRIBUTE_NORMAL);
                }
                if (!::DeleteFileW(entry.c_str()))
                {
                    ::RemoveDirectoryW(entry.c_str()); // a link to a folder
                }
            }
        } while (::FindNextFileW(search, &found));
        ::FindClose(search);
    }
    ::RemoveDirectoryW(path.c_str());
}

TempFolder::TempFolder(const std::wstring& name)
{
    std::array<wchar_t, MAX_PATH + 1> temp{};
    ::GetTempPathW(static_cast<DWORD>(temp.size()), temp.data());
    static LONG s_count = 0;
    bool isMade = false;
    do // what a run that was ended by force has left is passed over
    {
        m_path = std::wstring(temp.data()) + L"velt-" + std::to_wstring(::GetCurrentProcessId()) +
                 L"-" + std::to_wstring(::InterlockedIncrement(&s_count)) + L"-" + name;
        isMade = ::CreateDirectoryW(m_path.c_str(), nullptr) != FALSE;
    } while (!isMade && ::GetLastError() == ERROR_ALREADY_EXISTS);
    if (!isMade)
    {
        throw std::runtime_error("no temporary folder");
    }
}

TempFolder::~TempFolder()
{
    RemoveFolder(m_path);
}

std::wstring TempFolder::File(const std::wstring& name) const
{
    return m_path + L"\\" + name;
}

void TempFolder::Write(const std::wstring& name, std::string_view bytes) const
{
    const UniqueFile file(::CreateFileW(File(name).c_str(), GENERIC_WRITE, 0, nullptr,
                                        CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD written = 0;
    if (!file ||
        !::WriteFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written,
                     nullptr) ||
        written != bytes.size())
    {
        throw std::runtime_error("a file cannot be written");
    }
}

std::string TempFolder::Read(const std::wstring& name) const
{
    const UniqueFile file(::CreateFileW(File(name).c_str(), GENERIC_READ,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                        0, nullptr));
    std::string text(file ? ::GetFileSize(file.Get(), nullptr) : 0, '\0');
    DWORD read = 0;
    if (file)
    {
        ::ReadFile(file.Get(), text.data(), static_cast<DWORD>(text.size()), &read, nullptr);
    }
    return text;
}
} // namespace velt::test
