// The viewer's table of the slowest calls.

#include "tests/support/temp_folder.h"
#include "tests/support/viewer_process.h"
#include "tests/tools/trace/viewer_input.h"

#include <windows.h>

#include <commctrl.h>

#include <catch.hpp>

#include <string>

using namespace velt::test;

namespace
{
constexpr int kCalls = 421;
constexpr int kOrder = 422;
constexpr int kAbout = 423;
constexpr int kRefresh = 424;
constexpr int kSave = 425;
constexpr int kGo = 426;
constexpr char kTrace[] = "2024-02-29 12:00:00.000000  4  h.exe (1)  A - enter\r\n"
                          "2024-02-29 12:00:00.000010  4  h.exe (1)    B - enter\r\n"
                          "2024-02-29 12:00:00.003010  4  h.exe (1)    B - return\r\n"
                          "2024-02-29 12:00:00.005000  4  h.exe (1)  A - return = 0\r\n"
                          "2024-02-29 12:00:01.000000  4  h.exe (1)  B - enter\r\n"
                          "2024-02-29 12:00:03.500000  4  h.exe (1)  B - return\r\n"
                          "2024-02-29 12:00:03.600000  3  h.exe (1)  message\r\n";
} // namespace

TEST_CASE("Viewer: to a call that is not shown any more it does not go", "[tools]")
{
    const TempFolder folder(L"viewer");
    folder.Write(L"trace.txt", kTrace);
    ViewerProcess viewer(L"\"" + folder.File(L"trace.txt") + L"\"");
    viewer.AwaitFileWindow();
    REQUIRE(viewer.AwaitRows(7));
    const HWND dialog = OpenDialog(viewer, ViewerProcess::kCallsCommand);
    REQUIRE(dialog);
    const HWND list = ::GetDlgItem(dialog, kCalls);
    REQUIRE(Eventually([&] { return ::SendMessageW(list, LVM_GETITEMCOUNT, 0, 0) == 2; }));
    viewer.Type(ViewerProcess::kFilter, L"message");
    REQUIRE(viewer.AwaitRows(1));
    ::PostMessageW(list, WM_KEYDOWN, VK_HOME, 0);
    ::PostMessageW(::GetDlgItem(dialog, kGo), BM_CLICK, 0, 0);
    CHECK(viewer.AwaitStatus(4, L"this record is not shown any more"));
    CHECK(viewer.Close() == 0);
}

TEST_CASE("Viewer: the slowest calls of what is shown or selected", "[tools]")
{
    const TempFolder folder(L"viewer");
    folder.Write(L"trace.txt", kTrace);
    ViewerProcess viewer(L"\"" + folder.File(L"trace.txt") + L"\"");
    viewer.AwaitFileWindow();
    REQUIRE(viewer.AwaitRows(7));
    Press(viewer.Window(), {VK_CONTROL, 'F'});
    Press(viewer.Window(), {VK_CONTROL, 'T'});
    HWND dialog = nullptr;
    REQUIRE(Eventually([&] { return (dialog = DialogOf(viewer.Id())) != nullptr; }));
    const HWND list = ::GetDlgItem(dialog, kCalls);
    const auto cell = [&](int row, int column) { return viewer.CellOf(list, row, column); };
    // A collection goes on between what else the window does.
    const auto says = [&](const std::wstring& expected) {
        return Eventually([&] {
            wchar_t text[200] = {};
            ::SendMessageW(::GetDlgItem(dialog, kAbout), WM_GETTEXT, 200,
                           reinterpret_cast<LPARAM>(text));
            return text == expected;
        });
    };
    CHECK(says(L"2 functions among the 7 shown records"));
    REQUIRE(::SendMessageW(list, LVM_GETITEMCOUNT, 0, 0) == 2);
    CHECK(cell(0, 0) == L"B"); // by total
    CHECK(cell(0, 1) == L"2");
    CHECK(cell(0, 2) == L"2.503000 s");
    CHECK(cell(0, 4) == L"2.500000 s");
    CHECK(cell(1, 0) == L"A");
    CHECK(cell(1, 2) == L"5.000 ms");
    CHECK(cell(1, 3) == L"2.000 ms");

    ::SendMessageW(::GetDlgItem(dialog, kOrder), CB_SETCURSEL, 0, 0); // by name
    ::SendMessageW(dialog, WM_COMMAND, MAKEWPARAM(kOrder, CBN_SELCHANGE), 0);
    CHECK(cell(0, 0) == L"A");

    // From a row to its longest call.
    ::PostMessageW(list, WM_KEYDOWN, VK_DOWN, 0);
    ::PostMessageW(::GetDlgItem(dialog, kGo), BM_CLICK, 0, 0);
    const HWND records = viewer.Child(ViewerProcess::kList);
    CHECK(Eventually([&] {
        return ::SendMessageW(records, LVM_GETNEXTITEM, static_cast<WPARAM>(-1), LVNI_FOCUSED) == 4;
    }));
    CHECK(Eventually([&] { return FocusOf(viewer.Window()) == records; }));

    // Only what is selected: the last two lines of B.
    ::PostMessageW(records, WM_KEYDOWN, VK_HOME, 0);
    REQUIRE(Eventually([&] {
        return ::SendMessageW(records, LVM_GETNEXTITEM, static_cast<WPARAM>(-1), LVNI_FOCUSED) == 0;
    }));
    Press(viewer.Window(), {VK_SHIFT, VK_DOWN});
    Press(viewer.Window(), {VK_SHIFT, VK_DOWN});
    REQUIRE(Eventually([&] { return ::SendMessageW(records, LVM_GETSELECTEDCOUNT, 0, 0) == 3; }));
    ::SendMessageW(::GetDlgItem(dialog, kRefresh), BM_CLICK, 0, 0);
    CHECK(says(L"1 function among the 3 selected records"));
    CHECK(cell(0, 0) == L"B");
    CHECK(cell(0, 2) == L"3.000 ms");

    // Saved as it is sorted, in microseconds.
    ::PostMessageW(::GetDlgItem(dialog, kSave), BM_CLICK, 0, 0);
    const HWND files = NameFile(viewer.Id(), folder.File(L"calls.csv"), dialog);
    REQUIRE(files);
    REQUIRE(Eventually([&] { return !::IsWindow(files) && ::IsWindowEnabled(dialog); }));
    const std::string expected = "\xEF\xBB\xBF"
                                 "function,count,total us,own us,longest us\r\n"
                                 "B,1,3000,3000,3000\r\n";
    std::string saved; // once the dialog that asked for its name is gone
    Eventually([&] { return (saved = folder.Read(L"calls.csv")) == expected; });
    CHECK(saved == expected);

    viewer.Type(ViewerProcess::kFilter, L"nothing");
    REQUIRE(viewer.AwaitRows(0));
    ::SendMessageW(::GetDlgItem(dialog, kRefresh), BM_CLICK, 0, 0);
    CHECK(says(L"0 functions among the 0 shown records"));
    CHECK_FALSE(::IsWindowEnabled(::GetDlgItem(dialog, kGo)));
    CHECK_FALSE(::IsWindowEnabled(::GetDlgItem(dialog, kSave)));
    CHECK(viewer.Close() == 0);
}
