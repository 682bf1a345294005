#pragma once

#include <windows.h>

#include <string>

namespace velt::test
{
/// A library file that holds one message text and nothing else; it is deleted at the end. A file
/// that exists already is left alone: the constructor throws std::runtime_error then, and when it
/// cannot write.
class MessageModule
{
public:
    MessageModule(std::wstring path, DWORD id, const std::wstring& text);

    MessageModule(const MessageModule&) = delete;
    MessageModule& operator=(const MessageModule&) = delete;

    ~MessageModule();

    const std::wstring& Path() const noexcept
    {
        return m_path;
    }

private:
    std::wstring m_path;
};

/// The full paths of a file in the system directory and of one beside this program.
std::wstring InSystemFolder(const std::wstring& name);
std::wstring BesideProgram(const std::wstring& name);
} // namespace velt::test
