#include "tests/support/built_file.h"

#include "foundation/wide_text.h"

#include <windows.h>

#include <array>
#include <stdexcept>

namespace velt::test
{
namespace
{
constexpr wchar_t kStartedFrom[] = L"VELT_TEST_FOLDER";

std::wstring WithoutLastPart(const std::wstring& path)
{
    const std::size_t end = path.rfind(L'\\');
    return end == path.npos ? std::wstring() : path.substr(0, end);
}

std::wstring OwnFolder()
{
    std::array<wchar_t, 1024> program{};
    ::GetModuleFileNameW(nullptr, program.data(), static_cast<DWORD>(program.size()));
    return WithoutLastPart(program.data());
}

std::wstring StartedFrom()
{
    std::array<wchar_t, 1024> folder{};
    ::GetEnvironmentVariableW(kStartedFrom, folder.data(), static_cast<DWORD>(folder.size()));
    return folder.data();
}

/// Before the tests: what they start inherits it.
const bool kIsFolderKept =
    !StartedFrom().empty() || ::SetEnvironmentVariableW(kStartedFrom, OwnFolder().c_str());

/// Empty when no folder from this one upwards has it.
std::wstring FindAbove(std::wstring folder, const std::wstring& place)
{
    for (; !folder.empty(); folder = WithoutLastPart(folder))
    {
        std::wstring path = folder + L"\\" + place;
        if (::GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES)
        {
            return path;
        }
    }
    return {};
}
} // namespace

std::wstring BuiltFile(const std::wstring& place)
{
    std::wstring path = FindAbove(OwnFolder(), place);
    if (path.empty() && kIsFolderKept)
    {
        path = FindAbove(StartedFrom(), place);
    }
    if (path.empty())
    {
        throw std::runtime_error("not in the build: " + Utf8FromWide(place));
    }
    return path;
}
} // namespace velt::test
