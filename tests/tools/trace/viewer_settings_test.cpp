// What the viewer remembers.

#include "foundation/velt_version.h"
#include "tests/support/viewer_process.h"
#include "tests/tools/trace/viewer_input.h"

#include <windows.h>

#include <commctrl.h>

#include <catch.hpp>

#include <string>

using namespace velt::test;

namespace
{
constexpr auto kKept = ViewerProcess::Memory::kept;

std::wstring Program()
{
    return ShippedFile(L"velt-trace.exe");
}

void SetText(const wchar_t* name, const std::wstring& text, DWORD type = REG_SZ)
{
    ::RegSetKeyValueW(HKEY_CURRENT_USER, ViewerProcess::kSettings, name, type, text.c_str(),
                      static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
}

RECT PlaceOf(HWND window)
{
    RECT place{};
    ::GetWindowRect(window, &place);
    return place;
}

int WidthOf(const ViewerProcess& viewer, int column)
{
    return static_cast<int>(::SendMessageW(viewer.Child(ViewerProcess::kList), LVM_GETCOLUMNWIDTH,
                                           static_cast<WPARAM>(column), 0));
}

int RowsOnScreen(const ViewerProcess& viewer)
{
    return static_cast<int>(
        ::SendMessageW(viewer.Child(ViewerProcess::kList), LVM_GETCOUNTPERPAGE, 0, 0));
}
} // namespace

TEST_CASE("Viewer: it remembers window, columns and filters, until told to forget", "[tools]")
{
    RECT place{};
    int width = 0;
    int firstWidth = 0;
    {
        ViewerProcess viewer;
        viewer.AwaitWindow();
        width = WidthOf(viewer, 1);
        firstWidth = width;
        ::SetWindowPos(viewer.Window(), nullptr, 40, 60, 800, 500, SWP_NOZORDER);
        REQUIRE(Eventually([&] { return PlaceOf(viewer.Window()).left == 40; }));
        place = PlaceOf(viewer.Window());
        ::SendMessageW(viewer.Child(ViewerProcess::kList), LVM_SETCOLUMNWIDTH, 1, width + 33);
        REQUIRE(viewer.Close() == 0);
    }
    SetText(L"Rules", std::wstring(L"+exclude hidden\0-exclude shown\0broken\0", 39), REG_MULTI_SZ);
    SetText(L"ColumnOrder", L"4 0 1 2 3");
    for (int i = 0; i < 2; ++i) // what was read is written again
    {
        ViewerProcess viewer(L"", Program(), kKept);
        viewer.AwaitWindow();
        const RECT now = PlaceOf(viewer.Window());
        CHECK(::EqualRect(&now, &place));
        CHECK(WidthOf(viewer, 1) == width + 33);
        SendRecord(viewer.Receiver(), "hidden");
        SendRecord(viewer.Receiver(), "shown");
        REQUIRE(viewer.AwaitRows(1));
        CHECK(viewer.Cell(0, 4) == L"shown");
        REQUIRE(viewer.Close() == 0);
    }
    {
        // Filters of the command line are for this once.
        ViewerProcess viewer(L"--exclude shown", Program(), kKept);
        viewer.AwaitWindow();
        SendRecord(viewer.Receiver(), "hidden");
        SendRecord(viewer.Receiver(), "shown");
        REQUIRE(viewer.AwaitRows(1));
        CHECK(viewer.Cell(0, 4) == L"hidden");
        REQUIRE(viewer.Close() == 0);
    }
    {
        ViewerProcess viewer(L"", Program(), kKept);
        viewer.AwaitWindow();
        SendRecord(viewer.Receiver(), "hidden");
        SendRecord(viewer.Receiver(), "shown");
        REQUIRE(viewer.AwaitRows(1));
        REQUIRE(viewer.Close() == 0);
    }
    ViewerProcess viewer(L"--defaults", Program(), kKept);
    viewer.AwaitWindow();
    SendRecord(viewer.Receiver(), "hidden");
    REQUIRE(viewer.AwaitRows(1));
    CHECK(WidthOf(viewer, 1) == firstWidth);
    const RECT now = PlaceOf(viewer.Window());
    CHECK_FALSE(::EqualRect(&now, &place));
    CHECK(viewer.Close() == 0);
}

TEST_CASE("Viewer: it remembers that it filled the screen, also while it was put away", "[tools]")
{
    const bool isPutAway = GENERATE(false, true);
    {
        ViewerProcess viewer;
        viewer.AwaitWindow();
        ::ShowWindowAsync(viewer.Window(), SW_MAXIMIZE);
        REQUIRE(Eventually([&] { return ::IsZoomed(viewer.Window()) != FALSE; }));
        if (isPutAway)
        {
            ::ShowWindowAsync(viewer.Window(), SW_MINIMIZE);
            REQUIRE(Eventually([&] { return ::IsIconic(viewer.Window()) != FALSE; }));
        }
        REQUIRE(viewer.Close() == 0);
    }
    {
        ViewerProcess viewer(L"", Program(), kKept);
        viewer.AwaitWindow();
        CHECK(::IsZoomed(viewer.Window()));
        ::ShowWindowAsync(viewer.Window(), SW_RESTORE);
        REQUIRE(Eventually([&] { return !::IsZoomed(viewer.Window()); }));
        REQUIRE(viewer.Close() == 0);
    }
    ViewerProcess viewer(L"", Program(), kKept);
    viewer.AwaitWindow();
    CHECK_FALSE(::IsZoomed(viewer.Window()));
    CHECK(viewer.Close() == 0);
}

TEST_CASE("Viewer: who logs off finds it again as it was", "[tools]")
{
    int width = 0;
    {
        ViewerProcess viewer;
        viewer.AwaitWindow();
        width = WidthOf(viewer, 1);
        ::SendMessageW(viewer.Child(ViewerProcess::kList), LVM_SETCOLUMNWIDTH, 1, width + 33);
        ::SendMessageW(viewer.Window(), WM_ENDSESSION, FALSE, 0); // somebody has objected
        CHECK(::RegGetValueW(HKEY_CURRENT_USER, ViewerProcess::kSettings, L"ColumnWidths",
                             RRF_RT_ANY, nullptr, nullptr, nullptr) == ERROR_FILE_NOT_FOUND);
        ::SendMessageW(viewer.Window(), WM_ENDSESSION, TRUE, 0);
        ::TerminateProcess(viewer.Process(), 1);
        viewer.AwaitExit();
    }
    ViewerProcess viewer(L"", Program(), kKept);
    viewer.AwaitWindow();
    CHECK(WidthOf(viewer, 1) == width + 33);
    CHECK(viewer.Close() == 0);
}

TEST_CASE("Viewer: what it cannot have remembered is as at first", "[tools]")
{
    int width = 0;
    int rows = 0;
    RECT place{};
    {
        ViewerProcess viewer;
        viewer.AwaitWindow();
        width = WidthOf(viewer, 1);
        rows = RowsOnScreen(viewer);
        place = PlaceOf(viewer.Window());
        REQUIRE(viewer.Close() == 0);
    }
    SetText(L"Window", L"-90000 -90000 -89000 -89500 0"); // on no screen
    SetText(L"ColumnWidths", L"1 2 3 4 99999");
    SetText(L"ColumnOrder", L"0 0 1 2 3");
    SetText(L"FontSize", L"99999");
    SetText(L"FontName", std::wstring(500, L'x'));
    SetText(L"Rules", L"+include nothing"); // another kind of value
    ViewerProcess viewer(L"", Program(), kKept);
    viewer.AwaitWindow();
    SendRecord(viewer.Receiver(), "text");
    REQUIRE(viewer.AwaitRows(1));
    CHECK(WidthOf(viewer, 1) == width);
    CHECK(RowsOnScreen(viewer) == rows);
    const RECT now = PlaceOf(viewer.Window());
    CHECK(now.right - now.left == place.right - place.left);
    CHECK(::MonitorFromRect(&now, MONITOR_DEFAULTTONULL));
    CHECK(viewer.Close() == 0);
}

TEST_CASE("Viewer: the font is chosen and remembered", "[tools]")
{
    int rows = 0;
    {
        ViewerProcess viewer;
        viewer.AwaitWindow();
        rows = RowsOnScreen(viewer);
        ::PostMessageW(viewer.Window(), WM_COMMAND, 221, 0); // Font...
        HWND dialog = nullptr;
        REQUIRE(Eventually([&] { return (dialog = DialogOf(viewer.Id())) != nullptr; }));
        constexpr int kSizeField = 0x472; // cmb3
        constexpr int kNameField = 0x470; // cmb1
        CHECK(::GetDlgItem(dialog, kNameField) != nullptr);
        const HWND sizes = ::GetDlgItem(dialog, kSizeField);
        REQUIRE(::SendMessageW(sizes, CB_SELECTSTRING, static_cast<WPARAM>(-1),
                               reinterpret_cast<LPARAM>(L"20")) != CB_ERR);
        ::SendMessageW(dialog, WM_COMMAND, MAKEWPARAM(kSizeField, CBN_SELCHANGE),
                       reinterpret_cast<LPARAM>(sizes)); // as the list does when a user chooses
        ::PostMessageW(dialog, WM_COMMAND, IDOK, 0);
        REQUIRE(Eventually([&] { return RowsOnScreen(viewer) < rows * 3 / 4; }));
        REQUIRE(viewer.Close() == 0);
    }
    ViewerProcess viewer(L"", Program(), kKept);
    viewer.AwaitWindow();
    CHECK(RowsOnScreen(viewer) < rows * 3 / 4);
    CHECK(viewer.Close() == 0);
}

TEST_CASE("Viewer: F1 tells its keys, and About which version and edition it is", "[tools]")
{
    ViewerProcess viewer;
    viewer.AwaitWindow();
    const auto told = [&] {
        HWND box = nullptr;
        std::wstring text;
        REQUIRE(Eventually([&] { return (box = BoxOf(viewer.Id(), text)) != nullptr; }));
        ::PostMessageW(box, WM_COMMAND, IDOK, 0);
        REQUIRE(Eventually([&] { return !::IsWindow(box); }));
        return text;
    };
    Press(viewer.Window(), {VK_F1});
    CHECK(told().find(L"Ctrl+F\tfilter by text or source\r\n") != std::wstring::npos);
    ::PostMessageW(viewer.Window(), WM_COMMAND, 222, 0); // About
    const std::wstring about = told();
    CHECK(about.find(L"" VELT_VERSION_TEXT) != std::wstring::npos);
    CHECK(about.find(L"" VELT_EDITION) != std::wstring::npos);
    CHECK(about.find(L"trace.md") != std::wstring::npos);
    CHECK(viewer.Close() == 0);
}
