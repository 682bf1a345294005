// The viewer's list: keys, selection, and what it shows of many records.

#include "tests/support/temp_folder.h"
#include "tests/support/viewer_process.h"
#include "tests/tools/trace/viewer_input.h"

#include <windows.h>

#include <commctrl.h>

#include <catch.hpp>

#include <string>
#include <vector>

using namespace velt::test;

namespace
{
using Texts = std::vector<std::wstring>;

/// Empty, too, while another program has the clipboard open.
std::wstring ClipboardText()
{
    std::wstring text;
    if (::OpenClipboard(nullptr))
    {
        if (const HANDLE data = ::GetClipboardData(CF_UNICODETEXT))
        {
            text = static_cast<const wchar_t*>(::GlobalLock(data));
            ::GlobalUnlock(data);
        }
        ::CloseClipboard();
    }
    return text;
}
} // namespace

TEST_CASE("Viewer: a pause holds the list and keeps the records", "[tools]")
{
    ViewerProcess viewer;
    viewer.AwaitWindow();
    SendRecord(viewer.Receiver(), "before");
    REQUIRE(viewer.AwaitRows(1));
    Press(viewer.Window(), {VK_CONTROL, 'P'});
    REQUIRE(viewer.AwaitStatus(1, L"1 shown, paused"));
    SendRecord(viewer.Receiver(), "meanwhile");
    REQUIRE(viewer.AwaitStatus(0, L"2 records"));
    CHECK(viewer.Rows() == 1);
    viewer.Type(ViewerProcess::kFilter, L"e"); // in both
    REQUIRE(Eventually([&] { return viewer.Rows() == 1; }));
    Press(viewer.Window(), {VK_CONTROL, 'P'});
    REQUIRE(viewer.AwaitRows(2));
    CHECK(viewer.Texts() == Texts{L"before", L"meanwhile"});
}

TEST_CASE("Viewer: clearing empties it and its counts", "[tools]")
{
    ViewerProcess viewer;
    viewer.AwaitWindow();
    SendRecord(viewer.Receiver(), "text");
    SendBytes(viewer.Receiver(), "?");
    REQUIRE(viewer.AwaitRows(2));
    Press(viewer.Window(), {VK_CONTROL, 'L'});
    REQUIRE(viewer.AwaitRows(0));
    CHECK(viewer.AwaitStatus(0, L"0 records"));
    CHECK(viewer.AwaitStatus(3, L"0 malformed"));
    SendRecord(viewer.Receiver(), "after");
    REQUIRE(viewer.AwaitRows(1));
    CHECK(viewer.Texts() == Texts{L"after"});
}

TEST_CASE("Viewer: selected records are copied as text", "[tools]")
{
    ViewerProcess viewer;
    viewer.AwaitWindow();
    SendRecord(viewer.Receiver(), "  first", 3, "module");
    SendRecord(viewer.Receiver(), "second", 1);
    REQUIRE(viewer.AwaitRows(2));
    Press(viewer.Window(), {VK_CONTROL, 'A'});
    REQUIRE(Eventually([&] { return viewer.Status(4).starts_with(L"2 selected, "); }));
    CHECK(viewer.Status(4).ends_with(L" between them"));
    Press(viewer.Window(), {VK_CONTROL, 'C'});
    REQUIRE(Eventually([] { return ClipboardText().ends_with(L"  1  ?  second\r\n"); }));
    CHECK(ClipboardText().find(L"  3  ?  module:   first\r\n") != std::wstring::npos);
}

TEST_CASE("Viewer: copying waits for a program that has the clipboard open for a moment", "[tools]")
{
    ViewerProcess viewer;
    viewer.AwaitWindow();
    SendRecord(viewer.Receiver(), "first");
    SendRecord(viewer.Receiver(), "copied");
    REQUIRE(viewer.AwaitRows(2));
    Press(viewer.Window(), {VK_CONTROL, 'A'});
    REQUIRE(Eventually([&] { return viewer.Status(4).starts_with(L"2 selected, "); }));
    REQUIRE(::OpenClipboard(nullptr));
    Press(viewer.Window(), {VK_CONTROL, 'C'});
    ::Sleep(300); // by then it has tried
    ::CloseClipboard();
    CHECK(Eventually([] { return ClipboardText().ends_with(L"  ?  copied\r\n"); }));
}

