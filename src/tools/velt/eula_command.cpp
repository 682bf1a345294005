#include "foundation/library_utils.h"
#include "foundation/wide_text.h"
#include "tools/velt/commands.h"
#include "tools/velt/component.h"
#include "tools/velt/full_path.h"

#include <provider_lib.h>

#include <comutil.h>

namespace velt::tool
{
namespace
{
/// The full path of a file that an option names and that is there; empty without the option.
std::wstring ExistingFile(const CommandLine& line, const char* option)
{
    if (!line.Has(option))
    {
        return {};
    }
    std::wstring path = FullPath(line.Value(option));
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES)
    {
        throw LastFailure(path);
    }
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
    {
        throw CommandFailure{HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), path};
    }
    return path;
}
} // namespace

ExitCode RunEula(const CommandLine& line, CommandContext& context)
{
    if (!line.Has("agreement"))
    {
        throw WrongUsage{L"--agreement is missing"};
    }
    const _bstr_t agreement(ExistingFile(line, "agreement").c_str());
    const _bstr_t texts(ExistingFile(line, "texts").c_str());
    const CLibraryUtils::SmartComInitializer com;
    const Component component;
    const auto dialog = component.Create<IVeltEulaDlg>(CLSID_CVeltEulaDlg);
    VARIANT_BOOL accepted = VARIANT_FALSE;
    Require(dialog->LaunchEula(agreement, texts, &accepted), L"the dialog");
    context.Results().Add("accepted", accepted == VARIANT_TRUE);
    return ExitCodeFor(accepted == VARIANT_TRUE);
}
} // namespace velt::tool
