// velt script: real engines run real files.

#include "foundation/unique_file.h"
#include "foundation/velt_version.h"
#include "tests/support/component_library.h"
#include "tests/support/temp_folder.h"
#include "tests/tools/velt/own_console.h"
#include "tests/tools/velt/velt_program.h"

#include <catch.hpp>

#include <string>

using namespace velt::test;

namespace
{
/// Runs a script file of that name and content.
ProgramResult RunScript(const wchar_t* name, const std::string& text,
                        std::vector<std::wstring> arguments = {})
{
    const TempFolder folder(L"script");
    folder.Write(name, text);
    arguments.insert(arguments.begin(), {L"script", folder.File(name)});
    return RunVelt(arguments);
}

/// Runs a script with a file's content as its standard input.
ProgramResult RunScriptWithInput(const wchar_t* name, const std::string& text,
                                 const std::string& input)
{
    const TempFolder folder(L"script");
    folder.Write(name, text);
    folder.Write(L"input.txt", input);
    SECURITY_ATTRIBUTES inherited{sizeof(inherited), nullptr, TRUE};
    const velt::UniqueFile file(::CreateFileW(folder.File(L"input.txt").c_str(), GENERIC_READ,
                                              FILE_SHARE_READ, &inherited, OPEN_EXISTING, 0,
                                              nullptr));
    REQUIRE(file);
    return ProgramRun({L"script", folder.File(name)}, VeltProgram(), nullptr, 0, file.Get()).Wait();
}
} // namespace

TEST_CASE("velt script: runs JScript and VBScript with their arguments", "[tools]")
{
    ProgramResult result = RunScript(
        L"a.js",
        "var a = WScript.Arguments;"
        "WScript.Echo(a.length, a(0), a.Item(1), WScript.Arguments(2), WScript.ScriptName);",
        {L"one", L"--two", L"\x00E4"});
    CHECK(result.messages.empty());
    CHECK(result.exitCode == 0);
    CHECK(result.output == "3 one --two \xC3\xA4 a.js\n");
    result = RunScript(L"a.VBS",
                       "WScript.Echo WScript.Arguments.Count\r\n"
                       "For i = 0 To WScript.Arguments.Count - 1\r\n"
                       "WScript.Echo WScript.Arguments(i)\r\nNext\r\n",
                       {L"one", L"two"});
    CHECK(result.messages.empty());
    CHECK(result.exitCode == 0);
    CHECK(result.output == "2\none\ntwo\n");
}

TEST_CASE("velt script: the collection is there without registration", "[tools]")
{
    ProgramResult result =
        RunScript(L"c.js", "var c = new ActiveXObject('VeltHTTPClient.EnumVariantCol12OEM');"
                           "c.Add('first'); c.Add(2.5);"
                           "for (var e = new Enumerator(c); !e.atEnd(); e.moveNext())"
                           "    WScript.Echo(e.item());"
                           "WScript.Echo(c.Count);"
                           "var d = WScript.CreateObject('VeltHTTPClient.EnumVariantCol12OEM');"
                           "d.Add(1); WScript.Echo(d.Count);");
    CHECK(result.messages.empty());
    CHECK(result.output == "first\n2.5\n2\n1\n");
    result = RunScript(L"c.vbs", "Set c = CreateObject(\"VeltHTTPClient.EnumVariantCol12OEM\")\r\n"
                                 "c.Add \"first\"\r\nc.Add 3\r\n"
                                 "For Each v In c\r\nWScript.Echo v\r\nNext\r\n");
    CHECK(result.messages.empty());
    CHECK(result.output == "first\n3\n");
}

TEST_CASE("velt script: Quit ends the script with its code", "[tools]")
{
    const ProgramResult result =
        RunScript(L"q.js", "WScript.Echo('a'); WScript.Quit(42); WScript.Echo('b');");
    CHECK(result.exitCode == 42);
    CHECK(result.output == "a\n");
    CHECK(result.messages.empty());
    CHECK(RunScript(L"q.vbs", "WScript.Quit\r\nWScript.Echo \"b\"").exitCode == 0);
}