TEST_CASE("Viewer: Enter jumps between an entry line and its exit line", "[tools]")
{
    ViewerProcess viewer;
    viewer.AwaitWindow();
    for (const char* text : {"A - enter", "  B - enter", "  B - return = 0", "A - return = 0"})
    {
        SendRecord(viewer.Receiver(), text);
    }
    REQUIRE(viewer.AwaitRows(4));
    const HWND list = viewer.Child(ViewerProcess::kList);
    const auto focused = [&] {
        return static_cast<int>(
            ::SendMessageW(list, LVM_GETNEXTITEM, static_cast<WPARAM>(-1), LVNI_FOCUSED));
    };
    Press(viewer.Window(), {VK_HOME});
    REQUIRE(Eventually([&] { return focused() == 0; }));
    REQUIRE(Eventually([&] { return viewer.Status(4).ends_with(L" until its exit line"); }));
    CHECK(viewer.TextOf(ViewerProcess::kDetails).find(L"A - enter") != std::wstring::npos);
    Press(viewer.Window(), {VK_RETURN});
    REQUIRE(Eventually([&] { return focused() == 3; }));
    REQUIRE(Eventually([&] { return viewer.Status(4).ends_with(L" since its entry line"); }));
    Press(viewer.Window(), {VK_CONTROL, 'J'});
    REQUIRE(Eventually([&] { return focused() == 0; }));
    RECT header{};
    ::GetClientRect(reinterpret_cast<HWND>(::SendMessageW(list, LVM_GETHEADER, 0, 0)), &header);
    ::PostMessageW(list, WM_LBUTTONDBLCLK, MK_LBUTTON, MAKELPARAM(20, header.bottom + 5));
    REQUIRE(Eventually([&] { return focused() == 3; }));
    Press(viewer.Window(), {VK_CONTROL, 'J'});
    REQUIRE(Eventually([&] { return focused() == 0; }));

    viewer.Type(ViewerProcess::kFilter, L"enter");
    REQUIRE(viewer.AwaitRows(2));
    REQUIRE(Eventually([&] { return focused() == 0; })); // the record keeps the focus
    Press(viewer.Window(), {VK_RETURN});
    CHECK(Eventually([&] { return viewer.Status(4).starts_with(L"the other line is not shown"); }));
    SendRecord(viewer.Receiver(), "C - enter"); // and never left
    REQUIRE(viewer.AwaitRows(3));
    Press(viewer.Window(), {VK_END});
    REQUIRE(Eventually([&] { return focused() == 2; }));
    Press(viewer.Window(), {VK_RETURN});
    CHECK(viewer.AwaitStatus(4, L"no entry or exit line belongs to this one"));
    CHECK(focused() == 2);
}

TEST_CASE("Viewer: everything is reached by keys", "[tools]")
{
    ViewerProcess viewer;
    viewer.AwaitWindow();
    const auto hasFocus = [&](int child) {
        return Eventually([&] { return FocusOf(viewer.Window()) == viewer.Child(child); });
    };
    ::SetForegroundWindow(viewer.Window());
    REQUIRE(hasFocus(ViewerProcess::kList));
    Press(viewer.Window(), {VK_CONTROL, 'F'});
    REQUIRE(hasFocus(ViewerProcess::kFilter));
    Press(viewer.Window(), {VK_TAB});
    REQUIRE(hasFocus(ViewerProcess::kLevel));
    Press(viewer.Window(), {VK_TAB});
    REQUIRE(hasFocus(ViewerProcess::kHighlight));
    Press(viewer.Window(), {VK_TAB});
    REQUIRE(hasFocus(ViewerProcess::kList));
    Press(viewer.Window(), {VK_TAB});
    REQUIRE(hasFocus(ViewerProcess::kDetails));
    Press(viewer.Window(), {VK_CONTROL, 'H'});
    REQUIRE(hasFocus(ViewerProcess::kHighlight));
    Press(viewer.Window(), {'X'});
    REQUIRE(Eventually([&] { return viewer.TextOf(ViewerProcess::kHighlight) == L"x"; }));
    Press(viewer.Window(), {VK_ESCAPE});
    REQUIRE(Eventually([&] { return viewer.TextOf(ViewerProcess::kHighlight).empty(); }));
    Press(viewer.Window(), {VK_ESCAPE});
    REQUIRE(hasFocus(ViewerProcess::kList));
}

