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
