#include "tools/common/output_file.h"

#include "foundation/system_exception.h"

namespace velt
{
namespace
{
/// Makes a file that nobody else has, in the folder of another one; its path comes out too.
UniqueFile MakeBeside(const std::wstring& path, std::wstring& newPath)
{
    const std::wstring begin = path.substr(0, path.find_last_of(L"\\/:") + 1) + L"velt-" +
                               std::to_wstring(::GetCurrentProcessId()) + L"-";
    for (unsigned number = 1;; ++number)
    {
        newPath = begin + std::to_wstring(number) + L".part";
        UniqueFile file(::CreateFileW(newPath.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                      CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
        if (file)
        {
            return file;
        }
        if (::GetLastError() != ERROR_FILE_EXISTS)
        {
            ThrowLastError();
        }
    }
}
} // namespace

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
    std::wstring newPath;
    m_file = MakeBeside(path, newPath);
    m_newPath = std::move(newPath);
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
