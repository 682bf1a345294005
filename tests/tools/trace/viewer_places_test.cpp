// Where things stand in the dark look, which the viewer draws itself: for the most part where the
// system puts them in the light one.

#include "foundation/unique_handle.h"
#include "tests/support/eventually.h"
#include "tests/support/viewer_process.h"
#include "tests/tools/trace/dark_choice.h"
#include "tests/tools/trace/screen_picture.h"
#include "tests/tools/trace/viewer_input.h"

#include <windows.h>

#include <commctrl.h>

#include <catch.hpp>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <utility>
#include <vector>

using namespace velt::test;

namespace
{
constexpr int kBetweenWords = 4; // pixels
constexpr DWORD kLookMs = 2000;
constexpr DWORD kBetweenLooksMs = 50;

/// A control without its edge.
RECT InsideOf(HWND control)
{
    RECT place{};
    ::GetWindowRect(control, &place);
    ::InflateRect(&place, -3, -3);
    return place;
}

HWND HeaderOf(HWND list)
{
    return reinterpret_cast<HWND>(::SendMessageW(list, LVM_GETHEADER, 0, 0));
}

/// The names in a header; lines that divide them are narrower than any.
std::vector<InkSpan> NamesOf(HWND header)
{
    constexpr int kLine = 2;
    std::vector<InkSpan> names = ScreenPicture(InsideOf(header)).Columns(kBetweenWords);
    std::erase_if(names, [](const InkSpan& name) { return name.to - name.from <= kLine; });
    return names;
}

/// The names in the menu bar, which ends where the client area begins.
std::vector<InkSpan> NamesInBar(HWND window)
{
    RECT bar{};
    ::GetClientRect(window, &bar);
    ::MapWindowPoints(window, nullptr, reinterpret_cast<POINT*>(&bar), 2);
    bar.bottom = bar.top - 2;
    bar.top -= 17;
    return ScreenPicture(bar).Columns(kBetweenWords);
}

/// What is on an open menu, and where its lines are.
struct MenuPicture
{
    ScreenPicture picture;
    std::vector<InkSpan> rows;
};

/// Opens the view menu, which has six names and two lines, and waits until it is drawn; the first
/// name is the chosen one.
MenuPicture OpenedViewMenu(HWND window)
{
    std::optional<MenuPicture> now;
    REQUIRE(Eventually([&] {
        const HWND menu = OpenViewMenu(window);
        // A window that comes to the front late covers its menu.
        return menu && Eventually(
                           [&] {
                               const auto former = now;
                               ::Sleep(kBetweenLooksMs);
                               const ScreenPicture picture(InsideOf(menu));
                               now.emplace(MenuPicture{picture, picture.Rows(1)});
                               return now->rows.size() == 8 && former && former->picture == picture;
                           },
                           kLookMs);
    }));
    return std::move(*now);
}

/// Waits until two looks at the screen, some time apart, are the same, and the second is wanted.
template <class Function>
auto Settled(const Function& look)
{
    auto former = look();
    CHECK(Eventually([&] {
        ::Sleep(kBetweenLooksMs);
        auto now = look();
        const bool is = now == former && !now.empty();
        former = std::move(now);
        return is;
    }));
    return former;
}

/// Whether the same things begin at the same places, but for so many pixels; on another ground
/// letters may look wider.
bool AreSame(const std::vector<InkSpan>& ones, const std::vector<InkSpan>& others, int room)
{
    return std::ranges::equal(ones, others, [room](const InkSpan& one, const InkSpan& other) {
        return std::abs(one.from - other.from) <= room &&
               std::abs(one.to - other.to) <= std::max(room, 2);
    });
}

/// What the two looks must have in common, taken of one of them.
struct Places
{
    std::vector<InkSpan> bar;
    std::vector<InkSpan> columns;
    InkSpan level;             // what is chosen
    InkSpan arrow;             // of the choice
    InkSpan arrowRows;         // from the top of the choice
    std::vector<InkSpan> rest; // names of buttons, and of columns of numbers
};

Places PlacesOf(const ViewerProcess& viewer, bool dark)
{
    Places places;
    REQUIRE(Eventually([&] { // the menu bar comes last
        return (LightnessOfMenu(viewer.Window(), false) < 64) == dark;
    }));
    places.bar = Settled([&] { return NamesInBar(viewer.Window()); });
    places.columns = Settled([&] { return NamesOf(HeaderOf(viewer.Child(ViewerProcess::kList))); });

    const RECT choice = InsideOf(viewer.Child(ViewerProcess::kLevel));
    const std::vector<InkSpan> choices =
        Settled([&] { return ScreenPicture(choice).Columns(2 * kBetweenWords); });
    REQUIRE(choices.size() == 2);
    places.level = choices[0];
    // Without the edge of the button that it stands on in the light look.
    RECT button = choice;
    button.left = choice.left + choices[1].Middle() - 5;
    button.right = button.left + 10;
    ::InflateRect(&button, 0, -3);
    const std::vector<InkSpan> arrows =
        Settled([&] { return ScreenPicture(button).Columns(kBetweenWords); });
    REQUIRE(arrows.size() == 1);
    const int left = static_cast<int>(button.left - choice.left);
    places.arrow = {left + arrows[0].from, left + arrows[0].to};
    places.arrowRows = ScreenPicture(button).Rows(kBetweenWords).at(0);

    for (const int command : {ViewerProcess::kRulesCommand, ViewerProcess::kCallsCommand})
    {
        const HWND dialog = OpenDialog(viewer, command);
        REQUIRE(dialog);
        for (HWND child = ::GetWindow(dialog, GW_CHILD); child;
             child = ::GetWindow(child, GW_HWNDNEXT))
        {
            wchar_t type[32] = {};
            ::GetClassNameW(child, type, 32);
            const auto look = [&] { return ScreenPicture(InsideOf(child)); };
            if (::lstrcmpiW(type, WC_BUTTONW) == 0)
            {
                const auto name = Settled([&] { return look().Columns(kBetweenWords); });
                places.rest.insert(places.rest.end(), name.begin(), name.end());
                places.rest.push_back(look().Rows(kBetweenWords).at(0));
            }
            if (::lstrcmpiW(type, WC_LISTVIEWW) == 0)
            {
                const auto names = Settled([&] { return NamesOf(HeaderOf(child)); });
                places.rest.insert(places.rest.end(), names.begin(), names.end());
            }
        }
        ::SendMessageW(dialog, WM_COMMAND, IDCANCEL, 0);
        REQUIRE(Eventually([&] { return !::IsWindow(dialog); }));
    }
    return places;
}
} // namespace

