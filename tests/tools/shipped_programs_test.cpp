// What the files of all programs that are shipped say about themselves to people and installers.

#include "foundation/velt_version.h"
#include "tests/support/component_library.h"
#include "tests/support/edition.h"
#include "tests/support/sample_agent_server.h"
#include "tests/support/version_block.h"

#include <string>

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
};
constexpr Program kPrograms[] = {
    {L"VeltHTTPClient12OEM", L".dll", VFT_DLL, L"VeltHTTPClient component"},
    {L"velt", L".exe", VFT_APP, L"VeltHTTPClient command-line host"},
    {L"velt-trace", L".exe", VFT_APP, L"VeltHTTPClient trace viewer"},
    {L"sample_agent", L".exe", VFT_APP, L"VeltHTTPClient sample update agent"},
};

std::wstring PathOf(const Program& program)
{
    return program.name == std::wstring(L"sample_agent")
               ? SampleAgentProgram()
               : ShippedFile((std::wstring(program.name) + program.extension).c_str());
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
