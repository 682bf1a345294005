// How the viewer looks: dark or light, with high contrast, and on screens with many dots an inch.

#include "foundation/find_function.h"
#include "foundation/wide_text.h"
#include "tests/support/eventually.h"
#include "tests/support/high_contrast_on.h"
#include "tests/support/viewer_process.h"
#include "tests/tools/trace/dark_choice.h"
#include "tests/tools/trace/no_receiver_events.h"
#include "tests/tools/trace/screen_picture.h"
#include "tests/tools/trace/viewer_input.h"
#include "tools/trace/record_list.h"
#include "tools/trace/window_look.h"

#include <windows.h>

#include <commctrl.h>

#include <catch.hpp>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

using namespace velt::test;

namespace
{
/// The face of a button or a choice: near its right edge, above what it says.
int LightnessOfFace(HWND control)
{
    RECT client{};
    ::GetClientRect(control, &client);
    return LightnessAt(control, static_cast<int>(client.right) - 5, 4);
}

/// Whether a button or a choice shows that it has the keyboard: dots of two colours, above what it
/// says.
bool IsFramed(HWND control)
{
    constexpr int kTop = 3;
    constexpr int kStart = 8;
    constexpr int kEnd = 24;
    const int first = LightnessAt(control, kStart, kTop);
    for (int x = kStart; x < kEnd; ++x)
    {
        if (LightnessAt(control, x, kTop) != first)
        {
            return true;
        }
    }
    return false;
}

/// As many dots an inch for programs that start while it lives.
class ScreenDots
{
public:
    explicit ScreenDots(DWORD dots)
    {
        ::RegSetKeyValueW(HKEY_CURRENT_USER, kDesktop, kDots, REG_DWORD, &dots, sizeof(dots));
    }

    ScreenDots(const ScreenDots&) = delete;
    ScreenDots& operator=(const ScreenDots&) = delete;

    ~ScreenDots()
    {
        ::RegDeleteKeyValueW(HKEY_CURRENT_USER, kDesktop, kDots);
    }

private:
    static constexpr wchar_t kDesktop[] = L"Control Panel\\Desktop";
    static constexpr wchar_t kDots[] = L"LogPixels";
};

/// Has this thread see other programs' windows in the dots of the screen, while it lives.
class DotsOfScreen
{
public:
    DotsOfScreen()
        : m_set(velt::FindFunction<Set>(::GetModuleHandleW(L"user32.dll"),
                                        "SetThreadDpiAwarenessContext")), // since Windows 10
          m_former(m_set ? m_set(reinterpret_cast<HANDLE>(kPerMonitor)) : nullptr)
    {
    }

    DotsOfScreen(const DotsOfScreen&) = delete;
    DotsOfScreen& operator=(const DotsOfScreen&) = delete;

    ~DotsOfScreen()
    {
        if (m_former)
        {
            m_set(m_former);
        }
    }

private:
    using Set = HANDLE(WINAPI*)(HANDLE);
    static constexpr INT_PTR kPerMonitor = -4; // DPI_AWARENESS_CONTEXT_PER_MONITOR_AWARE_V2

    Set m_set;
    HANDLE m_former;
};

SIZE SizeOf(const std::wstring& text, HFONT font)
{
    const HDC screen = ::GetDC(nullptr);
    const HGDIOBJ former = ::SelectObject(screen, font);
    RECT place{};
    ::DrawTextW(screen, text.c_str(), -1, &place, DT_CALCRECT | DT_SINGLELINE);
    ::SelectObject(screen, former);
    ::ReleaseDC(nullptr, screen);
    return {place.right, place.bottom};
}

std::wstring TextOf(HWND window)
{
    std::vector<wchar_t> text(500);
    const LRESULT length =
        ::SendMessageW(window, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()));
    return {text.data(), static_cast<std::size_t>(length)};
}

SIZE ClientOf(HWND window)
{
    RECT client{};
    ::GetClientRect(window, &client);
    return {client.right, client.bottom};
}