TEST_CASE("Viewer: all names stand at the same place in the dark look and in the light one",
          "[tools]")
{
    ViewerProcess viewer;
    viewer.AwaitWindow();
    const Places light = PlacesOf(viewer, false);
    const DarkChoice choice;
    ::SendMessageW(viewer.Window(), WM_SETTINGCHANGE, 0, 0);
    const Places dark = PlacesOf(viewer, true);
    REQUIRE(dark.columns.size() == 5);
    REQUIRE(light.columns.size() == 5);
    const int margin = dark.columns[0].from;
    CHECK(margin >= 3); // of the six pixels, three are no part of the picture
    CHECK(margin <= 4);
    const bool isLikeOurs = light.columns[0].from == margin;
    const int room = isLikeOurs ? 0 : 8;
    if (!isLikeOurs)
    {
        WARN("the system's theme has other margins: names may stand some pixels apart");
    }
    CAPTURE(light.bar, dark.bar, light.columns, dark.columns, light.rest, dark.rest);
    CHECK(dark.bar.size() == 4);
    CHECK(AreSame(dark.bar, light.bar, room));
    CHECK(AreSame(dark.columns, light.columns, room));
    CHECK(AreSame({dark.level}, {light.level}, room));
    CHECK(std::abs(dark.arrow.Middle() - light.arrow.Middle()) <= room + 1);
    CHECK(std::abs(dark.arrowRows.Middle() - light.arrowRows.Middle()) <= room + 1);
    CHECK(dark.rest.size() > 12);
    CHECK(AreSame(dark.rest, light.rest, room));
    CHECK(viewer.Close() == 0);
}

