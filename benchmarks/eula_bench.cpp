#include "benchmarks/table.h"
#include "tests/support/com_apartment.h"
#include "tests/support/component_library.h"
#include "tests/support/temp_folder.h"
#include "ui/resources/resource_ids.h"

#include <provider_lib.h>

#include <windows.h>

#include <richedit.h>

#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>

using namespace velt::test;
using velt::bench::NanosecondsOf;

namespace
{
constexpr std::size_t kAgreementBytes = 100 * 1024;
constexpr int kRounds = 31;

std::string Agreement()
{
    std::string rtf = "{\\rtf1\\ansi\\deff0{\\fonttbl{\\f0 Arial;}}\\f0\\fs20 ";
    while (rtf.size() < kAgreementBytes)
    {
        rtf += "{\\b A point of it.} You may use this software as long as you like, on every "
               "computer that is your own, and keep a copy of it.\\par\n";
    }
    return rtf + "}";
}

/// Ends a dialog of this thread when it has been painted for the first time: nothing is left to be
/// drawn when the queue is empty, because painting comes last.
class EndWhenPainted
{
public:
    explicit EndWhenPainted(HWND dialog) : m_dialog(dialog) {}

    /// For a hook that sees the thread become idle.
    static LRESULT CALLBACK Idle(int code, WPARAM wParam, LPARAM lParam)
    {
        const HWND dialog = ::GetActiveWindow();
        if (code == HC_ACTION && dialog && ::GetDlgItem(dialog, VELT_EULA_VIEW))
        {
            ::RedrawWindow(dialog, nullptr, nullptr, RDW_UPDATENOW | RDW_ALLCHILDREN);
            ::GdiFlush();
            ::PostMessageW(dialog, WM_COMMAND, IDOK, 0);
        }
        return ::CallNextHookEx(nullptr, code, wParam, lParam);
    }

private:
    HWND m_dialog;
};