/// The children of a window that say something for good or hold what is typed.
std::vector<HWND> ControlsOf(HWND window)
{
    std::vector<HWND> all;
    for (HWND child = ::GetWindow(window, GW_CHILD); child; child = ::GetWindow(child, GW_HWNDNEXT))
    {
        wchar_t type[32] = {};
        ::GetClassNameW(child, type, 32);
        for (const wchar_t* const wanted : {WC_BUTTONW, WC_STATICW, WC_EDITW, WC_COMBOBOXW})
        {
            if (::lstrcmpiW(type, wanted) == 0 && ::IsWindowVisible(child))
            {
                all.push_back(child);
            }
        }
    }
    return all;
}

void CheckNothingIsCut(HWND window, HFONT font)
{
    const std::vector<HWND> controls = ControlsOf(window);
    REQUIRE(controls.size() > 4);
    for (const HWND control : controls)
    {
        const std::wstring text = TextOf(control);
        const SIZE needed = SizeOf(text.empty() ? L"Xg" : text, font);
        const SIZE there = ClientOf(control);
        INFO("control " << ::GetDlgCtrlID(control) << " with "
                        << velt::Utf8FromWide(text.empty() ? L"nothing" : text));
        CHECK(there.cy >= needed.cy);
        if (::SendMessageW(control, WM_GETDLGCODE, 0, 0) & DLGC_HASSETSEL &&
            (::GetWindowLongPtrW(control, GWL_STYLE) & ES_MULTILINE) == 0)
        {
            CHECK(there.cy * 5 <= needed.cy * 8); // a line stands at the top of its field
        }
        CHECK((text.empty() || there.cx >= needed.cx));
    }
}

/// A list of records in this program, which is asked how it draws them.
class DrawnList
{
public:
    DrawnList(const std::vector<velt::TraceEntry>& entries, const velt::WindowLook& look)
    {
        for (const velt::TraceEntry& entry : entries)
        {
            m_session.Add(entry, "");
        }
        m_view.Advance(entries.size());
        m_list.SetLook(look);
    }

    DrawnList(const DrawnList&) = delete;
    DrawnList& operator=(const DrawnList&) = delete;

    ~DrawnList()
    {
        ::DestroyWindow(m_parent);
    }

    velt::RecordList& List() noexcept
    {
        return m_list;
    }

    /// What it answers when a row begins to be drawn.
    LRESULT Draw(std::size_t row)
    {
        m_draw.nmcd.hdr = {m_list.Window(), 0, static_cast<UINT>(NM_CUSTOMDRAW)};
        m_draw.nmcd.dwDrawStage = CDDS_ITEMPREPAINT;
        m_draw.nmcd.dwItemSpec = row;
        return m_list.OnNotify(m_draw.nmcd.hdr, reinterpret_cast<LPARAM>(&m_draw)).value_or(-1);
    }

    /// Of the text of the row that was drawn last.
    COLORREF Color() const noexcept
    {
        return m_draw.clrText;
    }

private:
    const HWND m_parent =
        ::CreateWindowExW(0, L"STATIC", L"", 0, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr);
    NoReceiverEvents m_events;
    velt::TraceSession m_session{m_events, {}, velt::TraceSession::Kind::files};
    velt::TraceView m_view{m_session.Store()};
    const velt::TraceMarks m_marks;
    velt::RecordList m_list{m_parent, m_session, m_view, m_marks};
    NMLVCUSTOMDRAW m_draw{};
};
} // namespace

TEST_CASE("Viewer: dark or light, as the user has chosen for programs", "[tools]")
{
    ViewerProcess viewer;
    const auto lightness = [&](int child) {
        RECT client{};
        const HWND window = viewer.Child(child);
        ::GetClientRect(window, &client);
        return LightnessAt(window, static_cast<int>(client.right) / 2,
                           static_cast<int>(client.bottom) - 4);
    };
    viewer.AwaitWindow();
    const auto is = [&](bool dark) {
        return Eventually([&] {
            for (const int child : {ViewerProcess::kList, ViewerProcess::kFilter,
                                    ViewerProcess::kDetails, ViewerProcess::kStatus})
            {
                if ((lightness(child) < 64) != dark)
                {
                    return false;
                }
            }
            return (LightnessOfFace(viewer.Child(ViewerProcess::kLevel)) < 100) == dark &&
                   (LightnessOfMenu(viewer.Window(), true) < 64) == dark &&
                   (LightnessOfMenu(viewer.Window(), false) < 64) == dark;
        });
    };
    CHECK(is(false));
    {
        const DarkChoice dark;
        ::SendMessageW(viewer.Window(), WM_SETTINGCHANGE, 0, 0);
        CHECK(is(true));
        // What is drawn for the eye alone is still there to be read.
        CHECK(viewer.AwaitStatus(0, L"0 records"));
    }
    ::SendMessageW(viewer.Window(), WM_SETTINGCHANGE, 0, 0);
    CHECK(is(false));
    CHECK(viewer.Close() == 0);
}