TEST_CASE("velt script: as JSON there is one object, whatever the script ends with", "[tools]")
{
    const TempFolder folder(L"script");
    const auto run = [&](const std::string& text) {
        folder.Write(L"q.js", text);
        return RunVelt({L"--json", L"script", folder.File(L"q.js")});
    };
    for (const char* const code : {"0", "1", "2", "3"})
    {
        const ProgramResult result =
            run("WScript.Echo('a', 1); WScript.Echo(''); WScript.Quit(" + std::string(code) + ");");
        CHECK(std::to_string(result.exitCode) == code);
        CHECK(result.output ==
              "{\"output\":[\"a 1\",\"\"],\"exitCode\":" + std::string(code) + "}\n");
        CHECK(result.messages.empty());
    }
    CHECK(run("").output == "{\"output\":[],\"exitCode\":0}\n");
    const ProgramResult failed = run("WScript.Echo('before');\n   throw new Error(7, 'too hot');");
    CHECK(failed.exitCode == 3);
    INFO(failed.output);
    CHECK(failed.output.starts_with("{\"output\":[\"before\"],\"line\":2,\"column\":"));
    CHECK(failed.output.find(",\"description\":\"too hot\",\"source\":\"") != std::string::npos);
    CHECK(failed.output.find(",\"failed\":\"the script\",\"code\":\"0x") != std::string::npos);
    CHECK(failed.output.ends_with(",\"exitCode\":3}\n"));
}

TEST_CASE("velt script: Echo shows null, and a value that has no text is a failure", "[tools]")
{
    ProgramResult result =
        RunScript(L"n.js", "WScript.Echo(null, 'a'); WScript.Echo(undefined, 'b');");
    CHECK(result.messages.empty());
    CHECK(result.output == "null a\n b\n");
    result = RunScript(L"n.vbs", "WScript.Echo Null, Nothing, Empty, 5\r\n");
    CHECK(result.messages.empty());
    CHECK(result.output == "null null  5\n");
    result = RunScript(L"n.js", "try { WScript.Echo(WScript.Arguments); }"
                                "catch (e) { WScript.Echo('no text'); }");
    CHECK(result.exitCode == 0);
    CHECK(result.output == "no text\n");
}

TEST_CASE("velt script: all three classes are there without registration", "[tools]")
{
    const ProgramResult result =
        RunScript(L"all.js", "var c = new ActiveXObject('VeltHTTPClient.EnumVariantCol12OEM.2');"
                             "var s = new ActiveXObject('VeltHTTPClient.VeltHTTPService12OEM');"
                             "var d = new ActiveXObject('VeltHTTPClientX.VeltEulaDlg12OEM');"
                             "d = new ActiveXObject('VeltHTTPClientX.VeltEulaDlg12OEM.1');"
                             "WScript.Echo(c.Count, typeof s.IsConnected, typeof d.SetParam);");
    CHECK(result.messages.empty());
    CHECK(result.exitCode == 0);
    CHECK(result.output.starts_with("0 boolean "));
}

TEST_CASE("velt script: without the manifest beside the program it fails", "[tools]")
{
    const TempFolder folder(L"bare");
    const std::wstring program = folder.File(L"velt.exe");
    REQUIRE(::CopyFileW(VeltProgram().c_str(), program.c_str(), FALSE));
    REQUIRE(::CopyFileW(ShippedFile(L"VeltHTTPClient12OEM.dll").c_str(),
                        folder.File(L"VeltHTTPClient12OEM.dll").c_str(), FALSE));
    folder.Write(L"x.js", "WScript.Echo(1)");
    CHECK(RunVelt({L"collection", L"a"}, program).exitCode == 0); // only scripts need it
    const ProgramResult result = RunVelt({L"script", folder.File(L"x.js")}, program);
    CHECK(result.exitCode == 3);
    CHECK(result.output.empty());
    INFO(result.messages);
    CHECK(result.messages.find("VeltHTTPClient12OEM.Assembly.manifest: ") != std::string::npos);
}

TEST_CASE("velt script: a failure is told with its place", "[tools]")
{
    ProgramResult result = RunScript(L"e.js", "var a = 1;\nnope();\n");
    CHECK(result.exitCode == 3);
    INFO(result.messages);
    CHECK(result.messages.find("e.js(2, ") != std::string::npos);
    CHECK(result.messages.find("(0x800A138F)") != std::string::npos); // an object is expected
    result = RunScript(L"e.js", "function (");
    CHECK(result.exitCode == 3);
    CHECK(result.messages.find("e.js(1, ") != std::string::npos);
    result = RunScript(L"e.js", "WScript.Nope();");
    CHECK(result.exitCode == 3);
    result = RunScript(L"e.js", "WScript.Sleep();");
    CHECK(result.exitCode == 3);
    result = RunScript(L"e.js", "WScript.ConnectObject(5, 'x');");
    CHECK(result.exitCode == 3);
    result = RunScript(L"e.js", "WScript.Arguments(0);");
    CHECK(result.exitCode == 3);
    result = RunScript(L"e.js", "WScript.CreateObject('No.Such.Class');");
    CHECK(result.exitCode == 3);
}

