// velt.exe itself: its streams, exit codes and the commands that need no server.

#include "foundation/trace_record.h"
#include "foundation/velt_version.h"
#include "foundation/wide_text.h"
#include "tests/support/component_library.h"
#include "tests/support/environment_variable.h"
#include "tests/support/known_libraries.h"
#include "tests/support/message_module.h"
#include "tests/support/missing_system_library.h"
#include "tests/support/press_button.h"
#include "tests/support/temp_folder.h"
#include "tests/support/viewer_process.h"
#include "tests/tools/velt/eula_window.h"
#include "tests/tools/velt/velt_program.h"
#include "tests/ui/eula_files.h"
#include "ui/resources/resource_ids.h"

#include <tlhelp32.h>

#include <catch.hpp>

#include <algorithm>
#include <iterator>
#include <set>
#include <string>

using namespace velt::test;

namespace
{
constexpr wchar_t kLegacyKey[] = L"SOFTWARE\\Lumenfield Technologies\\Quillplayer\\Internet";
constexpr wchar_t kSettingsKey[] =
    L"Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings";

/// A copy of velt.exe in a folder of its own, beside what the test puts there.
class CopiedProgram
{
public:
    CopiedProgram()
    {
        REQUIRE(::CopyFileW(VeltProgram().c_str(), Path().c_str(), FALSE));
    }

    std::wstring Path() const
    {
        return m_folder.File(L"velt.exe");
    }

    const TempFolder& Folder() const noexcept
    {
        return m_folder;
    }

private:
    TempFolder m_folder{L"copy"};
};

/// Commands that need the library, as JSON; of a script `x.js` in the folder too.
std::vector<std::vector<std::wstring>> LibraryCommands(const TempFolder& folder)
{
    return {{L"--json", L"collection", L"x"},
            {L"--json", L"register"},
            {L"--json", L"unregister"},
            {L"--json", L"safe", L"get", L"http://velt.example/", L"name"},
            {L"--json", L"script", folder.File(L"x.js")}};
}

/// The file names of the libraries in the system's folder.
std::set<std::wstring> SystemLibraries()
{
    std::set<std::wstring> names;
    WIN32_FIND_DATAW found{};
    const HANDLE search = ::FindFirstFileW(InSystemFolder(L"*.dll").c_str(), &found);
    REQUIRE(search != INVALID_HANDLE_VALUE);
    do
    {
        names.insert(LowerCase(found.cFileName));
    } while (::FindNextFileW(search, &found));
    ::FindClose(search);
    return names;
}

/// The names of the libraries that a program's file has the system load at its start.
std::set<std::wstring> ImportsOf(const std::wstring& path)
{
    const HMODULE module = ::LoadLibraryExW(path.c_str(), nullptr, LOAD_LIBRARY_AS_IMAGE_RESOURCE);
    REQUIRE(module);
    // The lowest bits of the handle say how it is mapped.
    const auto* const image =
        reinterpret_cast<const char*>(reinterpret_cast<UINT_PTR>(module) & ~UINT_PTR{3});
    const auto* const start = reinterpret_cast<const IMAGE_DOS_HEADER*>(image);
    const auto* const headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(image + start->e_lfanew);
    const auto& table = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    std::set<std::wstring> names;
    for (const auto* row =
             reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(image + table.VirtualAddress);
         row->Name != 0; ++row)
    {
        names.insert(LowerCase(velt::WideFromUtf8(image + row->Name)));
    }
    ::FreeLibrary(module);
    return names;
}

/// The paths of what a process has loaded, in small letters.
std::vector<std::wstring> ModulesOf(DWORD process)
{
    std::vector<std::wstring> paths;
    const HANDLE modules = ::CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, process);
    REQUIRE(modules != INVALID_HANDLE_VALUE);
    MODULEENTRY32W module{};
    module.dwSize = sizeof(module);
    for (BOOL more = ::Module32FirstW(modules, &module); more;
         more = ::Module32NextW(modules, &module))
    {
        paths.push_back(LowerCase(module.szExePath));
    }
    ::CloseHandle(modules);
    return paths;
}