TEST_CASE("Viewer: its dialogs are dark or light, too, with all that is in them", "[tools]")
{
    const auto [command, list, choice, button] = GENERATE(table<int, int, int, int>({
        {ViewerProcess::kRulesCommand, 401, 402, IDCANCEL},
        {ViewerProcess::kCallsCommand, 421, 422, 424},
    }));
    ViewerProcess viewer;
    viewer.AwaitWindow();
    HWND dialog = nullptr;
    HWND header = nullptr;
    const auto open = [&] {
        dialog = OpenDialog(viewer, command);
        REQUIRE(dialog);
        header = reinterpret_cast<HWND>(::SendDlgItemMessageW(dialog, list, LVM_GETHEADER, 0, 0));
        REQUIRE(header);
    };
    open();
    const auto lightnessOf = [&](UINT question) { // of what the list's texts are, or stand on
        const auto color =
            static_cast<COLORREF>(::SendMessageW(::GetDlgItem(dialog, list), question, 0, 0));
        return (GetRValue(color) + GetGValue(color) + GetBValue(color)) / 3;
    };
    const auto is = [&](bool dark) {
        return Eventually([&] {
            return (LightnessAt(dialog, 2, 2) < 64) == dark &&
                   (lightnessOf(LVM_GETTEXTCOLOR) > 150) == dark &&
                   (lightnessOf(LVM_GETTEXTBKCOLOR) < 64) == dark &&
                   (LightnessAt(::GetDlgItem(dialog, list), 20, 60) < 64) == dark &&
                   (LightnessAt(header, 4, 3) < 64) == dark &&
                   (LightnessOfFace(::GetDlgItem(dialog, choice)) < 100) == dark &&
                   (LightnessOfFace(::GetDlgItem(dialog, button)) < 100) == dark;
        });
    };
    CHECK(is(false));
    {
        const DarkChoice dark;
        ::SendMessageW(viewer.Window(), WM_SETTINGCHANGE, 0, 0);
        CHECK(is(true));
        CHECK(Eventually([&] { return !IsFramed(::GetDlgItem(dialog, button)); }));
        ::SendMessageW(dialog, WM_COMMAND, IDCANCEL, 0);
        REQUIRE(Eventually([&] { return DialogOf(viewer.Id()) == nullptr; }));
        open(); // dark from the beginning
        CHECK(is(true));
    }
    ::SendMessageW(viewer.Window(), WM_SETTINGCHANGE, 0, 0);
    CHECK(is(false));
    CHECK(viewer.Close() == 0);
}

TEST_CASE("Viewer: nothing is left of rows that have gone", "[tools]")
{
    ViewerProcess viewer;
    viewer.AwaitWindow();
    const HWND list = viewer.Child(ViewerProcess::kList);
    RECT header{};
    ::GetWindowRect(reinterpret_cast<HWND>(::SendMessageW(list, LVM_GETHEADER, 0, 0)), &header);
    const auto isWritten = [&] { // in the first row's first cell
        const int first = LightnessAt(POINT{header.left + 4, header.bottom + 4});
        for (LONG x = header.left + 4; x < header.left + 60; ++x)
        {
            for (LONG y = header.bottom + 4; y < header.bottom + 14; ++y)
            {
                if (LightnessAt(POINT{x, y}) != first)
                {
                    return true;
                }
            }
        }
        return false;
    };
    CHECK_FALSE(isWritten());
    SendRecord(viewer.Receiver(), "text");
    REQUIRE(viewer.AwaitRows(1));
    REQUIRE(Eventually(isWritten));
    viewer.Command(ViewerProcess::kClearCommand);
    REQUIRE(viewer.AwaitRows(0));
    CHECK(Eventually([&] { return !isWritten(); }));
}

