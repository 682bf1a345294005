// Every command of velt.exe as its help shows it, and each one's good and bad ends as JSON, which a
// script compares with docs/velt.schema.json afterwards. VELT_JSON_LOG names the file for that.

#include "foundation/unique_file.h"
#include "foundation/wide_text.h"
#include "tests/support/component_library.h"
#include "tests/support/press_button.h"
#include "tests/support/real_servers.h"
#include "tests/support/sample_agent_server.h"
#include "tests/support/temp_folder.h"
#include "tests/tools/velt/eula_window.h"
#include "tests/tools/velt/velt_program.h"
#include "tests/ui/eula_files.h"
#include "ui/resources/resource_ids.h"

#include <catch.hpp>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

using namespace velt::test;

namespace
{
using Words = std::vector<std::wstring>;

constexpr wchar_t kSettingsKey[] =
    L"Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings";
const std::string kOneUpdate = "[agent]\r\nconnected=1\r\nwanted=1\r\n[updates]\r\n{AC0EE5B0-A8FB-"
                               "4D0A-AF03-2EDC518F841B}=1\r\n";

std::wstring Site()
{
    return L"http://127.0.0.1:" + std::to_wstring(real_servers::HttpPort()) + L"/";
}

/// What the rest of the run compares with the schema: the command, its exit code and its object.
void Log(const std::string& command, const ProgramResult& result)
{
    const char* const path = std::getenv("VELT_JSON_LOG");
    static std::ofstream log(path ? path : "velt_json.txt", std::ios::binary);
    log << command << '\t' << static_cast<int>(result.exitCode) << '\t' << result.output;
    if (!result.output.ends_with("\n"))
    {
        log << '\n';
    }
    log.flush();
}

/// One end of a command, as JSON.
void CheckEnd(const std::string& command, Words words, DWORD exitCode,
              const std::wstring& program = VeltProgram())
{
    words.insert(words.begin(), L"--json");
    const ProgramResult result = RunVelt(words, program);
    INFO(velt::Utf8FromWide(CommandLineOf(words)) + "\n" + result.output + result.messages);
    CHECK(result.exitCode == exitCode);
    CHECK(std::count(result.output.begin(), result.output.end(), '\n') == 1);
    CHECK(result.output.ends_with("\"exitCode\":" + std::to_string(static_cast<int>(exitCode)) +
                                  "}\n"));
    Log(command, result);
}

/// The words of a command line of the help's, without the program's name.
Words WordsOf(const std::string& line)
{
    Words words;
    std::string word;
    bool quoted = false;
    for (const char c : line + " ")
    {
        if (c == '"')
        {
            quoted = !quoted;
        }
        else if (c == ' ' && !quoted)
        {
            std::wstring wide = velt::WideFromUtf8(word);
            const std::wstring site = L"http://www.example.com/";
            words.push_back(wide.starts_with(site) && words.size() > 1 && words[1] != L"cookie" &&
                                    words[1] != L"safe"
                                ? Site() + wide.substr(site.size())
                                : wide);
            word.clear();
        }
        else
        {
            word.push_back(c);
        }
    }
    REQUIRE(words[0] == L"velt");
    words.erase(words.begin());
    return words;
}

/// A command, and its examples.
struct Help
{
    std::string name;
    std::vector<std::string> examples;
};

/// The lines of a text.
std::vector<std::string> LinesOf(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
    {
        lines.push_back(line);
    }
    return lines;
}

/// The name in a line of the program's help: the words before the operands, which are in capitals
/// or brackets, and before the summary, which two blanks divide from them.
std::string NameIn(const std::string& line)
{
    std::istringstream stream(line.substr(0, line.find("  ", 2)));
    std::string name;
    for (std::string word; stream >> word && word[0] >= 'a' && word[0] <= 'z';)
    {
        name.append(name.empty() ? "" : " ").append(word);
    }
    return name;
}

/// What the program's help lists, and what each command's help shows.
const std::vector<Help>& AllHelp()
{
    static std::vector<Help> all;
    if (!all.empty())
    {
        return all;
    }
    const std::string list = RunVelt({L"--help"}).output;
    for (const std::string& line : LinesOf(list.substr(0, list.find("exit codes:"))))
    {
        if (!line.starts_with("  "))
        {
            continue;
        }
        Help help{NameIn(line), {}};
        bool examples = false;
        for (const std::string& each : LinesOf(RunVelt(WordsOf("velt help " + help.name)).output))
        {
            if (examples)
            {
                help.examples.push_back(each.substr(2));
            }
            examples = examples || each == "examples:";
        }
        all.push_back(std::move(help));
    }
    return all;
}

/// A proxy of the user's until the end of the scope.
class UserProxy
{
public:
    UserProxy()
    {
        const std::wstring server = L"http=relay.invalid:3128";
        const DWORD enabled = 1;
        ::RegSetKeyValueW(HKEY_CURRENT_USER, kSettingsKey, L"ProxyServer", REG_SZ, server.c_str(),
                          static_cast<DWORD>((server.size() + 1) * sizeof(wchar_t)));
        ::RegSetKeyValueW(HKEY_CURRENT_USER, kSettingsKey, L"ProxyEnable", REG_DWORD, &enabled,
                          sizeof(enabled));
    }

