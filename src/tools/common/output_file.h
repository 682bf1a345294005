#pragma once

#include "foundation/unique_file.h"
#include "tools/common/write_all.h"

#include <windows.h>

#include <string>
#include <string_view>

namespace velt
{
/// A file that is written from the start. Until Commit what is at its path stays as it was: the
/// bytes go into a new file of its own in the same folder, "velt-<process>-<number>.part", which
/// takes its place then, and is gone without. Only where the path names no file of a disk but a
/// device, they go there at once. Failures throw SystemException::Win32.
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