TEST_CASE("velt script: a script can handle its failures", "[tools]")
{
    const ProgramResult result = RunScript(L"h.js", "try { WScript.CreateObject('No.Such.Class'); }"
                                                    "catch (e) { WScript.Echo('caught'); }");
    CHECK(result.exitCode == 0);
    CHECK(result.output == "caught\n");
}

TEST_CASE("velt script: the members that scripts expect of their host", "[tools]")
{
    ProgramResult result = RunScript(
        L"m.js",
        "WScript.StdOut.Write('a'); WScript.StdOut.Write(1); WScript.StdOut.WriteLine();"
        "WScript.StdOut.WriteLine('b'); WScript.StdOut.WriteBlankLines(2);"
        "WScript.Echo(WScript.StdOut.Line, WScript.StdOut.Column); WScript.Echo();"
        "WScript.StdErr.WriteLine('to the messages');"
        "WScript.Echo(WScript.Application.ScriptName, WScript.Name);"
        "WScript.Echo(WScript.FullName.toLowerCase() =="
        "    (WScript.Path + '\\\\velt.exe').toLowerCase());"
        "WScript.Echo(parseFloat(WScript.Version) >= 5.6, WScript.VERSION == WScript.Version);");
    CHECK(result.exitCode == 0);
    CHECK(result.messages == "to the messages\n");
    CHECK(result.output == "a1\nb\n\n\n5 1\n\nm.js velt\nTrue\nTrue True\n");
    result = RunScript(L"m.vbs", "WScript.StdOut.Write \"x\" & WScript.Version & vbCrLf\r\n"
                                 "WScript.StdErr.Write \"y\"\r\n");
    CHECK(result.exitCode == 0);
    CHECK(result.messages == "y");
    CHECK(result.output == "x" VELT_VERSION_TEXT "\r\n");
}

TEST_CASE("velt script: what is written goes into the one object, line by line", "[tools]")
{
    const TempFolder folder(L"script");
    folder.Write(L"k.js", "WScript.StdOut.Write('a\\nb'); WScript.Echo('c'); WScript.Echo('d\\ne');"
                          "WScript.StdOut.WriteBlankLines(1); WScript.StdOut.Write('f');");
    const ProgramResult result = RunVelt({L"--json", L"script", folder.File(L"k.js")});
    CHECK(result.output == "{\"output\":[\"a\",\"bc\",\"d\\ne\",\"\",\"f\"],\"exitCode\":0}\n");
}

TEST_CASE("velt script: named and unnamed arguments", "[tools]")
{
    const std::vector<std::wstring> arguments{L"one",   L"/Name:a:b", L"/on+",   L"/off-",
                                              L"/bare", L"two",       L"/name:c"};
    ProgramResult result = RunScript(
        L"a.js",
        "var a = WScript.Arguments, n = a.Named, u = a.Unnamed;"
        "WScript.Echo(a.length, n.length, u.length, n.Count(), u.Count());"
        "WScript.Echo(n('NAME'), n.Item('on'), n('off'), typeof n('bare'), typeof n('nope'));"
        "WScript.Echo(n.Exists('bare'), n.Exists('nope'), u(0), u.Item(1));"
        "for (var e = new Enumerator(u); !e.atEnd(); e.moveNext()) WScript.Echo(e.item());"
        "for (var e = new Enumerator(n); !e.atEnd(); e.moveNext()) WScript.Echo(e.item());"
        "try { u(2); } catch (e) { WScript.Echo('past the end'); }",
        arguments);
    CHECK(result.messages.empty());
    CHECK(result.exitCode == 0);
    CHECK(result.output == "7 4 2 4 2\nc True False undefined undefined\nTrue False one two\n"
                           "one\ntwo\non\noff\nbare\nname\npast the end\n");
    result = RunScript(L"a.vbs",
                       "For Each a In WScript.Arguments\r\nWScript.Echo a\r\nNext\r\n"
                       "WScript.Echo WScript.Arguments.Named(\"name\")\r\n"
                       "WScript.Echo WScript.Arguments.Unnamed.Item(0)\r\n",
                       {L"/name:v", L"u"});
    CHECK(result.messages.empty());
    CHECK(result.output == "/name:v\nu\nv\nu\n");
}