    UserProxy(const UserProxy&) = delete;
    UserProxy& operator=(const UserProxy&) = delete;

    ~UserProxy()
    {
        ::RegDeleteKeyValueW(HKEY_CURRENT_USER, kSettingsKey, L"ProxyServer");
        ::RegDeleteKeyValueW(HKEY_CURRENT_USER, kSettingsKey, L"ProxyEnable");
    }
};

/// Runs an example to its end, as a person would, who accepts each agreement.
ProgramResult RunExample(const Words& words)
{
    std::optional<UserProxy> proxy;
    if (std::find(words.begin(), words.end(), L"proxy") != words.end())
    {
        proxy.emplace();
    }
    ProgramRun run(words);
    if (std::find(words.begin(), words.end(), L"eula") != words.end())
    {
        const HWND accept = AwaitAcceptButton(run.ProcessId(), L"I ");
        REQUIRE(accept);
        const HWND dialog = ::GetParent(accept);
        CHECK(Choose(dialog, VELT_EULA_ACCEPT));
        CHECK(PressUntilGone(dialog, VELT_EULA_OK));
    }
    return run.Wait();
}

/// The agent lives as long as the window that it has shown.
void CloseAgentWindow()
{
    if (const HWND window = ::FindWindowW(nullptr, L"Software Manager"))
    {
        ::PostMessageW(window, WM_CLOSE, 0, 0);
    }
}
} // namespace

TEST_CASE("velt: the examples in each command's help do what they say", "[tools]")
{
    const TempFolder folder(L"examples");
    folder.Write(L"licence.rtf", kSmallAgreement);
    folder.Write(L"german.xml", "<texts><RECORD><k>i_accept</k><v>I do</v></RECORD></texts>");
    folder.Write(L"hello.js",
                 "WScript.Echo(WScript.Arguments.length, WScript.Arguments.Named('name'));");
    REQUIRE(::SetCurrentDirectoryW(folder.Path().c_str()));
    std::vector<Help> all = AllHelp();
    REQUIRE(all.size() == 16);
    // What is there must have been put there.
    std::stable_partition(all.begin(), all.end(),
                          [](const Help& help) { return help.name.ends_with(" set"); });
    {
        const SampleAgentServer agent(kOneUpdate);
        for (const Help& help : all)
        {
            CHECK_FALSE(help.examples.empty());
            for (const std::string& example : help.examples)
            {
                Words words = WordsOf(example);
                words.insert(words.begin(), L"--json");
                const ProgramResult result = RunExample(words);
                INFO(example + "\n" + result.output + result.messages);
                CHECK(result.exitCode == 0);
                Log(help.name, result);
            }
            CloseAgentWindow();
        }
    }
    wchar_t temp[MAX_PATH];
    ::GetTempPathW(MAX_PATH, temp);
    ::SetCurrentDirectoryW(temp); // a folder that is in use stays
}