bool Contains(const std::string& text, const std::string& part)
{
    return text.find(part) != text.npos;
}

/// A text value of the user's until the end of the scope.
class UserText
{
public:
    UserText(const wchar_t* key, const wchar_t* name, const std::wstring& text)
        : m_key(key),
          m_name(name)
    {
        ::RegSetKeyValueW(HKEY_CURRENT_USER, key, name, REG_SZ, text.c_str(),
                          static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
    }

    UserText(const UserText&) = delete;
    UserText& operator=(const UserText&) = delete;

    ~UserText()
    {
        ::RegDeleteKeyValueW(HKEY_CURRENT_USER, m_key, m_name);
    }

private:
    const wchar_t* m_key;
    const wchar_t* m_name;
};
} // namespace

TEST_CASE("velt: help goes to standard output and is done", "[tools]")
{
    for (const wchar_t* const argument : {L"--help", L"-h", L"help"})
    {
        const ProgramResult result = RunVelt({argument});
        CHECK(result.exitCode == 0);
        CHECK(Contains(result.output, "usage: velt COMMAND"));
        CHECK(result.messages.empty());
    }
    CHECK(Contains(RunVelt({L"fetch", L"--help"}).output, "--folder DIR"));
}

TEST_CASE("velt: wrong usage is a message and code 2", "[tools]")
{
    for (const std::vector<std::wstring>& arguments : std::vector<std::vector<std::wstring>>{
             {},
             {L"nonsense"},
             {L"status", L"x"},
             {L"fetch"},
             {L"fetch", L"u", L"--nope"},
             {L"eula", L"show"},
             {L"ping", L"x", L"--timeout", L"0"},
             {L"ping", L"ftp://host/"},
             {L"update", L"check", L"no-guid", L"1"},
             {L"update", L"start", L"{x}"},
             {L"script", L"file.txt"},
             {L"fetch", L"no-url"},
             {L"ping", L""},
             {L"trace", L"on", L"trace", L"on", L"status"},
             {L"cookie", L"get", L"nonsense"},
             {L"cookie", L"set", L"http://", L"name", L"value"},
             {L"safe", L"get", L"ftp://host/", L"name"},
             {L"safe", L"set", L"host", L"name", L"value"},
             {L"update", L"start"},
             {L"update", L"start", L"{AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841B}", L"1",
              L"--background"},
             {L"fetch", L"--output", L"x", L"--folder", L"y", L"http://h/"},
             {L"fetch", L"--output", L"x", L"http://h/", L"http://h/"}})
    {
        const ProgramResult result = RunVelt(arguments);
        INFO(result.messages);
        CHECK(result.exitCode == 2);
        CHECK(result.output.empty());
        CHECK(Contains(result.messages, "velt: try: velt"));
    }
}

TEST_CASE("velt: says its version", "[tools]")
{
    const ProgramResult result = RunVelt({L"--version"});
    CHECK(result.exitCode == 0);
    CHECK(result.output.starts_with("velt 12."));
}

TEST_CASE("velt: as JSON also wrong usage, help and the version are one object", "[tools]")
{
    const auto [arguments, output] = GENERATE(table<std::vector<std::wstring>, std::string>({
        {{L"--json", L"statsu"},
         R"({"failed":"usage","code":"0x80070057",)"
         R"("text":"no such command: statsu; did you mean status?","exitCode":2})"},
        {{L"fetch", L"u", L"--nope", L"--json"},
         R"({"failed":"usage","code":"0x80070057","text":"no such option: --nope","exitCode":2})"},
        {{L"ping", L"", L"--json"},
         R"({"failed":"usage","code":"0x80070057",)"
         R"("text":"an empty text is no host","exitCode":2})"},
        {{L"trace", L"on", L"trace", L"on", L"status", L"--json"},
         R"({"failed":"usage","code":"0x80070057",)"
         R"("text":"the trace is on already","exitCode":2})"},
        {{L"--version", L"--json"}, R"({"version":")" VELT_VERSION_TEXT R"(","exitCode":0})"},
    }));
    const ProgramResult result = RunVelt(arguments);
    CHECK(result.output == output + "\n");
    CHECK(result.output.find("\"exitCode\":" + std::to_string(result.exitCode) + "}") !=
          std::string::npos);
    CHECK(RunVelt({L"help", L"fetch", L"--json"})
              .output.starts_with("{\"help\":\"usage: velt fetch "));
}

