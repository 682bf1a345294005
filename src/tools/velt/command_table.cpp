#include "tools/velt/command_table.h"

#include <array>

namespace velt::tool
{
namespace
{
constexpr std::array<OptionRow, 2> kCommonOptions = {{
    {"json", "", "print one JSON object instead of text"},
    {"help", "", "print how to use the command"},
}};

constexpr std::array<OptionRow, 1> kStatusOptions = {{
    {"tag", "", "also the machine's service tag, which can take seconds"},
}};

constexpr std::array<OptionRow, 1> kDomainOption = {{
    {"domain", "D", "domain that the cookie is for, such as .example.com"},
}};

constexpr std::array<OptionRow, 2> kUpdateCheckOptions = {{
    {"locale", "LCID", "locale of the product; 1033, English, by default"},
    {"offline", "", "only ask whether an update agent is installed"},
}};

constexpr std::array<OptionRow, 5> kUpdateStartOptions = {{
    {"locale", "LCID", "locale of the product; 1033, English, by default"},
    {"description", "TEXT", "name of the product, shown by the agent"},
    {"background", "", "queue the work; it begins 30 seconds later"},
    {"wait", "", "wait until the work has ended"},
    {"timeout", "SECONDS", "how long to wait; 120 seconds by default"},
}};

constexpr std::array<OptionRow, 2> kEulaOptions = {{
    {"agreement", "FILE", "the agreement, an RTF file"},
    {"texts", "FILE", "the captions, an XML file; English ones without"},
}};

constexpr std::array<OptionRow, 1> kScriptOptions = {{
    {"engine", "NAME", "script engine; by default JScript for .js, VBScript for .vbs"},
}};

constexpr std::array<OptionRow, 11> kFetchOptions = {{
    {"output", "FILE", "file for the body; one URL only"},
    {"folder", "DIR", "folder for the bodies, made if missing; URLs give names"},
    {"user", "NAME", "user name for a server that asks for one"},
    {"password", "TEXT", "password for it"},
    {"password-file", "FILE", "file whose first line is it; - for standard input"},
    {"proxy", "HOST:PORT", "proxy; by default the system's configuration"},
    {"verb", "VERB", "GET by default, POST with data"},
    {"data", "TEXT", "data to send, or @FILE for what is in a file"},
    {"content-type", "TYPE", "media type of the data"},
    {"accept", "TYPE", "media type to accept"},
    {"header", "NAME:VALUE", "header to send; may stand several times"},
}};

constexpr std::array<OptionRow, 1> kPingOptions = {{
    {"timeout", "MS", "milliseconds to wait for the echo; 1000 by default"},
}};

constexpr std::array<OptionRow, 1> kUserOption = {{
    {"user", "", "for the current user, not for the machine"},
}};

constexpr std::array<std::string_view, 2> kStatusExamples = {{
    "velt status",
    "velt status --tag --json",
}};

constexpr std::array<std::string_view, 1> kCookieGetExamples = {{
    "velt cookie get http://example/",
}};

constexpr std::array<std::string_view, 1> kCookieSetExamples = {{
    "velt cookie set http://example/ a \"b; expires=Fri, 31-Dec-2038 00:00:00 GMT\"",
}};

constexpr std::array<std::string_view, 1> kSafeGetExamples = {{
    "velt safe get http://www.example.com/ name",
}};

constexpr std::array<std::string_view, 1> kSafeSetExamples = {{
    "velt safe set http://www.example.com/ name \"any text\"",
}};

constexpr std::array<std::string_view, 2> kUpdateCheckExamples = {{
    "velt update check {AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841B} 12.0",
    "velt update check {AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841B} 12.0 --offline",
}};

constexpr std::array<std::string_view, 1> kUpdateStartExamples = {{
    "velt update start {AC0EE5B0-A8FB-4D0A-AF03-2EDC518F841B} 12.0 --locale 1031",
}};

constexpr std::array<std::string_view, 2> kEulaShowExamples = {{
    "velt eula show --agreement licence.rtf",
    "velt eula show --agreement licence.rtf --texts german.xml",
}};

constexpr std::array<std::string_view, 1> kCollectionExamples = {{
    "velt collection 7 -2.5 true \"a text\"",
}};

constexpr std::array<std::string_view, 1> kScriptExamples = {{
    "velt script hello.js one two /name:value",
}};

constexpr std::array<std::string_view, 3> kFetchExamples = {{
    "velt fetch http://www.example.com/plain.txt",
    "velt fetch --output copy.txt http://www.example.com/plain.txt",
    "velt fetch --header \"Accept-Language: de\" http://www.example.com/plain.txt",
}};

constexpr std::array<std::string_view, 1> kProxyExamples = {{
    "velt proxy",
}};

constexpr std::array<std::string_view, 3> kPingExamples = {{
    "velt ping",
    "velt ping 127.0.0.1 --timeout 500",
    "velt ping http://www.example.com/",
}};

constexpr std::array<std::string_view, 1> kRegisterComponentExamples = {{
    "velt register --user",
}};

constexpr std::array<std::string_view, 1> kUnregisterComponentExamples = {{
    "velt unregister --user",
}};

constexpr std::array<std::string_view, 1> kTraceOnExamples = {{
    "velt trace on collection \"a text\"",
}};

constexpr std::array<CommandRow, 16> kCommands = {{
    {CommandId::status, "status", "", 0, 0, "what the component and the machine are like",
     "Looks at the library beside this program, at what is registered for each kind\n"
     "of programs, at the update agent, the trace viewer, the connection and the\n"
     "proxy. Each finding is ok, a warning or an error, and says what to do. Exit\n"
     "code 1 when there is an error.\n",
     kStatusOptions, kStatusExamples, false},
    {CommandId::cookieGet,
     "cookie get",
     "URL",
     1,
     1,
     "the cookies of a URL",
     "Prints all cookies of the URL. Exit code 1 when it has none.\n",
     {},
     kCookieGetExamples,
     false},
    {CommandId::cookieSet,
     "cookie set",
     "URL NAME VALUE",
     3,
     3,
     "set a cookie of a URL",
     "A value without \"; expires=...\" makes a cookie that ends with this process.\n"
     "Exit code 1 when the cookie was not kept.\n",
     {},
     kCookieSetExamples,
     false},
    {CommandId::safeGet, "safe get", "URL NAME", 2, 2, "a scrambled value of a URL",
     "Exit code 1 when there is none of that name. Scrambling hides a value from a\n"
     "casual reader; it is not encryption.\n",
     kDomainOption, kSafeGetExamples, false},
    {CommandId::safeSet, "safe set", "URL NAME VALUE", 3, 3, "keep a scrambled value for a URL",
     "The value is kept for 183 days. Exit code 1 when it was refused.\n", kDomainOption,
     kSafeSetExamples, false},
    {CommandId::updateCheck, "update check", "GUID VERSION", 2, 2,
     "whether an update or a message is available",
     "GUID is the product's installer GUID in braces. Exit code 1 when nothing is\n"
     "available, or no update agent is installed.\n",
     kUpdateCheckOptions, kUpdateCheckExamples, false},
    {CommandId::updateStart, "update start", "[GUID VERSION]", 0, 2,
     "have the update agent look after a product",
     "GUID is the product's installer GUID in braces; without one, the component\n"
     "asks for its own updates, which it does in the background only. Events are\n"
     "printed as they arrive. Queued work would end with this process, so it needs\n"
     "--wait. Exit code 1 when the work has not ended in time, or no update agent is\n"
     "installed.\n",
     kUpdateStartOptions, kUpdateStartExamples, false},
    {CommandId::eulaShow, "eula show", "", 0, 0, "show a licence agreement and ask for consent",
     "Exit code 0 when the agreement was accepted, 1 when it was not. --agreement is\n"
     "needed.\n",
     kEulaOptions, kEulaShowExamples, false},
    {CommandId::collection,
     "collection",
     "[VALUE...]",
     0,
     kAnyNumber,
     "fill a collection and use every operation once",
     "Whole numbers, numbers with a point, true and false are added as such, other\n"
     "values as texts.\n",
     {},
     kCollectionExamples,
     false},
    {CommandId::script, "script", "FILE [ARGUMENT...]", 1, kAnyNumber,
     "run a JScript or VBScript file",
     "The script creates the component's classes by their ProgIDs, registered or not.\n"
     "WScript is there with Arguments, Echo, StdIn, StdOut, StdErr, Sleep, Quit and\n"
     "what else scripts expect of their host. While the script sleeps,\n"
     "ConnectObject(service, \"on_\") delivers events to functions such as\n"
     "on_Notify. The exit code is that of Quit; 3 when the script fails. Options\n"
     "stand before FILE.\n",
     kScriptOptions, kScriptExamples, true},
    {CommandId::fetch, "fetch", "URL...", 1, kAnyNumber, "fetch URLs through the request queue",
     "Without a file or a folder the bodies go to standard output. A file gets its\n"
     "name when it is complete, and not before. Ctrl+C abandons what is under way.\n"
     "Everything comes from the servers, and nothing stays in the user's cache. Exit\n"
     "code 1 when a server answered with another status than 200 to 299; only 200 has\n"
     "a body that is kept.\n",
     kFetchOptions, kFetchExamples, false},
    {CommandId::proxy,
     "proxy",
     "",
     0,
     0,
     "the proxy that discovery finds, and from where",
     "Exit code 1 when there is none.\n",
     {},
     kProxyExamples,
     false},
    {CommandId::ping, "ping", "[TARGET]", 0, 1, "whether the machine is connected",
     "TARGET is a host to send an echo to, or an http or https URL to connect to;\n"
     "without one, the system's own answer counts. Exit code 1 when it is no.\n",
     kPingOptions, kPingExamples, false},
    {CommandId::registerComponent, "register", "", 0, 0, "register the component",
     "For the machine, or for the current user when the machine's classes cannot be\n"
     "written. Programs that run elevated do not see a user's registration.\n",
     kUserOption, kRegisterComponentExamples, false},
    {CommandId::unregisterComponent, "unregister", "", 0, 0, "take the registration back",
     "Removes the keys, values and type library that registration wrote, and nothing\n"
     "else. Exit code 1 when this copy of the component is not registered.\n",
     kUserOption, kUnregisterComponentExamples, false},
    {CommandId::traceOn,
     "trace on",
     "COMMAND...",
     1,
     kAnyNumber,
     "run another command with its trace shown",
     "Trace lines go to standard error.\n",
     {},
     kTraceOnExamples,
     true},
}};
} // namespace

std::span<const CommandRow> Commands() noexcept
{
    return kCommands;
}

std::span<const OptionRow> CommonOptions() noexcept
{
    return kCommonOptions;
}
} // namespace velt::tool