TEST_CASE("velt: each command's bad ends are one object, too", "[tools]")
{
    const TempFolder folder(L"ends");
    const std::wstring product = L"{AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841B}";
    const std::wstring bare = folder.File(L"velt.exe"); // without the library
    REQUIRE(::CopyFileW(VeltProgram().c_str(), bare.c_str(), FALSE));
    folder.Write(L"broken.js", "WScript.Echo('a');\nnope();");
    folder.Write(L"quit.js", "WScript.Quit(5);");
    folder.Write(L"file", "in the way");

    // Exit code 1, the answer is no.
    CheckEnd("status", {L"status"}, 1, bare);
    CheckEnd("cookie get", {L"cookie", L"get", L"http://none.velt.example/"}, 1);
    CheckEnd("cookie set",
             {L"cookie", L"set", L"http://a.velt.example/", L"n", L"v; domain=other.example"}, 1);
    CheckEnd("safe get", {L"safe", L"get", L"http://none.velt.example/", L"n"}, 1);
    CheckEnd("safe set",
             {L"safe", L"set", L"http://a.velt.example/", L"n", std::wstring(8000, L'v')}, 1);
    CheckEnd("update check", {L"update", L"check", product, L"1"}, 1);
    CheckEnd("update start", {L"update", L"start", product, L"1"}, 1);
    CheckEnd("fetch", {L"fetch", Site() + L"nope"}, 1);
    CheckEnd("proxy", {L"proxy"}, 1);
    CheckEnd("ping", {L"ping", L"127.255.255.255", L"--timeout", L"50"}, 1);
    CheckEnd("ping", {L"ping", L"http://127.0.0.1:1/"}, 1);
    CheckEnd("unregister", {L"unregister", L"--user"}, 1);
    CheckEnd("script", {L"script", folder.File(L"quit.js")}, 5);

    // Exit code 3, a failure.
    CheckEnd("cookie get", {L"cookie", L"get", L"http://a.velt.example/"}, 3, bare);
    CheckEnd("collection", {L"collection", L"x"}, 3, bare);
    CheckEnd("eula show", {L"eula", L"show", L"--agreement", folder.File(L"none")}, 3);
    CheckEnd("script", {L"script", folder.File(L"broken.js")}, 3);
    CheckEnd("script", {L"script", L"--engine", L"No.Such", folder.File(L"quit.js")}, 3);
    CheckEnd("fetch", {L"fetch", L"http://127.0.0.1:1/", Site() + L"plain.txt"}, 3);
    CheckEnd("fetch", {L"fetch", L"--folder", folder.File(L"file"), Site() + L"plain.txt"}, 3);
    CheckEnd("fetch", {L"fetch", L"--folder", folder.Path(), Site() + L"plain.txt"}, 0);
    CheckEnd("ping", {L"ping", L"no.such.host.invalid"}, 3);
    CheckEnd("register", {L"register", L"--user"}, 3, bare);
    CheckEnd("unregister", {L"unregister", L"--user"}, 3, bare);

    // A registration for status to look at, which makes no objects, then one that does, and its
    // end.
    const std::wstring library = folder.File(L"VeltHTTPClient12OEM.dll");
    REQUIRE(::CopyFileW(ShippedFile(L"VeltHTTPClient12OEM.dll").c_str(), library.c_str(), FALSE));
    CheckEnd("register", {L"register"}, 0, bare);
    folder.Write(L"VeltHTTPClient12OEM.dll", "text");
    CheckEnd("status", {L"status"}, 1);
    CheckEnd("register", {L"register"}, 0);
    CheckEnd("status", {L"status"}, 0);
    CheckEnd("unregister", {L"unregister"}, 0);

    // Exit code 2, wrong usage.
    for (const Help& help : AllHelp())
    {
        Words words = WordsOf("velt " + help.name);
        words.push_back(L"--nope");
        CheckEnd(help.name, words, 2);
    }
    CheckEnd("trace on", {L"trace", L"on", L"trace", L"on", L"status"}, 2);
    CheckEnd("usage", {L"nonsense"}, 2);
    CheckEnd("help", {L"help", L"fetch"}, 0);
    CheckEnd("version", {L"--version"}, 0);
}