TEST_CASE("velt: every failure has a text, and the text no gap", "[tools]")
{
    const CopiedProgram program;
    program.Folder().Write(L"VeltHTTPClient12OEM.dll", "text");
    ProgramResult result = RunVelt({L"collection"}, program.Path());
    INFO(result.messages);
    CHECK(Contains(result.messages, "(0x800700C1)"));
    CHECK_FALSE(Contains(result.messages, "%1"));
    program.Folder().Write(L"x.txt", "");
    result =
        RunVelt({L"--json", L"script", L"--engine", L"No.Such", program.Folder().File(L"x.txt")});
    CHECK(Contains(result.output, "\"code\":\"0x800401F3\""));
    CHECK_FALSE(Contains(result.output, "\"text\":\"\""));
}

TEST_CASE("velt collection: uses every operation once", "[tools]")
{
    const ProgramResult result =
        RunVelt({L"collection", L"7", L"-2.5", L"true", L"\x00E4 \"q\"", L""});
    CHECK(result.exitCode == 0);
    CHECK(result.messages.empty());
    CHECK(Contains(result.output, "count: 5\n"));
    CHECK(Contains(result.output, "enumerated:\n  7\n  -2.5\n  True\n  \xC3\xA4 \"q\"\n  \n"));
    CHECK(Contains(result.output, "countAfterRemove: 4\ncountAfterClear: 0\n"));
    CHECK(RunVelt({L"collection", L"--json", L"*.exe"}).output ==
          "{\"count\":1,\"items\":[\"*.exe\"],\"enumerated\":[\"*.exe\"],"
          "\"countAfterRemove\":0,\"countAfterClear\":0,\"exitCode\":0}\n");
    CHECK(Contains(RunVelt({L"collection"}).output, "count: 0\n"));
}

TEST_CASE("velt collection: whole numbers of 32 bits are numbers, all else is a text", "[tools]")
{
    // A number loses its leading zeros and its sign of nothing.
    const ProgramResult result =
        RunVelt({L"collection", L"-02147483648", L"-2147483648", L"-0", L"0002147483",
                 L"2147483647", L"2147483648", L"-2147483649", L"-", L"00000000001"});
    CHECK(Contains(result.output, "enumerated:\n  -02147483648\n  -2147483648\n  0\n  2147483\n"
                                  "  2147483647\n  2147483648\n  -2147483649\n  -\n"
                                  "  1\n"));
}

TEST_CASE("velt help: the first word of several commands is enough", "[tools]")
{
    for (const wchar_t* const word : {L"cookie", L"trace"})
    {
        const ProgramResult result = RunVelt({L"help", word});
        CHECK(result.exitCode == 0);
        CHECK(result.output == RunVelt({word, L"--help"}).output);
        CHECK(result.messages.empty());
    }
}