TEST_CASE("Viewer: a menu's check mark says whether the debugger output is listened to", "[tools]")
{
    constexpr int kFollow = 1; // rows of the menu; that one is checked
    constexpr int kDebugOutput = 4;
    const DarkChoice dark;
    ViewerProcess viewer;
    viewer.AwaitWindow();
    const auto isChecked = [&] {
        const auto [picture, rows] = OpenedViewMenu(viewer.Window());
        const InkSpan mark = picture.Columns(kBetweenWords, rows[kFollow]).front();
        const InkSpan first = picture.Columns(kBetweenWords, rows[kDebugOutput]).front();
        CloseMenu(viewer.Window());
        return first == mark;
    };
    CHECK_FALSE(isChecked());
    viewer.Command(ViewerProcess::kDebugOutputCommand);
    CHECK(isChecked());
    viewer.Command(ViewerProcess::kDebugOutputCommand);
    CHECK_FALSE(isChecked());
    // Another program has it: to ask for it is not to get it.
    const velt::UniqueKernelObject others(::CreateFileMappingW(
        INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, L"DBWIN_BUFFER"));
    REQUIRE(others);
    viewer.Command(ViewerProcess::kDebugOutputCommand);
    CHECK(viewer.AwaitStatus(4, L"another program listens to the debugger output"));
    CHECK_FALSE(isChecked());
    CHECK(viewer.Close() == 0);
}

TEST_CASE("Viewer: a menu in the dark look has room for its check marks, names and keys", "[tools]")
{
    const DarkChoice dark;
    ViewerProcess viewer;
    viewer.AwaitWindow();
    const auto [picture, rows] = OpenedViewMenu(viewer.Window());
    const std::vector<InkSpan> names{rows[1], rows[3], rows[4], rows[5], rows[7]}; // but the chosen
    const int pitch = names[2].Middle() - names[1].Middle();
    CHECK(pitch >= names[1].to - names[1].from + 8);
    CHECK(names[3].Middle() - names[2].Middle() == pitch);
    const int withLine = names[1].Middle() - names[0].Middle();
    CHECK(withLine > pitch + 4);
    CHECK(names[4].Middle() - names[3].Middle() == withLine);
    CHECK(std::abs(rows[2].Middle() - (names[0].Middle() + names[1].Middle()) / 2) <= 1);
    CHECK(std::abs(rows[6].Middle() - (names[3].Middle() + names[4].Middle()) / 2) <= 1);

    for (const InkSpan& line : {rows[2], rows[6]})
    {
        CHECK(line.to - line.from == 1);
        CHECK(picture.Columns(0, line) == std::vector<InkSpan>{{0, picture.Width()}});
    }
    // Of what is checked.
    const std::vector<InkSpan> followed = picture.Columns(kBetweenWords, names[0]);
    REQUIRE(followed.size() > 2);
    const InkSpan mark = followed[0];
    const int left = followed[1].from;
    CHECK(mark.from >= 4);
    CHECK(mark.to - mark.from >= 9);
    CHECK(mark.to + 4 <= left);
    const int right = followed.back().to;
    CHECK(picture.Width() - right >= 6);
    CHECK(picture.Width() - right <= 12);
    for (const std::size_t row : {1u, 2u, 3u, 4u})
    {
        const std::vector<InkSpan> words = picture.Columns(3 * kBetweenWords, names[row]);
        const bool hasKey = row == 1 || row == 4;
        INFO("row " << row);
        REQUIRE(words.size() == (hasKey ? 2u : 1u));
        CHECK(words[0].from == left);
        CHECK((!hasKey || std::abs(words[1].to - right) <= 1));
        CHECK((!hasKey || words[1].from - words[0].to >= 24));
    }
    CloseMenu(viewer.Window());
    CHECK(viewer.Close() == 0);
}
