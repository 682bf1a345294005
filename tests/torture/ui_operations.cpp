#include "tests/support/temp_folder.h"
#include "tests/torture/trial.h"
#include "tests/ui/bare_view.h"
#include "tests/ui/eula_files.h"
#include "ui/resources/resource_ids.h"

#include <provider_lib.h>

namespace velt::torture
{
namespace
{
constexpr VARIANT_BOOL kPoison = 0x5A5A;
constexpr UINT kAnswerMs = 15;

constexpr int kMostClicks = 20;

int g_choice = 0;      // the button that is chosen first
int g_clicks = 0;      // on it
bool g_isSeen = false; // whether the dialog came

BOOL CALLBACK AnswerDialog(HWND window, LPARAM) noexcept
{
    wchar_t name[16] = {};
    ::GetClassNameW(window, name, 16);
    if (::lstrcmpW(name, L"#32770") == 0 && ::IsWindowVisible(window))
    {
        g_isSeen = true;
        ::RedrawWindow(window, nullptr, nullptr,
                       RDW_INVALIDATE | RDW_ERASE | RDW_FRAME | RDW_ALLCHILDREN | RDW_UPDATENOW);
        const HWND choice = ::GetDlgItem(window, g_choice);
        ::SendMessageW(choice, WM_MOUSEMOVE, 0, MAKELPARAM(3, 3));
        ::SendMessageW(choice, BM_CLICK, 0, 0);
        if (::SendMessageW(choice, BM_GETCHECK, 0, 0) != BST_CHECKED && ++g_clicks < kMostClicks)
        {
            return FALSE; // another window of the desktop has come between
        }
        const HWND ok = ::GetDlgItem(window, VELT_EULA_OK);
        ::SendMessageW(ok, WM_MOUSEMOVE, 0, MAKELPARAM(3, 3));
        ::SendMessageW(ok, WM_MOUSELEAVE, 0, 0);
        ::SetWindowPos(window, nullptr, 20, 20, 0, 0, SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
        ::PostMessageW(window, WM_COMMAND, IDOK, reinterpret_cast<LPARAM>(ok));
        return FALSE;
    }
    return TRUE;
}

/// On the dialog's own thread, by a timer, until the dialog has gone: a press may come to nothing.
void CALLBACK Answer(HWND, UINT, UINT_PTR, DWORD) noexcept
{
    ::EnumThreadWindows(::GetCurrentThreadId(), &AnswerDialog, 0);
}

/// Shows the dialog; it is accepted, or what is chosen.
void Launch(Trial& trial, const std::wstring& agreement, const std::wstring& texts, int choice,
            bool isShown = true)
{
    const auto dialog = trial.Create<IVeltEulaDlg>(CLSID_CVeltEulaDlg);
    const InText agreementText(agreement.c_str());
    const InText textsText(texts.c_str());
    g_choice = choice;
    g_clicks = 0;
    g_isSeen = false;
    const UINT_PTR timer = ::SetTimer(nullptr, 0, kAnswerMs, &Answer);
    VARIANT_BOOL accepted = kPoison;
    const HRESULT hr =
        trial.Act([&] { return dialog->LaunchEula(agreementText, textsText, &accepted); });
    ::KillTimer(nullptr, timer);
    trial.CheckOrdinary(g_isSeen == isShown, isShown ? "no dialog" : "a dialog");
    trial.Check(FAILED(hr) ? accepted == kPoison || accepted == VARIANT_FALSE
                           : accepted == VARIANT_TRUE || accepted == VARIANT_FALSE,
                "the out value is not whole");
    // Accepted is what the user has accepted, or the answer where no dialog could be made.
    trial.Check(accepted != VARIANT_TRUE || choice == VELT_EULA_ACCEPT || !g_isSeen,
                "accepted without the user");
    trial.CheckOrdinary(accepted == (choice == VELT_EULA_ACCEPT ? VARIANT_TRUE : VARIANT_FALSE),
                        "another answer");
}

const velt::test::TempFolder& Files()
{
    static const velt::test::TempFolder folder(L"torture_ui");
    static const bool isWritten = [] {
        folder.Write(L"agreement.rtf", velt::test::kSmallAgreement);
        folder.Write(L"texts.xml",
                     "<?xml version='1.0'?><ANY><RECORD><A>i_accept</A><B>yes</B></RECORD>"
                     "<RECORD><A>btn_ok</A><B>done</B></RECORD></ANY>");
        return true;
    }();
    static_cast<void>(isWritten);
    return folder;
}
} // namespace

void AddUiOperations(std::vector<Operation>& operations)
{
    const auto add = [&](const char* name, std::function<void(Trial&)> run) {
        operations.push_back({"ui", name, std::move(run)});
    };
    const auto addShown = [&](const char* name, std::function<void(Trial&)> run) {
        operations.push_back({"ui", name, std::move(run), &velt::test::ReadWithBareView});
    };
    addShown("LaunchEula, accepted", [](Trial& trial) {
        Launch(trial, Files().File(L"agreement.rtf"), Files().File(L"texts.xml"), VELT_EULA_ACCEPT);
    });
    addShown("LaunchEula without texts, declined", [](Trial& trial) {
        Launch(trial, Files().File(L"agreement.rtf"), L"", VELT_EULA_DECLINE);
    });
    add("LaunchEula without an agreement", [](Trial& trial) {
        Launch(trial, Files().File(L"none.rtf"), Files().File(L"none.xml"), VELT_EULA_DECLINE,
               false);
    });
    add("LaunchEula to nowhere", [](Trial& trial) {
        const auto dialog = trial.Create<IVeltEulaDlg>(CLSID_CVeltEulaDlg);
        trial.Act([&] { return dialog->LaunchEula(nullptr, nullptr, nullptr); }, E_POINTER);
    });
}
} // namespace velt::torture
