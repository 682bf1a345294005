// The commands of velt.exe that use the HTTP service object, with the system's own cookie store and
// with the sample update agent in its own process.

#include "foundation/wide_text.h"
#include "tests/support/component_library.h"
#include "tests/support/edition.h"
#include "tests/support/sample_agent_server.h"
#include "tests/support/temp_folder.h"
#include "tests/tools/velt/velt_program.h"

#include <catch.hpp>

#include <string>

using namespace velt::test;

namespace
{
const std::wstring kProduct = L"{AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841B}";
const std::string kOneUpdate = "[agent]\r\nconnected=1\r\nwanted=1\r\n[updates]\r\n{AC0EE5B0-A8FB-"
                               "4D0A-AF03-2EDC518F841B}=1\r\n";
const std::string kNoUpdate = "[agent]\r\nconnected=1\r\n";
const std::string kEvent = "self_upgrade {AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841B}\n";

const std::wstring kAgentServerKey =
    L"Software\\Classes\\CLSID\\{D8F219B9-D0C0-470C-8210-74650E79D3DC}\\LocalServer32";

bool Contains(const std::string& text, const std::string& part)
{
    return text.find(part) != text.npos;
}

bool HasCall(const SampleAgentServer& agent, const std::string& begin)
{
    for (const std::string& call : agent.Calls())
    {
        if (call.starts_with(begin))
        {
            return true;
        }
    }
    return false;
}

std::string EditionName()
{
    return velt::Utf8FromWide(kEdition.name);
}

/// Another default value of a key of the machine's, until the end of the scope.
class MachineDefault
{
public:
    MachineDefault(std::wstring key, const std::wstring& text) : m_key(std::move(key))
    {
        DWORD bytes = sizeof(m_before);
        REQUIRE(::RegGetValueW(HKEY_LOCAL_MACHINE, m_key.c_str(), nullptr, RRF_RT_REG_SZ, nullptr,
                               m_before, &bytes) == ERROR_SUCCESS);
        Write(text);
    }

    MachineDefault(const MachineDefault&) = delete;
    MachineDefault& operator=(const MachineDefault&) = delete;