TEST_CASE("Viewer: it follows the newest until one moves away", "[tools]")
{
    ViewerProcess viewer;
    viewer.AwaitWindow();
    const HWND list = viewer.Child(ViewerProcess::kList);
    const auto top = [&] { return static_cast<int>(::SendMessageW(list, LVM_GETTOPINDEX, 0, 0)); };
    const auto showsLastOf = [&](int rows) {
        const auto page = static_cast<int>(::SendMessageW(list, LVM_GETCOUNTPERPAGE, 0, 0));
        return viewer.AwaitRows(rows) && Eventually([&] { return top() + page >= rows; });
    };
    const auto isPressed = [&] {
        const HWND toolbar = viewer.Child(ViewerProcess::kToolbar);
        return ::SendMessageW(toolbar, TB_ISBUTTONCHECKED, ViewerProcess::kFollowCommand, 0) != 0;
    };
    for (int i = 0; i < 500; ++i)
    {
        SendRecord(viewer.Receiver(), "text");
    }
    REQUIRE(showsLastOf(500));
    SendRecord(viewer.Receiver(), "text");
    CHECK(showsLastOf(501));
    CHECK(isPressed());
    Press(viewer.Window(), {VK_HOME});
    REQUIRE(Eventually([&] { return top() == 0; }));
    CHECK(Eventually([&] { return !isPressed(); }));
    SendRecord(viewer.Receiver(), "text");
    REQUIRE(viewer.AwaitRows(502));
    CHECK(top() == 0);
    Press(viewer.Window(), {VK_CONTROL, 'E'});
    CHECK(showsLastOf(502));
    CHECK(isPressed());
}

TEST_CASE("Viewer: who moves in the list by any means wants to stay there", "[tools]")
{
    enum class Means
    {
        wheel,
        scrollBar,
        row,
        up,
        pageUp,
    };
    const Means means =
        GENERATE(Means::wheel, Means::scrollBar, Means::row, Means::up, Means::pageUp);
    ViewerProcess viewer;
    viewer.AwaitWindow();
    const HWND list = viewer.Child(ViewerProcess::kList);
    const auto follows = [&] {
        const HWND toolbar = viewer.Child(ViewerProcess::kToolbar);
        return ::SendMessageW(toolbar, TB_ISBUTTONCHECKED, ViewerProcess::kFollowCommand, 0) != 0;
    };
    const auto top = [&] { return ::SendMessageW(list, LVM_GETTOPINDEX, 0, 0); };
    for (int i = 0; i < 200; ++i)
    {
        SendRecord(viewer.Receiver(), "text");
    }
    REQUIRE(viewer.AwaitRows(200));
    REQUIRE(
        Eventually([&] { return top() + ::SendMessageW(list, LVM_GETCOUNTPERPAGE, 0, 0) >= 200; }));
    Press(viewer.Window(), {VK_END});
    REQUIRE(Eventually([&] { // messages that are posted overtake keys
        return ::SendMessageW(list, LVM_GETNEXTITEM, static_cast<WPARAM>(-1), LVNI_FOCUSED) == 199;
    }));
    CHECK(follows());
    const LRESULT before = top();
    RECT place{};
    ::GetWindowRect(list, &place);
    const int edge = ::GetSystemMetrics(SM_CXEDGE) + ::GetSystemMetrics(SM_CXVSCROLL) / 2;
    const POINT middle{(place.left + place.right) / 2, (place.top + place.bottom) / 2};
    switch (means)
    {
    case Means::wheel:
        ::PostMessageW(list, WM_MOUSEWHEEL, MAKEWPARAM(0, WHEEL_DELTA),
                       MAKELPARAM(middle.x, middle.y));
        break;
    case Means::scrollBar: // above what one drags
        ClickAt(list, POINT{place.right - edge, middle.y});
        break;
    case Means::row:
        ClickAt(list, middle);
        break;
    case Means::up:
        Press(viewer.Window(), {VK_UP});
        break;
    case Means::pageUp:
        Press(viewer.Window(), {VK_PRIOR});
        break;
    }
    CHECK(Eventually([&] { return !follows(); }));
    if (means == Means::wheel || means == Means::scrollBar)
    {
        CHECK(Eventually([&] { return top() < before; }));
    }
    CHECK(viewer.Close() == 0);
}

