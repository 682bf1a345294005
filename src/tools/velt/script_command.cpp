#include "foundation/library_utils.h"
#include "foundation/wide_text.h"
#include "tools/velt/commands.h"
#include "tools/velt/component.h"
#include "tools/velt/full_path.h"
#include "tools/velt/interrupt.h"
#include "tools/velt/script_events.h"
#include "tools/velt/script_host.h"
#include "tools/velt/script_object.h"
#include "tools/velt/script_text.h"

namespace velt::tool
{
namespace
{
std::wstring EngineFor(const CommandLine& line)
{
    if (line.Has("engine"))
    {
        return line.Value("engine");
    }
    const std::wstring& file = line.operands[0];
    const std::wstring extension = file.substr(std::min(file.rfind(L'.'), file.size()));
    struct Row
    {
        const wchar_t* extension;
        const wchar_t* engine;
    };
    for (const Row& row : {Row{L".js", L"JScript"}, Row{L".vbs", L"VBScript"}})
    {
        if (::CompareStringOrdinal(extension.c_str(), -1, row.extension, -1, TRUE) == CSTR_EQUAL)
        {
            return row.engine;
        }
    }
    throw WrongUsage{L"name the script engine with --engine: " + file};
}

std::wstring ReadScript(const std::wstring& file)
{
    const std::u16string text = DecodeScript(ReadWholeFile(file));
    return {text.begin(), text.end()};
}
/// The component's classes are found by the manifest beside the program, which the program's own
/// manifest depends on; the system leaves it out when it is not there. Throws CommandFailure.
void RequireManifest()
{
    const std::wstring path = FileBesideProgram(L"VeltHTTPClient12OEM.Assembly.manifest");
    if (::GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES)
    {
        throw LastFailure(path);
    }
}
} // namespace

ExitCode RunScript(const CommandLine& line, CommandContext& context)
{
    const std::wstring engine = EngineFor(line);
    const std::wstring file = FullPath(line.operands[0]);
    const std::wstring text = ReadScript(file);
    const CLibraryUtils::SmartComInitializer com;
    const Interrupt interrupt;
    const Component component;
    RequireManifest();
    ScriptHost host(engine, line.operands[0], context);
    ScriptEvents events(component, host);
    ScriptObject object(host, context, interrupt, component, events, file,
                        {line.operands.begin() + 1, line.operands.end()});
    host.AddObject(L"WScript", &object);
    const HRESULT hr = host.Run(text);
    context.SetAnswer({}); // the script has printed its own
    context.Results().Add("output", ReportValue{object.Lines()});
    if (host.QuitCode())
    {
        return static_cast<ExitCode>(*host.QuitCode());
    }
    if (const auto& failure = host.Failure())
    {
        context.Results().Add("line", failure->line);
        context.Results().Add("column", failure->column);
        context.Results().Add("description", Utf8FromWide(failure->description));
        context.Results().Add("source", Utf8FromWide(failure->source));
    }
    Require(hr, L"the script");
    return ExitCode::done;
}
} // namespace velt::tool
