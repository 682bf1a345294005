#include "tools/trace/output_file.h"

#include "foundation/system_exception.h"

#include <algorithm>

namespace velt
{
void WriteAll(HANDLE file, std::string_view bytes)
{
    constexpr std::size_t kMost = std::size_t{1} << 20; // of one call
    while (!bytes.empty())
    {
        DWORD written = 0;
        const auto size = static_cast<DWORD>(std::min(bytes.size(), kMost));
        if (!::WriteFile(file, bytes.data(), size, &written, nullptr))
        {
            ThrowLastError();
        }
        if (written == 0)
        {
            throw SystemException::Win32(ERROR_WRITE_FAULT);
        }
        bytes.remove_prefix(written);
    }
}

OutputFile::OutputFile(const std::wstring& path) : m_path(path)
{
    m_file.Reset(::CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                               FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!m_file)
    {
        // One that cannot be written must not be replaced either.
        const DWORD error = ::GetLastError();
        if (error != ERROR_FILE_NOT_FOUND)
        {
            throw SystemException::Win32(error);
        }
    }
    else if (::GetFileType(m_file.Get()) != FILE_TYPE_DISK)
    {
        return;
    }
    m_file.Reset();
    const std::wstring newPath = path + L".new-" + std::to_wstring(::GetCurrentProcessId());
    m_file.Reset(::CreateFileW(newPath.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                               CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!m_file)
    {
        ThrowLastError();
    }
    m_newPath = newPath;
}

OutputFile::~OutputFile()
{
    m_file.Reset();
    if (!m_newPath.empty())
    {
        ::DeleteFileW(m_newPath.c_str());
    }
}

void OutputFile::Commit()
{
    m_file.Reset();
    if (!m_newPath.empty() && !::MoveFileExW(m_newPath.c_str(), m_path.c_str(),
                                             MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
    {
        ThrowLastError();
    }
    m_newPath.clear();
}
} // namespace velt