TEST_CASE("Viewer: in a field, one selects and copies what it says", "[tools]")
{
    ViewerProcess viewer;
    viewer.AwaitWindow();
    SendRecord(viewer.Receiver(), "wanted");
    REQUIRE(viewer.AwaitRows(1));
    const int field = GENERATE(ViewerProcess::kFilter, ViewerProcess::kDetails);
    if (field == ViewerProcess::kFilter)
    {
        Press(viewer.Window(), {VK_CONTROL, 'F'});
        viewer.Type(field, L"want");
    }
    else
    {
        Press(viewer.Window(), {VK_HOME});
        REQUIRE(
            Eventually([&] { return viewer.TextOf(field).find(L"wanted") != std::wstring::npos; }));
        Press(viewer.Window(), {VK_TAB});
    }
    REQUIRE(Eventually([&] { return FocusOf(viewer.Window()) == viewer.Child(field); }));
    const std::wstring text = viewer.TextOf(field);
    Press(viewer.Window(), {VK_CONTROL, 'A'});
    CHECK(Eventually([&] {
        const auto selected =
            static_cast<DWORD>(::SendMessageW(viewer.Child(field), EM_GETSEL, 0, 0));
        return LOWORD(selected) == 0 && HIWORD(selected) == text.size();
    }));
    CHECK(Eventually([&] { // a field does not wait for us to close the clipboard
        constexpr DWORD kPatienceMs = 2'000;
        Press(viewer.Window(), {VK_CONTROL, 'C'});
        return Eventually([&] { return ClipboardText() == text; }, kPatienceMs);
    }));
    CHECK(::SendMessageW(viewer.Child(ViewerProcess::kList), LVM_GETSELECTEDCOUNT, 0, 0) ==
          (field == ViewerProcess::kFilter ? 0 : 1));
    CHECK(viewer.Close() == 0);
}

TEST_CASE("Viewer: one reads a file from its start, unless one has something to follow", "[tools]")
{
    const TempFolder folder(L"followed");
    std::string lines;
    for (int i = 0; i < 200; ++i)
    {
        lines += "2024-02-29 12:00:00.000000  4  h.exe (1)  text\r\n";
    }
    folder.Write(L"trace.txt", lines);
    const bool hasRecords = GENERATE(false, true);
    ViewerProcess viewer;
    viewer.AwaitWindow();
    if (hasRecords)
    {
        SendRecord(viewer.Receiver(), "text");
        REQUIRE(viewer.AwaitRows(1));
    }
    const int rows = hasRecords ? 201 : 200;
    viewer.Drop(folder.File(L"trace.txt"));
    REQUIRE(viewer.AwaitRows(rows));
    REQUIRE(Eventually([&] { return viewer.Status(4).find(L"200") != std::wstring::npos; }));
    const HWND toolbar = viewer.Child(ViewerProcess::kToolbar);
    CHECK((::SendMessageW(toolbar, TB_ISBUTTONCHECKED, ViewerProcess::kFollowCommand, 0) != 0) ==
          hasRecords);
    const HWND list = viewer.Child(ViewerProcess::kList);
    const auto isSeen = [&](int row) {
        const auto top = static_cast<int>(::SendMessageW(list, LVM_GETTOPINDEX, 0, 0));
        const auto page = static_cast<int>(::SendMessageW(list, LVM_GETCOUNTPERPAGE, 0, 0));
        return row >= top && row < top + page;
    };
    CHECK(Eventually([&] { return isSeen(hasRecords ? rows - 1 : 0); }));
    CHECK(viewer.Close() == 0);
}

