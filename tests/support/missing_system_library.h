#pragma once

#include "tests/support/message_module.h"

#include <windows.h>

#include <stdexcept>
#include <string>

namespace velt::test
{
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