TEST_CASE("velt script: reads standard input", "[tools]")
{
    const ProgramResult result = RunScriptWithInput(
        L"i.js",
        "var i = WScript.StdIn;"
        "WScript.Echo(i.AtEndOfStream, i.Line, i.Column, i.ReadLine(), i.Line);"
        "WScript.Echo(i.Read(3), i.Column, i.AtEndOfLine, '[' + i.ReadLine() + ']');"
        "i.SkipLine(); i.Skip(1); WScript.Echo(i.ReadLine());"
        "WScript.Echo('[' + i.ReadAll() + ']', i.AtEndOfStream);"
        "try { i.ReadLine(); } catch (e) { WScript.Echo(e.number & 0xFFFF); }"
        "try { i.Write('x'); } catch (e) { WScript.Echo(e.number & 0xFFFF); }"
        "try { WScript.StdOut.ReadLine(); } catch (e) { WScript.Echo(e.number & 0xFFFF); }",
        "\xEF\xBB\xBF"
        "first \xC3\xA4\r\nabc\nskipped\n\xE2\x82\xACx\nlast\nof all");
    CHECK(result.messages.empty());
    CHECK(result.exitCode == 0);
    CHECK(result.output == "False 1 1 first \xC3\xA4 2\nabc 4 True []\nx\n"
                           "[last\nof all] True\n62\n54\n54\n");
    CHECK(
        RunScript(L"none.js", "WScript.Echo(WScript.StdIn.AtEndOfStream, WScript.StdIn.ReadAll())")
            .output == "True \n");
}

TEST_CASE("velt script: a line of standard input is whole, however long", "[tools]")
{
    const ProgramResult result =
        RunScriptWithInput(L"long.js",
                           "WScript.Echo(WScript.StdIn.ReadLine().length,"
                           " WScript.StdIn.ReadLine(), WScript.StdIn.ReadAll().length)",
                           std::string(10'000, 'x') + "\r\nshort\r\n" + std::string(20'000, 'y'));
    CHECK(result.messages.empty());
    CHECK(result.output == "10000 short 20000\n");
}

TEST_CASE("velt script: what is typed comes line by line, until Ctrl+Z", "[tools]")
{
    const OwnConsole console;
    const TempFolder folder;
    folder.Write(L"typed.js", "var i = WScript.StdIn;"
                              "WScript.Echo(i.ReadLine(), i.AtEndOfStream, i.ReadLine());"
                              "WScript.Echo(i.AtEndOfStream, i.Line)");
    ProgramRun run({L"script", folder.File(L"typed.js")}, VeltProgram(), nullptr, 0,
                   console.Keyboard());
    console.Type(L"one\rtwo\r\x1A\r");
    const ProgramResult result = run.Wait();
    CHECK(result.messages.empty());
    CHECK(result.exitCode == 0);
    CHECK(result.output == "one False two\nTrue 3\n");
}

TEST_CASE("velt script: a text longer than consoles take at once is shown whole", "[tools]")
{
    const OwnConsole console;
    const TempFolder folder;
    folder.Write(L"long.js", "for (var s = '', i = 1000; i < 6000; ++i) { s += i; }"
                             "WScript.StdOut.Write(s)");
    std::wstring written;
    for (int i = 1000; i < 6000; ++i)
    {
        written += std::to_wstring(i);
    }
    const ProgramResult result =
        ProgramRun({L"script", folder.File(L"long.js")}, VeltProgram(), console.Screen()).Wait();
    CHECK(result.messages.empty());
    CHECK(result.exitCode == 0);
    std::wstring shown = console.Text(); // as much of it as it has lines for
    shown.erase(shown.find_last_not_of(L' ') + 1);
    CHECK(shown.size() > 1000);
    CHECK((written.ends_with(shown) || shown.ends_with(written)));
}

