#pragma once

#include "foundation/unique_handle.h"

#include <windows.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace velt
{
/// INVALID_HANDLE_VALUE stands for none.
struct FileTraits
{
    using Type = HANDLE;

    static Type Invalid() noexcept
    {
        return INVALID_HANDLE_VALUE;
    }

    static void Close(Type handle) noexcept
    {
        ::CloseHandle(handle);
    }
};
using UniqueFile = UniqueHandle<FileTraits>;

/// Writes every byte. Throws SystemException::Win32.
void WriteAll(HANDLE file, std::string_view bytes);

/// A file that is written from the start. Until Commit what is at its path stays as it was: the
/// bytes go into a new file beside it, which takes its place then, and is gone without. Only where
/// the path names no file of a disk but a device, they go there at once. Failures throw
/// SystemException::Win32.
class OutputFile
{
public:
    explicit OutputFile(const std::wstring& path);

    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    ~OutputFile();

    void Write(std::string_view bytes)
    {
        WriteAll(m_file.Get(), bytes);
    }

    /// The last call.
    void Commit();

private:
    std::wstring m_path;
    std::wstring m_newPath; // empty for a device and after Commit
    UniqueFile m_file;
};
} // namespace velt
