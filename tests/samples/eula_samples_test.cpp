// The hosts that show the licence agreement, each answered like a person does it.

#include "foundation/wide_text.h"
#include "tests/samples/sample_runs.h"
#include "tests/support/press_button.h"
#include "tests/support/test_thread.h"
#include "tests/support/viewer_process.h"
#include "ui/resources/resource_ids.h"

#include <catch.hpp>

#include <string>

using namespace velt;
using namespace velt::test;
using Lines = std::vector<std::string>;

namespace
{
/// The command of each host, without its arguments.
std::wstring Host()
{
    return GENERATE(true, false) ? SampleProgram(L"eula_host.exe")
                                 : L"cscript //nologo " + SampleFile(L"eula_script.js");
}

std::wstring Arguments(const std::wstring& agreement)
{
    return L" " + SampleFile(agreement) + L" " + SampleFile(L"eula\\texts\\DEU.xml");
}

/// The dialog once its texts are there; they are the last thing that it gets.
HWND AwaitDialog()
{
    HWND dialog = nullptr;
    Eventually([&] {
        dialog = ::FindWindowW(nullptr, L"End User License Agreement");
        return dialog && ::IsWindowVisible(dialog) &&
               ::SendMessageW(::GetDlgItem(dialog, VELT_EULA_ACCEPT), WM_GETTEXTLENGTH, 0, 0) > 0;
    });
    return dialog;
}
} // namespace

TEST_CASE("eula samples: print the user's answer", "[ui]")
{
    const std::wstring host = Host();
    const int choice = GENERATE(VELT_EULA_ACCEPT, VELT_EULA_DECLINE, VELT_EULA_OK);
    CAPTURE(Utf8FromWide(host), choice);
    const RegisteredComponent component;
    SampleRun run{};
    TestThread thread([&] { run = RunSample(host + Arguments(L"eula\\agreement.rtf")); });
    const HWND dialog = AwaitDialog();
    REQUIRE(dialog);
    if (choice != VELT_EULA_OK)
    {
        CHECK(Choose(dialog, choice));
    }
    CHECK(PressUntilGone(dialog, VELT_EULA_OK));
    thread.Join();
    CHECK(run.exitCode == 0);
    CHECK(run.lines == Lines{choice == VELT_EULA_ACCEPT ? "accepted" : "declined"});
}

TEST_CASE("eula samples: an agreement that is missing is declined at once", "[ui]")
{
    const std::wstring host = Host();
    CAPTURE(Utf8FromWide(host));
    const RegisteredComponent component;
    const SampleRun run = RunSample(host + Arguments(L"eula\\missing.rtf"));
    CHECK(run.exitCode == 0);
    CHECK(run.lines == Lines{"declined"});
}

TEST_CASE("eula samples: say how they are used", "[ui]")
{
    const std::wstring host = Host();
    const std::wstring arguments =
        GENERATE(values<std::wstring>({L"", L" one", L" one two three"}));
    CAPTURE(Utf8FromWide(host), Utf8FromWide(arguments));
    const SampleRun run = RunSample(host + arguments);
    CHECK(run.exitCode == 2);
    REQUIRE(run.lines.size() == 1);
    CHECK(run.lines.front().starts_with("usage: eula_"));
}

TEST_CASE("eula samples: fail where the component is not registered", "[ui]")
{
    for (const wchar_t* name :
         {L"VeltHTTPClientX.VeltEulaDlg12OEM", L"VeltHTTPClientX.VeltEulaDlg12OEM.1"})
    {
        ::RegDeleteTreeW(HKEY_CLASSES_ROOT, name);
    }
    const std::wstring host = Host();
    CAPTURE(Utf8FromWide(host));
    const SampleRun run = RunSample(host + Arguments(L"eula\\agreement.rtf"));
    CHECK(run.exitCode == 1);
    REQUIRE(run.lines.size() == 1);
    CHECK(run.lines.front().starts_with("failed: "));
}
