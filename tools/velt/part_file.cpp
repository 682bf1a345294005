#include "tools/velt/part_file.h"

#include "tools/velt/command_context.h"

#include <algorithm>

namespace velt::tool
{
PartFile::PartFile(std::wstring path)
    : m_path(std::move(path)),
      m_partPath(m_path + L".part"),
      m_file(::CreateFileW(m_partPath.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                           FILE_ATTRIBUTE_NORMAL, nullptr))
{
    if (!m_file)
    {
        throw LastFailure(m_partPath);
    }
}

PartFile::~PartFile()
{
    if (m_file)
    {
        m_file.Reset();
        ::DeleteFileW(m_partPath.c_str());
    }
}

void PartFile::Write(const void* bytes, std::size_t count)
{
    constexpr std::size_t kMostBytes = std::size_t{1} << 20;
    const auto* from = static_cast<const char*>(bytes);
    while (count > 0)
    {
        DWORD written = 0;
        if (!::WriteFile(m_file.Get(), from, static_cast<DWORD>(std::min(count, kMostBytes)),
                         &written, nullptr))
        {
            throw LastFailure(m_path);
        }
        if (written == 0)
        {
            throw CommandFailure{HRESULT_FROM_WIN32(ERROR_DISK_FULL), m_path};
        }
        from += written;
        count -= written;
    }
}

void PartFile::Complete()
{
    m_file.Reset();
    if (!::MoveFileExW(m_partPath.c_str(), m_path.c_str(), MOVEFILE_REPLACE_EXISTING))
    {
        CommandFailure failure = LastFailure(m_path);
        ::DeleteFileW(m_partPath.c_str());
        throw failure;
    }
}
} // namespace velt::tool
