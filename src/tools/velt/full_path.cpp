#include "tools/velt/full_path.h"

#include "foundation/unique_file.h"
#include "tools/velt/command_context.h"

namespace velt::tool
{
std::wstring FullPath(const std::wstring& path)
{
    std::wstring full(MAX_PATH, L'\0');
    for (;;)
    {
        const DWORD length =
            ::GetFullPathNameW(path.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
        if (length == 0)
        {
            throw LastFailure(path);
        }
        const bool fits = length < full.size();
        full.resize(length);
        if (fits)
        {
            return full;
        }
    }
}

void MakeFolder(const std::wstring& path)
{
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
    {
        return;
    }
    BOOL made = ::CreateDirectoryW(path.c_str(), nullptr);
    const std::size_t end = path.find_last_of(L'\\');
    if (!made && ::GetLastError() == ERROR_PATH_NOT_FOUND && end != path.npos && end > 0)
    {
        MakeFolder(path.substr(0, end));
        made = ::CreateDirectoryW(path.c_str(), nullptr);
    }
    // Another program may have made it meanwhile; at a path's end a backslash may stand.
    if (!made && ::GetLastError() == ERROR_ALREADY_EXISTS)
    {
        const DWORD now = ::GetFileAttributesW(path.c_str());
        made = now != INVALID_FILE_ATTRIBUTES && (now & FILE_ATTRIBUTE_DIRECTORY) != 0;
        ::SetLastError(ERROR_ALREADY_EXISTS);
    }
    if (!made)
    {
        throw LastFailure(path);
    }
}

std::string ReadWholeFile(const std::wstring& path)
{
    const UniqueFile file(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                        OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file)
    {
        throw LastFailure(path);
    }
    constexpr std::size_t kStepBytes = 65536;
    std::string bytes;
    for (;;)
    {
        const std::size_t at = bytes.size();
        bytes.resize(at + kStepBytes);
        DWORD read = 0;
        if (!::ReadFile(file.Get(), bytes.data() + at, kStepBytes, &read, nullptr))
        {
            throw LastFailure(path);
        }
        bytes.resize(at + read);
        if (read == 0)
        {
            return bytes;
        }
    }
}
} // namespace velt::tool
