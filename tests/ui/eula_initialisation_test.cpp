#include "tests/support/temp_folder.h"
#include "tests/ui/eula_files.h"
#include "tests/ui/eula_session.h"
#include "ui/resources/resource_ids.h"

#include <richedit.h>

#include <catch.hpp>

#include <algorithm>
#include <string>
#include <vector>

using namespace velt::test;

namespace
{
/// Notes what the thread that makes it sends to its windows, in order: one at a time.
class MessageLog
{
public:
    MessageLog()
        : m_hook(::SetWindowsHookExW(WH_CALLWNDPROC, &MessageLog::See, nullptr,
                                     ::GetCurrentThreadId()))
    {
        s_steps = &m_steps;
    }

    MessageLog(const MessageLog&) = delete;
    MessageLog& operator=(const MessageLog&) = delete;

    ~MessageLog()
    {
        ::UnhookWindowsHookEx(m_hook);
        s_steps = nullptr;
    }

    const std::vector<std::string>& Steps() const noexcept
    {
        return m_steps;
    }

private:
    static LRESULT CALLBACK See(int code, WPARAM wParam, LPARAM lParam)
    {
        if (code == HC_ACTION)
        {
            const std::string step = StepOf(*reinterpret_cast<const CWPSTRUCT*>(lParam));
            if (!step.empty())
            {
                s_steps->push_back(step);
            }
        }
        return ::CallNextHookEx(nullptr, code, wParam, lParam);
    }

    static std::string StepOf(const CWPSTRUCT& sent)
    {
        const bool isItem = (::GetWindowLongW(sent.hwnd, GWL_STYLE) & WS_CHILD) != 0;
        const std::string who = isItem ? std::to_string(::GetDlgCtrlID(sent.hwnd)) : "dialog";
        const std::string parameters =
            " " + std::to_string(sent.wParam) + " " + std::to_string(sent.lParam);
        switch (sent.message)
        {
        case WM_INITDIALOG:
            return who + " initialise";
        case WM_WINDOWPOSCHANGING:
        {
            const auto& place = *reinterpret_cast<const WINDOWPOS*>(sent.lParam);
            const bool shown = (place.flags & SWP_SHOWWINDOW) != 0;
            if (!isItem)
            {
                return shown && (place.flags & SWP_NOMOVE) == 0 ? who + " centre" : "";
            }
            return (place.flags & (SWP_NOMOVE | SWP_NOSIZE)) == SWP_NOSIZE
                       ? who + " move " + std::to_string(place.x) + " " + std::to_string(place.y)
                       : "";
        }
        case WM_STYLECHANGED:
            return sent.wParam == static_cast<WPARAM>(GWL_STYLE) ? who + " style" : "";
        case WM_SETTEXT:
            return who + " text";
        case BM_SETCHECK:
            return isItem ? who + " check" + parameters : "";
        case EM_EXLIMITTEXT:
            return who + " limit" + parameters;
        case EM_STREAMIN:
            return who + " stream " + std::to_string(sent.wParam);
        default:
            return {};
        }
    }

    inline static std::vector<std::string>* s_steps = nullptr;

    HHOOK m_hook;
    std::vector<std::string> m_steps;
};

/// What happened from the dialog's initialisation on, each step once.
std::vector<std::string> StepsFor(const std::wstring& agreement, const std::wstring& texts,
                                  bool waitsForUser)
{
    std::vector<std::string> steps;
    const ComponentLibrary library;
    std::unique_ptr<MessageLog> log;
    EulaSession session(
        library, agreement, texts, true, [&] { log = std::make_unique<MessageLog>(); },
        [&] {
            steps = log->Steps();
            log.reset();
        });
    if (waitsForUser)
    {
        session.PressOk();
    }
    session.Join();
    steps.erase(steps.begin(), std::find(steps.begin(), steps.end(), "dialog initialise"));
    return steps;
}

/// Those of `steps` that are in `wanted`, in their order, each the first time.
std::vector<std::string> Among(const std::vector<std::string>& steps,
                               const std::vector<std::string>& wanted)
{
    std::vector<std::string> found;
    for (const std::string& step : steps)
    {
        if (std::find(wanted.begin(), wanted.end(), step) != wanted.end() &&
            std::find(found.begin(), found.end(), step) == found.end())
        {
            found.push_back(step);
        }
    }
    return found;
}

std::string TitleMove()
{
    const HDC context = ::GetDC(nullptr);
    const int dpi = ::GetDeviceCaps(context, LOGPIXELSX);
    ::ReleaseDC(nullptr, context);
    return "1006 move " + std::to_string(dpi * 20 / 96) + " 12";
}
} // namespace

TEST_CASE("CEulaDialog: initialisation takes its steps in order", "[ui]")
{
    const TempFolder folder;
    folder.Write(L"agreement.rtf", kSmallAgreement);
    std::string xml = "<T>";
    for (const char* key : {"enu_user_license_agreement", "i_do_not_accept", "i_accept", "btn_ok"})
    {
        xml += std::string("<RECORD><K>") + key + "</K><V>text</V></RECORD>";
    }
    folder.Write(L"texts.xml", xml + "</T>");

    const std::vector<std::string> expected = {
        "dialog initialise",  "dialog centre", "1 style",
        TitleMove(),          "dialog text",   "1000 check 1 0",
        "1002 limit 99999 0", "1002 stream 2", "1006 text",
        "1000 text",          "1001 text",     "1 text",
    };
    const auto steps = StepsFor(folder.File(L"agreement.rtf"), folder.File(L"texts.xml"), true);
    CHECK(Among(steps, expected) == expected);
    CHECK(std::count(steps.begin(), steps.end(), "dialog text") == 1); // not by the texts
    CHECK(std::count(steps.begin(), steps.end(), "1002 stream 2") == 1);
}

TEST_CASE("CEulaDialog: after an agreement that cannot be opened nothing more is done", "[ui]")
{
    const TempFolder folder;
    folder.Write(L"texts.xml", "<T><RECORD><K>btn_ok</K><V>text</V></RECORD></T>");
    const auto steps = StepsFor(folder.File(L"missing.rtf"), folder.File(L"texts.xml"), false);
    const std::vector<std::string> expected = {
        "dialog initialise", "dialog centre",  "1 style",           TitleMove(),
        "dialog text",       "1000 check 1 0", "1002 limit 99999 0"};
    CHECK(Among(steps, {"dialog initialise", "dialog centre", "1 style", TitleMove(), "dialog text",
                        "1000 check 1 0", "1002 limit 99999 0", "1002 stream 2", "1 text"}) ==
          expected);
}