TEST_CASE("Viewer: menus in the dark look are opened by their letters", "[tools]")
{
    const DarkChoice dark;
    ViewerProcess viewer;
    viewer.AwaitWindow();
    SendRecord(viewer.Receiver(), "text");
    REQUIRE(viewer.AwaitRows(1));
    // View, Pause: the check mark says that it has happened.
    const auto isPaused = [&] { return viewer.AwaitStatus(1, L"1 shown, paused"); };
    REQUIRE(OpenViewMenu(viewer.Window()));
    Press(viewer.Window(), {'P'});
    CHECK(isPaused());
    // Windows asks for the item, because it does not look into those that others draw.
    const auto itemOf = [&](wchar_t letter) {
        return ::SendMessageW(viewer.Window(), WM_MENUCHAR, letter,
                              reinterpret_cast<LPARAM>(::GetMenu(viewer.Window())));
    };
    CHECK(itemOf(L'f') == MAKELRESULT(0, MNC_EXECUTE));
    CHECK(itemOf(L'V') == MAKELRESULT(2, MNC_EXECUTE));
    CHECK(itemOf(L'q') == MAKELRESULT(0, MNC_IGNORE));
    CHECK(viewer.Close() == 0);
}

TEST_CASE("Viewer: the chosen item of a menu stands out in the dark look, and can be read",
          "[tools]")
{
    const DarkChoice dark;
    ViewerProcess viewer;
    viewer.AwaitWindow();
    const HWND menu = OpenViewMenu(viewer.Window());
    REQUIRE(menu);
    RECT place{};
    ::GetWindowRect(menu, &place);
    const auto rightEndAt = [&](LONG y) { return LightnessAt(POINT{place.right - 8, y}); };
    CHECK(Eventually([&] {
        const int first = rightEndAt(place.top + 8);
        const int last = rightEndAt(place.bottom - 8);
        return last < 64 && first > last;
    }));
    CHECK(Eventually([&] { // what it says is there to be read
        for (LONG y = place.top + 4; y < place.top + 20; ++y)
        {
            for (LONG x = place.left + 20; x < place.left + 80; ++x)
            {
                if (LightnessAt(POINT{x, y}) > 150)
                {
                    return true;
                }
            }
        }
        return false;
    }));
    CloseMenu(viewer.Window());
    CHECK(viewer.Close() == 0);
}

TEST_CASE("Viewer: what has the keyboard is framed in the dark look, too", "[tools]")
{
    const DarkChoice dark;
    ViewerProcess viewer;
    viewer.AwaitWindow();
    const HWND choice = viewer.Child(ViewerProcess::kLevel);
    CHECK(Eventually([&] { return !IsFramed(choice); }));
    const auto hasFocus = [&](HWND child) {
        return Eventually([&] { return FocusOf(viewer.Window()) == child; });
    };
    Press(viewer.Window(), {VK_CONTROL, 'F'});
    REQUIRE(hasFocus(viewer.Child(ViewerProcess::kFilter)));
    Press(viewer.Window(), {VK_TAB});
    REQUIRE(hasFocus(choice));
    // For users who have not asked to see such marks before they use the keyboard.
    ::SendMessageW(viewer.Window(), WM_CHANGEUISTATE, MAKEWPARAM(UIS_CLEAR, UISF_HIDEFOCUS), 0);
    CHECK(Eventually([&] { return IsFramed(choice); }));
    CHECK(viewer.Close() == 0);
}