TEST_CASE("velt script: what a script does wrong fails as with the system's host", "[tools]")
{
    // The numbers that scripts know; some engines hand automation's own code on, or take a member
    // that is not there for an undefined one.
    const auto [use, number, code] = GENERATE(table<std::string, std::string, std::string>({
        {"WScript.Nope()", "438", "6"},
        {"WScript.Nope", "438", "nothing"},
        {"WScript.StdOut.Nope()", "438", "6"},
        {"WScript.Arguments.Named.Nope", "438", "nothing"},
        {"WScript.Version = 1", "438", "3"},
        {"WScript.Sleep()", "450", "14"},
        {"WScript.Sleep(1, 2)", "450", "14"},
        {"WScript.Sleep('soon')", "13", "5"},
        {"WScript.ConnectObject(5, 'x')", "13", "5"},
        {"WScript.Arguments(0)", "9", "11"},
    }));
    const ProgramResult result =
        RunScript(L"w.js", "try { " + use +
                               "; WScript.Echo('nothing'); }"
                               "catch (e) { WScript.Echo(e.number & 0xFFFF); }");
    INFO(use);
    CHECK(result.exitCode == 0);
    if (result.output == code + "\n")
    {
        WARN(use + ": " + code + ", not " + number);
        return;
    }
    CHECK(result.output == number + "\n");
}

TEST_CASE("velt script: a member takes no more and no fewer arguments than it has", "[tools]")
{
    const std::string uses =
        "['FullName(1)', 'Name(1)', 'Path(1)', 'ScriptFullName(1)', 'ScriptName(1)', 'Version(1)',"
        " 'ConnectObject(WScript)', 'ConnectObject(WScript, 2, 3)', 'CreateObject()',"
        " 'CreateObject(1, 2, 3)', 'DisconnectObject()', 'DisconnectObject(WScript, 2)',"
        " 'Quit(1, 2)', 'Sleep()', 'Sleep(1, 2)',"
        " 'StdIn.AtEndOfLine(1)', 'StdIn.AtEndOfStream(1)', 'StdIn.Close(1)', 'StdIn.Column(1)',"
        " 'StdIn.Line(1)', 'StdIn.Read()', 'StdIn.Read(1, 2)', 'StdIn.ReadAll(1)',"
        " 'StdIn.ReadLine(1)', 'StdIn.Skip()', 'StdIn.Skip(1, 2)', 'StdIn.SkipLine(1)',"
        " 'StdOut.Write()', 'StdOut.Write(1, 2)', 'StdOut.WriteBlankLines()',"
        " 'StdOut.WriteBlankLines(1, 2)', 'StdOut.WriteLine(1, 2)',"
        " 'Arguments.Item()', 'Arguments.Item(0, 1)', 'Arguments.Count(1)', 'Arguments.length(1)',"
        " 'Arguments.Named.Item()', 'Arguments.Named.Item(0, 1)', 'Arguments.Named.Count(1)',"
        " 'Arguments.Named.length(1)', 'Arguments.Named.Exists()',"
        " 'Arguments.Named.Exists(1, 2)', 'Arguments.Unnamed.Item()',"
        " 'Arguments.Unnamed.Item(0, 1)', 'Arguments.Unnamed.Count(1)',"
        " 'Arguments.Unnamed.length(1)']";
    // Some engines hand automation's own code on.
    const ProgramResult result = RunScript(
        L"n.js",
        "var uses = " + uses +
            "; for (var i = 0; i < uses.length; ++i) {"
            "  var number = 0;"
            "  try { eval('WScript.' + uses[i]); } catch (e) { number = e.number & 0xFFFF; }"
            "  if (number != 450 && number != 14) WScript.Echo(uses[i], number);"
            "} WScript.Echo(i)");
    CHECK(result.exitCode == 0);
    CHECK(result.output == "46\n");
}

TEST_CASE("velt script: files of every encoding", "[tools]")
{
    using namespace std::string_literals;
    const std::string text = "WScript.Echo('x');";
    std::string wide = "\xFF\xFE"s;
    for (const char c : text)
    {
        wide += {c, '\0'};
    }
    CHECK(RunScript(L"u.js", wide).output == "x\n");
    CHECK(RunScript(L"u.js", "\xEF\xBB\xBF" + text).output == "x\n");
    CHECK(RunScript(L"u.js", "").exitCode == 0);
}

TEST_CASE("velt script: a missing file or engine is a failure", "[tools]")
{
    ProgramResult result = RunVelt({L"script", L"C:\\nowhere\\x.js"});
    CHECK(result.exitCode == 3);
    CHECK(result.messages.find("(0x80070003)") != std::string::npos);
    const TempFolder folder;
    folder.Write(L"x.txt", "WScript.Echo(1)");
    CHECK(RunVelt({L"script", folder.File(L"x.txt")}).exitCode == 2);
    CHECK(RunVelt({L"script", L"--engine", L"No.Such", folder.File(L"x.txt")}).exitCode == 3);
    CHECK(RunVelt({L"script", L"--engine", L"JScript", folder.File(L"x.txt")}).output == "1\n");
}
