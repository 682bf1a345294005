// What the files of all programs that are shipped say about themselves to people and installers.

#include "foundation/velt_version.h"
#include "tests/support/component_library.h"
#include "tests/support/edition.h"
#include "tests/support/sample_agent_server.h"
#include "tests/support/version_block.h"

#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <catch.hpp>

using namespace velt::test;

namespace
{
struct Program
{
    const wchar_t* name; // without extension
    const wchar_t* extension;
    DWORD type;
    const wchar_t* description; // without the edition
    bool hasIcon;
};
constexpr Program kPrograms[] = {
    {L"VeltHTTPClient12OEM", L".dll", VFT_DLL, L"VeltHTTPClient component", false},
    {L"velt", L".exe", VFT_APP, L"VeltHTTPClient command-line host", true},
    {L"velt-trace", L".exe", VFT_APP, L"VeltHTTPClient trace viewer", true},
    {L"sample_agent", L".exe", VFT_APP, L"VeltHTTPClient sample update agent", false},
};

std::wstring PathOf(const Program& program)
{
    return program.name == std::wstring(L"sample_agent")
               ? SampleAgentProgram()
               : ShippedFile((std::wstring(program.name) + program.extension).c_str());
}

/// A program's file, open for its resources only.
class Resources
{
public:
    explicit Resources(const std::wstring& path)
        : m_module(::LoadLibraryExW(path.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE))
    {
        REQUIRE(m_module);
    }

    Resources(const Resources&) = delete;
    Resources& operator=(const Resources&) = delete;

    ~Resources()
    {
        ::FreeLibrary(m_module);
    }

    /// Empty when there is none.
    std::string_view Find(WORD id, const wchar_t* type) const
    {
        const HRSRC found = ::FindResourceW(m_module, MAKEINTRESOURCEW(id), type);
        return found ? std::string_view(static_cast<const char*>(
                                            ::LockResource(::LoadResource(m_module, found))),
                                        ::SizeofResource(m_module, found))
                     : std::string_view();
    }

private:
    HMODULE m_module;
};

/// A number at a place of a resource.
template <class Number>
Number At(std::string_view bytes, std::size_t offset)
{
    Number number = 0;
    REQUIRE(offset + sizeof(number) <= bytes.size());
    std::memcpy(&number, bytes.data() + offset, sizeof(number));
    return number;
}

/// The sides of the pictures in an icon group, in pixels. A group is three words, the last of which
/// counts its entries, and 14 bytes for each of these.
std::vector<int> SidesOf(const Resources& resources, std::string_view group)
{
    std::vector<int> sides;
    for (std::size_t i = 0; i < At<WORD>(group, 4); ++i)
    {
        const std::size_t entry = 6 + 14 * i;
        const int width = At<BYTE>(group, entry);
        CHECK(At<BYTE>(group, entry + 1) == width);
        CHECK(At<WORD>(group, entry + 6) == 32); // bits a pixel
        const int side = width == 0 ? 256 : width;
        sides.push_back(side);

        const std::string_view picture = resources.Find(At<WORD>(group, entry + 12), RT_ICON);
        CHECK(picture.size() == At<DWORD>(group, entry + 8));
        if (side == 256)
        {
            CHECK(picture.starts_with("\x89PNG\r\n"));
        }
        else
        {
            CHECK(At<DWORD>(picture, 0) == sizeof(BITMAPINFOHEADER));
            CHECK(At<LONG>(picture, 4) == side);
            CHECK(At<LONG>(picture, 8) == 2 * side); // its mask counts too
        }
    }
    return sides;
}
} // namespace

TEST_CASE("The programs: their version blocks tell what they are", "[server][tools]")
{
    for (const Program& program : kPrograms)
    {
        const std::wstring path = PathOf(program);
        CAPTURE(path);
        const VersionBlock block(path);
        const VS_FIXEDFILEINFO& fixed = block.Fixed();
        CHECK(fixed.dwFileType == program.type);
        CHECK(fixed.dwFileOS == VOS_NT_WINDOWS32);
        CHECK(fixed.dwFileFlags == 0);
        CHECK(HIWORD(fixed.dwFileVersionMS) == 12); // as the library's name says
        CHECK(fixed.dwProductVersionMS == fixed.dwFileVersionMS);
        CHECK(fixed.dwProductVersionLS == fixed.dwFileVersionLS);

        CHECK((block.Text(L"FileVersion") == block.Version()));
        CHECK((block.Text(L"ProductVersion") == block.Version()));
        CHECK((block.Text(L"ProductName") == L"VeltHTTPClient"));
        CHECK((block.Text(L"CompanyName") == L"" VELT_PUBLISHER));
        CHECK((block.Text(L"LegalCopyright") == L"Copyright (c) 2026 " VELT_PUBLISHER));
        CHECK((block.Text(L"InternalName") == program.name));
        CHECK((block.Text(L"OriginalFilename") == std::wstring(program.name) + program.extension));
        CHECK((block.Text(L"FileDescription") ==
               std::wstring(program.description) + L" (" + kEdition.name + L")"));
    }
}

TEST_CASE("The programs: their icons have every size that Windows shows", "[server][tools]")
{
    for (const Program& program : kPrograms)
    {
        const std::wstring path = PathOf(program);
        CAPTURE(path);
        const Resources resources(path);
        const std::string_view group = resources.Find(1, RT_GROUP_ICON);
        CHECK(group.empty() == !program.hasIcon);
        if (!group.empty())
        {
            CHECK(SidesOf(resources, group) == std::vector<int>{16, 20, 24, 32, 48, 64, 256});
        }
    }
}
