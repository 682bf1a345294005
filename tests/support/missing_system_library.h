#pragma once

#include "tests/support/message_module.h"

#include <windows.h>

#include <stdexcept>
#include <string>

namespace velt::test
{
/// Has a program of this file name take a file for a library of the system that is named like one.
/// Windows does so anyway; Wine would rather have its own. For the rest of the prefix's life.
inline void PreferFiles(const std::wstring& program, const std::wstring& library)
{
    const std::wstring key = L"Software\\Wine\\AppDefaults\\" + program + L"\\DllOverrides";
    const std::wstring native = L"native,builtin";
    if (::RegSetKeyValueW(HKEY_CURRENT_USER, key.c_str(),
                          library.substr(0, library.find(L'.')).c_str(), REG_SZ, native.c_str(),
                          static_cast<DWORD>((native.size() + 1) * sizeof(wchar_t))) !=
        ERROR_SUCCESS)
    {
        throw std::runtime_error("the order of libraries cannot be set");
    }
}

/// Takes a library out of the system's folder until the end of the scope, or until it is put back.
/// Whoever has it loaded keeps it. Throws std::runtime_error.
class MissingSystemLibrary
{
public:
    explicit MissingSystemLibrary(const std::wstring& name)
        : m_path(InSystemFolder(name)),
          m_hidden(m_path + L".hidden")
    {
        if (!::MoveFileW(m_path.c_str(), m_hidden.c_str()))
        {
            throw std::runtime_error("the system's library cannot be moved");
        }
    }

    MissingSystemLibrary(const MissingSystemLibrary&) = delete;
    MissingSystemLibrary& operator=(const MissingSystemLibrary&) = delete;

    ~MissingSystemLibrary()
    {
        PutBack();
    }

    void PutBack() noexcept
    {
        ::MoveFileW(m_hidden.c_str(), m_path.c_str()); // fails when it is back already
    }

private:
    std::wstring m_path;
    std::wstring m_hidden;
};
} // namespace velt::test