    ~MachineDefault()
    {
        Write(m_before);
    }

private:
    void Write(const std::wstring& text) const
    {
        ::RegSetKeyValueW(HKEY_LOCAL_MACHINE, m_key.c_str(), nullptr, REG_SZ, text.c_str(),
                          static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
    }

    const std::wstring m_key;
    wchar_t m_before[2 * MAX_PATH] = {};
};

ProgramResult RunScript(const wchar_t* name, const std::string& text)
{
    const TempFolder folder(L"script");
    folder.Write(name, text);
    return RunVelt({L"script", folder.File(name)});
}
} // namespace

TEST_CASE("velt status: what the component and its registration are", "[tools]")
{
    ProgramResult result = RunVelt({L"status"});
    CHECK(result.exitCode == 0);
    CHECK(result.messages.empty());
    CHECK(Contains(result.output, "version: 12."));
    CHECK(Contains(result.output, "registeredForMachine: none\nregisteredForUser: none\n"
                                  "userHidesMachine: no\n"));
    CHECK(Contains(result.output, "\nwarning  " + EditionName() + ": not registered; "));
    CHECK_FALSE(Contains(result.output, "serviceTag"));
    CHECK(Contains(result.output, "\nconnectedFrom: InternetGetConnectedState\n"));
    result = RunVelt({L"status", L"--tag"});
    CHECK(result.exitCode == 0);
    CHECK(Contains(result.output, "\nredirect: http://"));
    CHECK(Contains(result.output, "/redirect/redirect.aspx?\ndomain: \nserviceTag: "));
    REQUIRE(RunVelt({L"register", L"--user"}).exitCode == 0);
    result = RunVelt({L"status", L"--json"});
    CHECK(Contains(result.output, "\"registeredForMachine\":null,\"registeredForUser\":\""));
    CHECK(Contains(result.output, "\"userHidesMachine\":false"));
    CHECK(Contains(result.output, "\"elevatedSees\":false"));
    CHECK_FALSE(Contains(result.output, "\"elevatedSees\":true"));
    result = RunVelt({L"status"});
    CHECK(Contains(result.output, "\nwarning  " + EditionName() +
                                      ", user: programs that run elevated do not see it; velt "
                                      "register by an administrator registers for the machine\n"));
    REQUIRE(RunVelt({L"unregister", L"--user"}).exitCode == 0);

    // The user's own, registered over the machine's, is what this user's programs get.
    REQUIRE(RunVelt({L"register"}).exitCode == 0);
    result = RunVelt({L"status"});
    CHECK(result.exitCode == 0);
    CHECK(Contains(result.output, "userHidesMachine: no\n"));
    CHECK(Contains(result.output, "\nok       " + EditionName() + ", machine: "));
    CHECK(Contains(result.output, ": makes objects\n"));
    CHECK_FALSE(Contains(result.output, "elevated"));
    REQUIRE(RunVelt({L"register", L"--user"}).exitCode == 0);
    result = RunVelt({L"status"});
    CHECK(result.exitCode == 0);
    CHECK(Contains(result.output, "userHidesMachine: yes\n"));
    CHECK(Contains(result.output, "\nwarning  " + EditionName() + ", user: hides the machine's"));
    REQUIRE(RunVelt({L"register"}).exitCode == 0); // takes the user's away
    result = RunVelt({L"status"});
    CHECK(Contains(result.output, "registeredForUser: none\nuserHidesMachine: no\n"));
    REQUIRE(RunVelt({L"unregister"}).exitCode == 0);
}

TEST_CASE("velt status: the update agent, and whether its file is there", "[tools]")
{
    CHECK(Contains(RunVelt({L"status"}).output, "\nwarning  no update agent is installed; "));
    const SampleAgentServer agent(kNoUpdate);
    ProgramResult result = RunVelt({L"status"});
    CHECK(result.exitCode == 0);
    CHECK(Contains(result.output, "\nagentInstalled: yes\nagent: "));
    CHECK(Contains(result.output, "\nok       the update agent is "));
    CHECK(agent.Calls().empty()); // it was not started
    {
        const MachineDefault nothing(kAgentServerKey, L"\"\" -x \"y\"");
        CHECK(Contains(RunVelt({L"status"}).output,
                       "\nerror    the update agent's file is missing: ; "));
    }
    const MachineDefault gone(kAgentServerKey, L"\"C:\\no where\\agent.exe\" -x");
    result = RunVelt({L"status"});
    CHECK(result.exitCode == 1);
    CHECK(Contains(result.output,
                   "\nerror    the update agent's file is missing: C:\\no where\\agent.exe; "));
    result = RunVelt({L"update", L"start", kProduct, L"3.0"});
    CHECK(result.exitCode == 1);
    CHECK(result.messages == "velt: the update agent's file is missing: C:\\no where\\agent.exe\n");
}

TEST_CASE("velt status: an update agent whose path has blanks and no quotation marks", "[tools]")
{
    const SampleAgentServer agent(kNoUpdate); // its registration is what changes
    const TempFolder folder(L"agent");
    // What the command line begins with is there, and no program.
    for (const wchar_t* const name : {L"the", L"the installed"})
    {
        REQUIRE(::CreateDirectoryW(folder.File(name).c_str(), nullptr));
    }
    const std::wstring program = folder.File(L"the installed\\update agent.exe");
    const MachineDefault unquoted(kAgentServerKey, program + L" -x");
    ProgramResult result = RunVelt({L"status"});
    CHECK(result.exitCode == 1);
    CHECK(Contains(result.output, "\nerror    the update agent's file is missing: " +
                                      velt::Utf8FromWide(program) + " -x; "));
    folder.Write(L"the installed\\update agent.exe", "MZ");
    result = RunVelt({L"status"});
    CHECK(result.exitCode == 0);
    CHECK(Contains(result.output, "\nok       the update agent is "));
}

TEST_CASE("velt cookie: what is set is got by the next process", "[tools]")
{
    const std::wstring url = L"http://cookies.velt.example/";
    ProgramResult result = RunVelt({L"cookie", L"get", url});
    CHECK(result.exitCode == 1);
    CHECK(result.output.empty());
    result =
        RunVelt({L"cookie", L"set", url, L"name", L"value; expires=Fri, 31-Dec-2038 00:00:00 GMT"});
    CHECK(result.exitCode == 0);
    CHECK(result.output.empty());
    result = RunVelt({L"cookie", L"get", url});
    CHECK(result.exitCode == 0);
    CHECK(result.output == "name=value\n");
    CHECK(RunVelt({L"cookie", L"get", url, L"--json"}).output ==
          "{\"url\":\"http://cookies.velt.example/\",\"cookies\":\"name=value\","
          "\"exitCode\":0}\n");
}

TEST_CASE("velt cookie and safe: a wrong URL is wrong usage, not a name without a value", "[tools]")
{
    for (const std::vector<std::wstring>& arguments :
         std::vector<std::vector<std::wstring>>{{L"cookie", L"get", L"nonsense"},
                                                {L"cookie", L"set", L"nonsense", L"name", L"value"},
                                                {L"safe", L"get", L"nonsense", L"name"},
                                                {L"safe", L"set", L"nonsense", L"name", L"value"}})
    {
        const ProgramResult result = RunVelt(arguments);
        CHECK(result.exitCode == 2);
        CHECK(result.messages.starts_with("velt: not an http or https URL: nonsense\n"));
    }
}

TEST_CASE("velt cookie: one that the store refuses is not kept, and that is said", "[tools]")
{
    const std::wstring url = L"http://kept.velt.example/";
    if (GENERATE(false, true)) // also where another one is, which outlives its process
    {
        REQUIRE(
            RunVelt({L"cookie", L"set", url, L"other", L"1; expires=Fri, 31-Dec-2038 00:00:00 GMT"})
                .exitCode == 0);
        REQUIRE(RunVelt({L"cookie", L"get", url}).output == "other=1\n");
    }
    const ProgramResult result =
        RunVelt({L"cookie", L"set", url, L"name", L"v; domain=other.example"});
    CHECK(result.exitCode == 1);
    CHECK(result.messages == "velt: the cookie store did not keep the cookie\n");
}

TEST_CASE("velt safe: values of any text survive, with and without a domain", "[tools]")
{
    const std::wstring url = L"http://www.safe.velt.example/";
    const std::wstring text = L"a=b; c \x00E4\x4E2D";
    CHECK(RunVelt({L"safe", L"get", url, L"name"}).exitCode == 1);
    CHECK(RunVelt({L"safe", L"set", url, L"name", text}).exitCode == 0);
    const ProgramResult result = RunVelt({L"safe", L"get", url, L"name"});
    CHECK(result.exitCode == 0);
    CHECK(result.output == "a=b; c \xC3\xA4\xE4\xB8\xAD\n");
    CHECK(RunVelt({L"safe", L"get", url, L"other"}).exitCode == 1);
    // It is scrambled in the cookie.
    CHECK_FALSE(Contains(RunVelt({L"cookie", L"get", url}).output, "a=b"));

    const std::wstring host = L"http://host.domain.velt.example/";
    CHECK(RunVelt({L"safe", L"set", host, L"n", L"v", L"--domain", L"domain.velt.example"})
              .exitCode == 0);
    CHECK(
        RunVelt({L"safe", L"get", L"http://other.domain.velt.example/", L"n", L"--json"}).output ==
        "{\"url\":\"http://other.domain.velt.example/\",\"name\":\"n\",\"value\":\"v\","
        "\"exitCode\":0}\n");
}

TEST_CASE("velt safe: a value that no cookie can hold is not kept, and that is said", "[tools]")
{
    const std::wstring url = L"http://long.velt.example/";
    const ProgramResult result =
        RunVelt({L"safe", L"set", url, L"n", std::wstring(8000, L'v'), L"--json"});
    CHECK(result.exitCode == 1);
    CHECK(result.output == "{\"url\":\"http://long.velt.example/\",\"name\":\"n\","
                           "\"kept\":false,\"exitCode\":1}\n");
    CHECK(result.messages == "velt: the cookie store did not keep the value\n");
}

TEST_CASE("velt update: without an agent the answer is no, and nothing is begun", "[tools]")
{
    CHECK(RunVelt({L"update", L"check", kProduct, L"3.0"}).exitCode == 1);
    CHECK(RunVelt({L"update", L"check", kProduct, L"3.0", L"--offline"}).output ==
          "available: no\n");
    for (const std::vector<std::wstring>& arguments : std::vector<std::vector<std::wstring>>{
             {L"update", L"start", kProduct, L"3.0"},
             {L"update", L"start", kProduct, L"3.0", L"--wait"},
             {L"update", L"start", kProduct, L"3.0", L"--background", L"--wait"},
             {L"update", L"start", L"--wait"}})
    {
        const ProgramResult result = RunVelt(arguments);
        CHECK(result.exitCode == 1);
        CHECK(result.output.empty());
        CHECK(result.messages == "velt: no update agent is installed\n");
    }
    CHECK(RunVelt({L"update", L"start", kProduct, L"3.0", L"--json"}).output ==
          "{\"agent\":false,\"ended\":false,\"events\":[],\"exitCode\":1}\n");
}

TEST_CASE("velt update: asks a real agent and has it work", "[tools]")
{
    const SampleAgentServer agent(kOneUpdate);
    ProgramResult result = RunVelt({L"update", L"check", kProduct, L"3.0"});
    CHECK(result.exitCode == 0);
    CHECK(result.output == "available: yes\n");
    result = RunVelt({L"update", L"start", kProduct, L"3.0", L"--locale", L"1031", L"--description",
                      L"Product", L"--json"});
    CHECK(result.exitCode == 0);
    CHECK(result.output == "{\"agent\":true,\"ended\":true,\"events\":[\"self_upgrade "
                           "{AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841B}\"],\"exitCode\":0}\n");
    CHECK(HasCall(agent, "SetLanguage {AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841B} 1031"));
    agent.CloseWindow(); // as long as it is there the agent lives
    agent.Configure(kNoUpdate);
    CHECK(RunVelt({L"update", L"check", kProduct, L"3.0"}).exitCode == 1);
    CHECK(RunVelt({L"update", L"check", kProduct, L"3.0", L"--offline"}).exitCode == 0);

    // Queued work is done while the program waits.
    agent.Configure(kOneUpdate);
    // It begins 30 seconds later.
    ProgramRun queued({L"update", L"start", kProduct, L"3.0", L"--background", L"--wait"});
    const ProgramResult early =
        RunVelt({L"update", L"start", L"--wait", L"--timeout", L"1", L"--json"});
    CHECK(early.exitCode == 1);
    CHECK(early.output == "{\"agent\":true,\"ended\":false,\"events\":[],\"exitCode\":1}\n");
    CHECK(early.messages == "velt: the work has not ended in time\n");
    const ProgramResult unattended =
        RunVelt({L"update", L"start", kProduct, L"3.0", L"--background"});
    CHECK(unattended.exitCode == 2);
    CHECK(Contains(unattended.messages, "ends with this process"));
    result = queued.Wait();
    INFO(result.messages);
    CHECK(result.exitCode == 0);
    CHECK(result.output == kEvent);
    for (const std::string& call : agent.Calls())
    {
        UNSCOPED_INFO(call);
    }
    CHECK(HasCall(agent, "StartBackgroundUpdate "));
    CHECK(HasCall(agent, "SetLanguage {AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841B} 1033")); // English
}

TEST_CASE("velt script: the service's events reach the script's functions", "[tools]")
{
    ProgramResult result = RunScript(
        L"e.js", "var s = WScript.CreateObject('VeltHTTPClient.VeltHTTPService12OEM', 'on_');"
                 "var t = new ActiveXObject('VeltHTTPClient.VeltHTTPService12OEM.2');"
                 "var id = '{AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841B}';"
                 "function on_Notify(event, text) { WScript.Echo('on', event, text); }"
                 "function t_Notify(event, text) { WScript.Echo('t', event, text); }"
                 "s.InvokeUpdate(id, '3.0', 1033, '');"
                 "WScript.ConnectObject(t, 't_');"
                 "t.InvokeUpdate(id, '3.0', 1033, '');"
                 "WScript.DisconnectObject(t);"
                 "t.InvokeUpdate(id, '3.0', 1033, '');"
                 "WScript.Echo('end');");
    CHECK(result.exitCode == 0);
    CHECK(result.messages.empty());
    CHECK(result.output == "on 0 {AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841B}\n"
                           "t 0 {AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841B}\nend\n");
    result = RunScript(
        L"e.vbs",
        "Set s = CreateObject(\"VeltHTTPClient.VeltHTTPService12OEM\")\r\n"
        "WScript.ConnectObject s, \"s_\"\r\n"
        "Sub s_Notify(e, text)\r\nWScript.Echo e, text\r\nEnd Sub\r\n"
        "s.InvokeUpdate \"{AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841B}\", \"3.0\", 1033, \"\"\r\n");
    CHECK(result.exitCode == 0);
    CHECK(result.messages.empty());
    CHECK(result.output == "0 {AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841B}\n");
}