TEST_CASE("The programs: what their manifests tell the system", "[tools]")
{
    for (const wchar_t* const name : {L"velt.exe", L"velt-trace.exe"})
    {
        const HMODULE program =
            ::LoadLibraryExW(ShippedFile(name).c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
        REQUIRE(program);
        const HRSRC found = ::FindResourceW(program, MAKEINTRESOURCEW(1), MAKEINTRESOURCEW(24));
        REQUIRE(found);
        const std::string manifest(
            static_cast<const char*>(::LockResource(::LoadResource(program, found))),
            ::SizeofResource(program, found));
        CHECK(Contains(manifest, "version=\"" VELT_VERSION_TEXT "\""));
        CHECK(Contains(manifest, "{8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a}")); // Windows 10 and 11
        CHECK(Contains(manifest, ">true</longPathAware>"));
        CHECK(Contains(manifest, ">true/pm</dpiAware>")); // before Windows 10 1607
        CHECK(Contains(manifest, ">PerMonitorV2, PerMonitor</dpiAwareness>"));
        // The classes are the process's, whatever thread a script's event arrives on.
        const bool scripts = std::wstring(name) == L"velt.exe";
        CHECK(Contains(manifest, "name=\"VeltHTTPClient12OEM.Assembly\"") == scripts);
        CHECK(Contains(manifest, "<dependency optional=\"yes\">") == scripts);
        ::FreeLibrary(program);
    }
}

TEST_CASE("velt: without the library it fails with the system's code", "[tools]")
{
    const CopiedProgram program;
    program.Folder().Write(L"x.js", "");
    for (const auto& arguments : LibraryCommands(program.Folder()))
    {
        const ProgramResult result = RunVelt(arguments, program.Path());
        INFO(result.messages);
        CHECK(result.exitCode == 3);
        CHECK(Contains(result.messages, "VeltHTTPClient12OEM.dll: "));
        CHECK(Contains(result.messages, "(0x8007007E)"));
        CHECK(Contains(result.output, "\"code\":\"0x8007007E\""));
        CHECK(result.output.ends_with("}\n"));
    }
}

TEST_CASE("velt status: a library that makes no objects is an error among the findings", "[tools]")
{
    const CopiedProgram program;
    const auto check = [&](const std::string& code) {
        for (const std::vector<std::wstring>& arguments : std::vector<std::vector<std::wstring>>{
                 {L"status", L"--json"}, {L"status", L"--json", L"--tag"}})
        {
            const ProgramResult result = RunVelt(arguments, program.Path());
            INFO(result.output);
            CHECK(result.exitCode == 1);
            CHECK(result.messages.empty());
            CHECK(Contains(result.output, "\"code\":\"" + code + "\""));
            CHECK(
                Contains(result.output, "{\"level\":\"error\",\"about\":\"library\",\"text\":\""));
            CHECK(Contains(result.output, "{\"level\":\"ok\",\"about\":\"proxy\""));
        }
    };
    SECTION("none")
    {
        check("0x8007007E");
    }
    SECTION("not a library at all")
    {
        program.Folder().Write(L"VeltHTTPClient12OEM.dll", "text");
        check("0x800700C1");
    }
    SECTION("one without the entry points")
    {
        const MessageModule library(program.Folder().File(L"VeltHTTPClient12OEM.dll"), 1, L"x");
        check("0x8007007F");
    }
}

TEST_CASE("velt: libraries of the system come from the system's folder or not at all", "[tools]")
{
    // Those that are loaded late; a false one lies beside the program.
    const auto [library, arguments] = GENERATE(table<std::wstring, std::vector<std::wstring>>({
        {L"ole32.dll", {L"fetch", L"http://host.invalid/"}},
        {L"user32.dll", {L"trace", L"on", L"status"}},
        {L"version.dll", {L"status"}},
        {L"wininet.dll", {L"ping", L"http://host.invalid/"}},
        {L"ws2_32.dll", {L"ping", L"127.0.0.1"}},
    }));
    const CopiedProgram program;
    REQUIRE(::CopyFileW(ShippedFile(L"VeltHTTPClient12OEM.dll").c_str(),
                        program.Folder().File(L"VeltHTTPClient12OEM.dll").c_str(), TRUE));
    const MessageModule planted(program.Folder().File(library), 1, L"false");
    const MissingSystemLibrary missing(library);
    PreferFiles(L"velt.exe", library);
    const ProgramResult result = RunVelt(arguments, program.Path());
    INFO(velt::Utf8FromWide(library) + "\n" + result.output + result.messages);
    CHECK(result.exitCode == 3);
    CHECK(Contains(result.messages, "(0x8007007E)"));
}

TEST_CASE("The programs: what is loaded at their start cannot lie beside them", "[tools]")
{
    // Of the common controls there are several versions; the manifest asks for one, which comes
    // from the system's assemblies.
    const std::set<std::wstring> known(std::begin(kImportedLibraries),
                                       std::end(kImportedLibraries));
    for (const wchar_t* const name : {L"velt.exe", L"velt-trace.exe", L"VeltHTTPClient12OEM.dll"})
    {
        std::set<std::wstring> imports = ImportsOf(ShippedFile(name));
        CHECK(imports.count(L"kernel32.dll") == 1);
        if (std::wstring(name) == L"velt-trace.exe")
        {
            imports.erase(L"comctl32.dll");
        }
        for (const std::wstring& import : imports)
        {
            CAPTURE(velt::Utf8FromWide(name), velt::Utf8FromWide(import));
            CHECK(known.count(import) == 1);
        }
    }
    const std::set<std::wstring> here = KnownLibraries();
    if (here.empty())
    {
        WARN("this system has no known libraries");
        return;
    }
    for (const std::wstring& name : known)
    {
        CAPTURE(velt::Utf8FromWide(name));
        CHECK(here.count(name) == 1);
    }
}

TEST_CASE("velt: no library beside it is taken for one of the system's", "[tools]")
{
    const CopiedProgram program;
    for (const wchar_t* const name :
         {L"VeltHTTPClient12OEM.dll", L"VeltHTTPClient12OEM.Assembly.manifest"})
    {
        REQUIRE(::CopyFileW(ShippedFile(name).c_str(), program.Folder().File(name).c_str(), TRUE));
    }
    program.Folder().Write(L"x.js", "new ActiveXObject('VeltHTTPClient.VeltHTTPService12OEM');"
                                    "new ActiveXObject('Scripting.FileSystemObject');"
                                    "WScript.Echo('made');");
    const std::vector<std::vector<std::wstring>> commands = {
        {L"collection", L"x"},
        {L"status"},
        {L"ping", L"http://host.invalid/"},
        {L"script", program.Folder().File(L"x.js")}};
    std::vector<ProgramResult> before;
    before.reserve(commands.size());
    for (const auto& arguments : commands)
    {
        before.push_back(RunVelt(arguments, program.Path()));
    }
    CHECK(before[0].exitCode == 0);
    CHECK(before[3].output == "made\n");

    std::set<std::wstring> planted = SystemLibraries();
    if (KnownLibraries().empty())
    {
        WARN("this system has no known libraries: what the program imports, and what the system's "
             "own libraries load late, is looked for beside it");
        for (const wchar_t* const name :
             {L"advapi32", L"dhcpcsvc", L"dnsapi", L"iphlpapi", L"kernel32", L"kernelbase",
              L"msvcrt", L"nsi", L"ntdll", L"sechost", L"ucrtbase"})
        {
            planted.erase(std::wstring(name) + L".dll");
        }
    }
    for (const std::wstring& name : planted)
    {
        program.Folder().Write(name, "no library");
    }
    for (std::size_t i = 0; i < commands.size(); ++i)
    {
        const ProgramResult result = RunVelt(commands[i], program.Path());
        CAPTURE(i, result.output, result.messages);
        CHECK(result.exitCode == before[i].exitCode);
        CHECK(result.output == before[i].output);
        CHECK(result.messages == before[i].messages);
    }
}

TEST_CASE("velt-trace: no library beside it is taken for one of the system's", "[tools]")
{
    const TempFolder folder(L"viewer");
    const std::wstring program = folder.File(L"velt-trace.exe");
    REQUIRE(::CopyFileW(ShippedFile(L"velt-trace.exe").c_str(), program.c_str(), FALSE));
    folder.Write(L"t.txt", "one line\n");
    // True ones, so that one that is loaded is seen. What else the program imports is known.
    std::vector<std::wstring> planted{L"dwmapi.dll", L"propsys.dll"};
    if (KnownLibraries().empty())
    {
        WARN("this system's common controls load UxTheme before the program's first instruction, "
             "from wherever it lies");
    }
    else
    {
        planted.emplace_back(L"uxtheme.dll");
    }
    for (const std::wstring& name : planted)
    {
        REQUIRE(::CopyFileW(InSystemFolder(name).c_str(), folder.File(name).c_str(), FALSE));
    }
    ViewerProcess viewer(L"\"" + folder.File(L"t.txt") + L"\"", program);
    viewer.AwaitFileWindow();
    CHECK(viewer.AwaitRows(1));
    const std::wstring own = LowerCase(folder.Path());
    const std::vector<std::wstring> modules = ModulesOf(viewer.Id());
    CHECK(std::count_if(modules.begin(), modules.end(), [&](const std::wstring& path) {
              return path.ends_with(L"\\dwmapi.dll");
          }) == 1);
    for (const std::wstring& path : modules)
    {
        CAPTURE(velt::Utf8FromWide(path));
        CHECK((!path.starts_with(own) || path == LowerCase(program)));
    }
    CHECK(viewer.Close() == 0);
}

TEST_CASE("velt: a library of the wrong kind fails with its own code", "[tools]")
{
    const CopiedProgram program;
    SECTION("not a library at all")
    {
        program.Folder().Write(L"VeltHTTPClient12OEM.dll", "text");
        program.Folder().Write(L"x.js", "");
        for (const auto& arguments : LibraryCommands(program.Folder()))
        {
            const ProgramResult result = RunVelt(arguments, program.Path());
            INFO(result.messages);
            CHECK(result.exitCode == 3);
            CHECK(Contains(result.messages, "(0x800700C1)"));
        }
    }
    SECTION("one without the entry points")
    {
        const MessageModule library(program.Folder().File(L"VeltHTTPClient12OEM.dll"), 1, L"x");
        for (const wchar_t* const command : {L"collection", L"register"})
        {
            const ProgramResult result = RunVelt({command}, program.Path());
            CHECK(result.exitCode == 3);
            CHECK(Contains(result.messages, "(0x8007007F)"));
        }
    }
}

TEST_CASE("velt: a disk that is full is a failure", "[tools]")
{
    const velt::UniqueKernelObject full(::CreateFileW(L"Z:\\dev\\full", GENERIC_WRITE,
                                                      FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                                      OPEN_EXISTING, 0, nullptr));
    REQUIRE(full.Get() != INVALID_HANDLE_VALUE);
    ::SetHandleInformation(full.Get(), HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
    for (const wchar_t* const command : {L"--help", L"collection"})
    {
        const ProgramResult result = ProgramRun({command}, VeltProgram(), full.Get()).Wait();
        CHECK(result.exitCode == 3);
        CHECK(Contains(result.messages, "(0x80070070)"));
    }
}

TEST_CASE("velt proxy: nothing without settings", "[tools]")
{
    const ProgramResult result = RunVelt({L"proxy"});
    CHECK(result.exitCode == 1);
    CHECK(result.output == "proxy: none\n");
    CHECK(RunVelt({L"proxy", L"--json"}).output == "{\"proxy\":null,\"exitCode\":1}\n");
}

TEST_CASE("velt proxy: what discovery found and from where", "[tools]")
{
    const DWORD enabled = 1;
    const UserText server(kSettingsKey, L"ProxyServer", L"http=relay:3128");
    ::RegSetKeyValueW(HKEY_CURRENT_USER, kSettingsKey, L"ProxyEnable", REG_DWORD, &enabled,
                      sizeof(enabled));
    ProgramResult result = RunVelt({L"proxy"});
    CHECK(result.exitCode == 0);
    CHECK(result.output == "proxy: relay:3128\nhost: relay\nport: 3128\nurl: http://relay\n"
                           "from: HKEY_CURRENT_USER\\Software\\Microsoft\\Windows\\CurrentVersion\\"
                           "Internet Settings\n");
    CHECK(
        Contains(RunVelt({L"status"}).output,
                 "\nok       the proxy is relay:3128, from HKEY_CURRENT_USER\\Software\\Microsoft\\"
                 "Windows\\CurrentVersion\\Internet Settings\n"));
    {
        const UserText legacy(kLegacyKey, L"proxy", L"gateway");
        result = RunVelt({L"proxy"});
        CHECK(result.exitCode == 0);
        CHECK(Contains(result.output, "proxy: gateway\nhost: gateway\nport: \n"));
        CHECK(Contains(result.output, "Quillplayer\\Internet\n"));
    }
    ::RegDeleteTreeW(HKEY_CURRENT_USER, L"SOFTWARE\\Lumenfield Technologies");
    ::RegDeleteKeyValueW(HKEY_CURRENT_USER, kSettingsKey, L"ProxyEnable");
    CHECK(RunVelt({L"proxy"}).exitCode == 1);
}

TEST_CASE("velt ping: echoes, and says no in time", "[tools]")
{
    ProgramResult result = RunVelt({L"ping", L"127.0.0.1"});
    CHECK(result.exitCode == 0);
    CHECK(result.output == "host: 127.0.0.1\naddress: 127.0.0.1\nanswered: yes\n");
    // The broadcast address of the loopback network, which the system refuses to send to.
    result = RunVelt({L"ping", L"127.255.255.255", L"--timeout", L"100", L"--json"});
    CHECK(result.exitCode == 1);
    CHECK(result.output ==
          "{\"host\":\"127.255.255.255\",\"address\":\"127.255.255.255\",\"answered\":false,"
          "\"exitCode\":1}\n");
    result = RunVelt({L"ping", L"no.such.host.invalid"});
    CHECK(result.exitCode == 3);
    CHECK(Contains(result.messages, "no.such.host.invalid: "));
    result = RunVelt({L"ping"});
    CHECK(result.exitCode == (Contains(result.output, "connected: yes") ? 0U : 1U));
    result = RunVelt({L"ping", L"http://127.0.0.1:1/"});
    CHECK(result.exitCode == 1);
    CHECK(Contains(result.output, "connected: no\n"));
}

TEST_CASE("velt eula show: a file that is missing fails before a dialog comes", "[tools]")
{
    const TempFolder folder;
    folder.Write(L"there.rtf", "{\\rtf1 x}");
    for (const auto& [agreement, texts] :
         {std::pair(folder.File(L"nope.rtf"), folder.File(L"there.rtf")),
          std::pair(folder.File(L"there.rtf"), folder.File(L"nope.xml")),
          std::pair(folder.Path(), folder.File(L"there.rtf"))})
    {
        const ProgramResult result =
            RunVelt({L"eula", L"show", L"--agreement", agreement, L"--texts", texts});
        CHECK(result.exitCode == 3);
        CHECK(Contains(result.messages, "(0x80070002)"));
    }
    CHECK(RunVelt({L"eula", L"show", L"--texts", L"x"}).exitCode == 2);
}

TEST_CASE("velt eula show: the user's answer is the exit code", "[tools]")
{
    const auto [accept, translated] =
        GENERATE(table<bool, bool>({{true, true}, {false, true}, {true, false}}));
    const TempFolder folder;
    folder.Write(L"agreement.rtf", kSmallAgreement);
    folder.Write(L"texts.xml", "<texts><RECORD><k>i_accept</k><v>Yes, I do</v></RECORD></texts>");
    std::vector<std::wstring> arguments{L"eula", L"show", L"--agreement",
                                        folder.File(L"agreement.rtf")};
    if (translated)
    {
        arguments.insert(arguments.end(), {L"--texts", folder.File(L"texts.xml")});
    }
    const std::wstring caption = translated ? L"Yes, I do" : L"I &accept";
    ProgramRun run(arguments);
    const HWND accepting = AwaitAcceptButton(run.ProcessId(), caption);
    REQUIRE(accepting);
    const HWND dialog = ::GetParent(accepting);
    CHECK(Choose(dialog, accept ? VELT_EULA_ACCEPT : VELT_EULA_DECLINE));
    CHECK(PressUntilGone(dialog, VELT_EULA_OK));
    const ProgramResult result = run.Wait();
    CHECK(result.exitCode == (accept ? 0U : 1U));
    CHECK(result.output == (accept ? "accepted: yes\n" : "accepted: no\n"));
    CHECK(result.messages.empty());
}

TEST_CASE("velt trace on: shows the component's trace on standard error", "[tools]")
{
    const EnvironmentVariable quiet("VELT_TRACE", "0"); // is overruled
    const ProgramResult result = RunVelt({L"trace", L"on", L"collection", L"a", L"--json"});
    CHECK(result.exitCode == 0);
    CHECK(result.output.starts_with("{\"count\":1,"));
    CHECK(Contains(result.messages, "trace: CEnumVariantCol::Add - enter\n"));
    CHECK(Contains(result.messages, "trace: CEnumVariantCol::Clear - return = 0\n"));
    CHECK(RunVelt({L"trace", L"on", L"nonsense"}).exitCode == 2);
    CHECK_FALSE(Contains(RunVelt({L"collection", L"a"}).messages, "trace:"));
}

TEST_CASE("velt trace on: what arrives is checked, and says nothing to the terminal", "[tools]")
{
    const TempFolder folder;
    folder.Write(L"wait.js", "WScript.Sleep(60000)");
    // Ended with its owner.
    const ProgramRun run({L"trace", L"on", L"script", folder.File(L"wait.js")});
    HWND window = nullptr;
    REQUIRE(Eventually([&] {
        DWORD owner = 0;
        window = ::FindWindowW(velt::kTraceViewerClass, nullptr);
        return window && ::GetWindowThreadProcessId(window, &owner) && owner == run.ProcessId();
    }));
    CHECK(Contains(RunVelt({L"status"}).output, "\nok       a trace viewer is listening: process " +
                                                    std::to_string(run.ProcessId()) + "\n"));
    SendRecord(window, "a\tb\x1B[2J");
    SendRecord(window, "gr\xFC\xDF");
    const velt::TraceRecord record = velt::EncodeTraceRecord(4, 0, "", "another kind");
    SendBytes(window, {reinterpret_cast<const char*>(record.bytes.data()), record.size}, 1);
    SendBytes(window, "junk");
    SendBytes(window, "");
    wchar_t wide[8] = {};
    char narrow[24] = {};
    ::MultiByteToWideChar(CP_ACP, 0, "gr\xFC\xDF", -1, wide, 8);
    ::WideCharToMultiByte(CP_UTF8, 0, wide, -1, narrow, 24, nullptr, nullptr);
    const std::string messages = run.Messages();
    INFO(messages);
    CHECK(Contains(messages, "trace: a\\tb\\x1B[2J\n"));
    CHECK(Contains(messages, "trace: " + std::string(narrow) + "\n"));
    CHECK(Contains(messages, "trace: malformed record (wrong magic), 94 bytes: 5E 00 00 00 "));
    CHECK(Contains(messages, "trace: malformed record (too short), 4 bytes: 6A 75 6E 6B\n"));
    CHECK(Contains(messages, "trace: malformed record (too short), 0 bytes\n"));

    ViewerProcess viewer(L"--console");
    CHECK(viewer.AwaitExit() == 1);
    CHECK(viewer.Errors() == "velt-trace: A trace viewer is running already.\r\n");
}