TEST_CASE("Viewer: a full list drops the oldest, says so, and still follows the newest", "[tools]")
{
    ViewerProcess viewer(L"--keep 1600");
    viewer.AwaitWindow();
    const HWND list = viewer.Child(ViewerProcess::kList);
    const auto top = [&] { return static_cast<int>(::SendMessageW(list, LVM_GETTOPINDEX, 0, 0)); };
    const auto send = [&](int from, int to) {
        for (int i = from; i < to; ++i)
        {
            SendRecord(viewer.Receiver(), "record " + std::to_string(i));
        }
    };
    const auto showsLast = [&](const wchar_t* dropped, const std::wstring& last) {
        return Eventually([&] {
            const int rows = viewer.Rows();
            const int page = static_cast<int>(::SendMessageW(list, LVM_GETCOUNTPERPAGE, 0, 0));
            return viewer.Status(2) == dropped && viewer.Cell(rows - 1, 4) == last &&
                   top() + page >= rows;
        });
    };
    send(0, 1701); // with the sixteenth that goes at once
    REQUIRE(viewer.AwaitRows(1701));
    CHECK(viewer.AwaitStatus(2, L"none dropped"));
    send(1701, 1710);
    CHECK(showsLast(L"101 oldest dropped", L"record 1709"));
    CHECK(viewer.Rows() == 1609);
    CHECK(viewer.AwaitStatus(0, L"1,609 records"));
    CHECK(viewer.Cell(0, 4) == L"record 101");

    // Who has moved away keeps the records before his eyes.
    Press(viewer.Window(), {VK_HOME});
    REQUIRE(Eventually([&] { return top() == 0; }));
    ::SendMessageW(list, LVM_ENSUREVISIBLE, 500, FALSE);
    const int before = top();
    const std::wstring seen = viewer.Cell(before, 4);
    send(1710, 1810);
    REQUIRE(viewer.AwaitStatus(2, L"202 oldest dropped"));
    REQUIRE(viewer.AwaitRows(1608));
    CHECK(top() == before - 101);
    CHECK(viewer.Cell(top(), 4) == seen);
}

TEST_CASE("Viewer: rows with the highlighted text have another background", "[tools]")
{
    constexpr COLORREF kHighlight = RGB(255, 243, 160);
    ViewerProcess viewer;
    viewer.AwaitWindow();
    SendRecord(viewer.Receiver(), "the first");
    SendRecord(viewer.Receiver(), "the wanted one");
    SendRecord(viewer.Receiver(), "another", 3, "Wanted");
    SendRecord(viewer.Receiver(), "the last");
    REQUIRE(viewer.AwaitRows(4));
    const HWND list = viewer.Child(ViewerProcess::kList);
    // Down the middle of the rows: how many runs of the colour there are, and how high the longest.
    const auto runs = [&] {
        RECT bounds{};
        ::GetWindowRect(list, &bounds);
        const HDC screen = ::GetDC(nullptr);
        std::vector<int> heights;
        bool inside = false;
        for (LONG y = bounds.top; y < bounds.bottom; ++y)
        {
            const bool is = ::GetPixel(screen, bounds.left + 600, y) == kHighlight;
            if (is && !inside)
            {
                heights.push_back(0);
            }
            inside = is;
            if (is)
            {
                ++heights.back();
            }
        }
        ::ReleaseDC(nullptr, screen);
        return heights;
    };
    CHECK(runs().empty());
    viewer.Type(ViewerProcess::kHighlight, L"WANTED");
    // The second and the third row lie on each other.
    REQUIRE(Eventually([&] { return runs().size() == 1 && runs()[0] > 20; }));
    viewer.Type(ViewerProcess::kHighlight, L"first");
    REQUIRE(Eventually([&] { return runs().size() == 1 && runs()[0] < 20 && runs()[0] > 8; }));
    viewer.Type(ViewerProcess::kHighlight, L"");
    CHECK(Eventually([&] { return runs().empty(); }));
}
