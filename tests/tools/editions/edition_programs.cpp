#include "tests/tools/editions/edition_programs.h"

#include "foundation/wide_text.h"

#include <windows.h>

#include <stdexcept>

namespace velt::test
{
namespace
{
EditionPrograms FindPrograms(const wchar_t* name, const std::wstring& build, const char* preset)
{
    const EditionPrograms programs{
        name,
        build + L"\\bin\\velt.exe",
        build + L"\\bin\\velt-trace.exe",
        build + L"\\bin\\VeltHTTPClient12OEM.dll",
        build + L"\\samples\\update_agent\\sample_agent.exe",
        build + L"\\tests\\tools\\editions\\object_exchange.exe",
    };
    for (const std::wstring* const file :
         {&programs.velt, &programs.viewer, &programs.library, &programs.agent, &programs.exchange})
    {
        if (::GetFileAttributesW(file->c_str()) == INVALID_FILE_ATTRIBUTES)
        {
            throw std::runtime_error("the " + Utf8FromWide(name) + " edition is not built: no " +
                                     Utf8FromWide(*file) + "; cmake --build --preset " + preset +
                                     " makes it");
        }
    }
    return programs;
}
} // namespace

const EditionPrograms& Programs32()
{
    static const EditionPrograms programs =
        FindPrograms(L"32-bit", VELT_BUILD_32, "release --target crossed");
    return programs;
}

const EditionPrograms& Programs64()
{
    static const EditionPrograms programs =
        FindPrograms(L"64-bit", VELT_BUILD_64, "release64 --target tests");
    return programs;
}

EditionPair InOrder(bool first64)
{
    return first64 ? EditionPair{Programs64(), Programs32()}
                   : EditionPair{Programs32(), Programs64()};
}

std::string Velt(const EditionPrograms& edition, const std::vector<std::wstring>& arguments)
{
    const ProgramResult result = RunVelt(arguments, edition.velt);
    if (result.exitCode != 0)
    {
        throw std::runtime_error("the " + Utf8FromWide(edition.name) +
                                 " velt.exe answers: " + std::to_string(result.exitCode) + " " +
                                 result.output + result.messages);
    }
    return result.output;
}

BothRegistered::BothRegistered()
{
    Velt(Programs32(), {L"register"});
    Velt(Programs64(), {L"register"});
}

BothRegistered::~BothRegistered()
{
    for (const EditionPrograms* const edition : {&Programs32(), &Programs64()})
    {
        RunVelt({L"unregister"}, edition->velt);
    }
}
} // namespace velt::test