TEST_CASE("Viewer: on a screen with many dots an inch nothing is cut off", "[tools]")
{
    const int percent = GENERATE(200, 300);
    const int dpi = 96 * percent / 100;
    const int unscaled = 170; // of the second column
    const ScreenDots dots(static_cast<DWORD>(dpi));
    const DotsOfScreen aware;
    ViewerProcess viewer;
    viewer.AwaitWindow();
    const HWND list = viewer.Child(ViewerProcess::kList);
    const auto width = [&](int column) {
        return static_cast<int>(
            ::SendMessageW(list, LVM_GETCOLUMNWIDTH, static_cast<WPARAM>(column), 0));
    };
    if (width(1) == unscaled)
    {
        WARN("the system takes another scale for users that log on later only");
        return;
    }
    CHECK(width(1) == ::MulDiv(unscaled, percent, 100));
    SendRecord(viewer.Receiver(), "text");
    REQUIRE(viewer.AwaitRows(1));
    const velt::WindowLook look(dpi);
    CheckNothingIsCut(viewer.Window(), look.Font());

    const auto heightOf = [&](WPARAM rows) {
        return static_cast<int>(
            HIWORD(::SendMessageW(list, LVM_APPROXIMATEVIEWRECT, rows, MAKELPARAM(-1, -1))));
    };
    CHECK(heightOf(11) - heightOf(1) >= 10 * SizeOf(L"Xg", look.FixedFont()).cy);
    CHECK(width(0) > SizeOf(L"\u25BA 09:05:03.000042", look.FixedFont()).cx);
    CHECK(width(2) > SizeOf(L"Level", look.FixedFont()).cx + 2 * look.Scaled(6));
    CHECK(ClientOf(viewer.Child(ViewerProcess::kStatus)).cy >= SizeOf(L"Xg", look.Font()).cy);
    CHECK(ClientOf(viewer.Child(ViewerProcess::kToolbar)).cy >= SizeOf(L"Xg", look.Font()).cy);
    // Three lines of a record.
    CHECK(ClientOf(viewer.Child(ViewerProcess::kDetails)).cy >=
          3 * SizeOf(L"Xg", look.FixedFont()).cy);

    LOGFONTW shell{};
    shell.lfHeight = -::MulDiv(8, dpi, 72);
    ::lstrcpyW(shell.lfFaceName, L"MS Shell Dlg");
    const velt::UniqueFont font(::CreateFontIndirectW(&shell));
    for (const int command : {ViewerProcess::kRulesCommand, ViewerProcess::kCallsCommand})
    {
        const HWND dialog = OpenDialog(viewer, command);
        REQUIRE(dialog);
        CheckNothingIsCut(dialog, font.Get());
        ::PostMessageW(dialog, WM_COMMAND, IDCANCEL, 0);
        REQUIRE(Eventually([&] { return !::IsWindow(dialog); }));
    }
    CHECK(viewer.Close() == 0);
}

TEST_CASE("Viewer: with high contrast its colours are the system's, also in the dark", "[tools]")
{
    const DarkChoice dark;
    const HighContrastOn contrast;
    const velt::WindowLook look(96);
    REQUIRE(look.IsHighContrast());
    CHECK_FALSE(look.IsDark());
    CHECK(look.ColorsFor(WM_CTLCOLOREDIT, nullptr) == nullptr); // left to the system
    std::vector<COLORREF> systems;
    for (int i = 0; i <= COLOR_MENUBAR; ++i)
    {
        systems.push_back(::GetSysColor(i));
    }
    const velt::Palette& colors = look.Colors();
    std::vector<COLORREF> ours{colors.window, colors.text,   colors.face,      colors.faceText,
                               colors.error,  colors.detail, colors.malformed, colors.control,
                               colors.edge,   colors.faint};
    ours.insert(ours.end(), colors.highlights.begin(), colors.highlights.end());
    for (const COLORREF color : ours)
    {
        CHECK(std::find(systems.begin(), systems.end(), color) != systems.end());
    }

    velt::TraceEntry entry;
    entry.level = 1;
    entry.text = "failed";
    DrawnList list({entry}, look);
    CHECK(list.Draw(0) == CDRF_DODEFAULT);
    list.List().SetHighlight(velt::TextPattern("failed"));
    CHECK(list.Draw(0) == CDRF_NEWFONT);
    CHECK(list.Color() == ::GetSysColor(COLOR_HOTLIGHT));
}

TEST_CASE("Viewer: failures, details and what is malformed have colours of their own", "[tools]")
{
    std::vector<velt::TraceEntry> entries;
    for (const std::int32_t level : {-1, 0, 1, 2, 3, 4, 9})
    {
        entries.emplace_back().level = level;
    }
    entries.emplace_back().fault = velt::TraceRecordFault::tooShort;
    const velt::WindowLook look(96);
    DrawnList list(entries, look);
    std::vector<COLORREF> seen;
    for (std::size_t row = 0; row < entries.size(); ++row)
    {
        CHECK(list.Draw(row) == CDRF_NEWFONT);
        seen.push_back(list.Color());
    }
    const velt::Palette& of = look.Colors();
    CHECK(std::set<COLORREF>{of.error, of.detail, of.text, of.malformed}.size() == 4);
    CHECK(seen == std::vector<COLORREF>{of.error, of.error, of.error, of.detail, of.detail, of.text,
                                        of.text, of.malformed});
}
