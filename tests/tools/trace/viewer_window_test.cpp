// The viewer's window: what it receives and shows.

#include "foundation/trace_record.h"
#include "foundation/unique_handle.h"
#include "tests/support/component_library.h"
#include "tests/support/edition.h"
#include "tests/support/temp_folder.h"
#include "tests/support/variants.h"
#include "tests/support/viewer_process.h"
#include "tests/tools/trace/viewer_input.h"

#include <provider_lib.h>

#include <windows.h>

#include <commctrl.h>

#include <catch.hpp>

#include <algorithm>
#include <string>
#include <vector>

using namespace velt::test;

namespace
{
using Texts = std::vector<std::wstring>;
} // namespace

TEST_CASE("Viewer: it shows what the component traces, and who does", "[tools]")
{
    ViewerProcess viewer;
    viewer.AwaitWindow();
    int rows = 7;
    {
        const ComponentLibrary library;
        auto collection = library.Create<IEnumVariantCol>(CLSID_CEnumVariantCol);
        REQUIRE(collection->Remove(OfType(kImpossibleType)) == DISP_E_BADVARTYPE);
        collection.Reset();
        REQUIRE(viewer.AwaitRows(rows));
        // A look at who has the library takes longer than a record: the first may have no name.
        const std::wstring self =
            L"tools_trace_viewer_test.exe (" + std::to_wstring(::GetCurrentProcessId()) + L")";
        CHECK(Eventually([&] {
            library.CanUnloadNow();
            rows += 2;
            return viewer.AwaitRows(rows) && viewer.Cell(rows - 1, 1) == self;
        }));
    }
    CHECK(viewer.Cell(4, 4) == L"CEnumVariantCol::Remove - enter");
    CHECK(viewer.Cell(5, 4).starts_with(L"  failed: 0x80020008 "));
    CHECK(viewer.Cell(5, 2) == L"1");
    CHECK(viewer.Cell(6, 4) == L"CEnumVariantCol::Remove - return = -2147352568");
    CHECK(viewer.Cell(6, 2) == L"4");
    CHECK(viewer.Cell(0, 3).empty());
    const std::wstring time = viewer.Cell(0, 0);
    CHECK(time.size() == std::wstring_view(L"09:05:03.000042").size());
    CHECK(viewer.AwaitStatus(0, std::to_wstring(rows) + L" records"));
    CHECK(viewer.AwaitStatus(1, std::to_wstring(rows) + L" shown"));
    CHECK(viewer.AwaitStatus(2, L"none dropped"));
    CHECK(viewer.AwaitStatus(3, L"0 malformed"));
    CHECK(viewer.Close() == 0);
}

TEST_CASE("Viewer: its parts share the window, however small", "[tools]")
{
    ViewerProcess viewer;
    viewer.AwaitWindow();
    const auto placeOf = [](HWND window) {
        RECT place{};
        ::GetWindowRect(window, &place);
        return place;
    };
    const RECT first = placeOf(viewer.Window());
    CHECK(first.right - first.left == 1100);
    CHECK(first.bottom - first.top == 640);
    for (const SIZE size : {SIZE{900, 700}, SIZE{100, 100}})
    {
        ::SetWindowPos(viewer.Window(), nullptr, 0, 0, static_cast<int>(size.cx),
                       static_cast<int>(size.cy), SWP_NOMOVE | SWP_NOZORDER);
        const RECT whole = placeOf(viewer.Window());
        CHECK(whole.right - whole.left == std::max<LONG>(size.cx, 640));
        CHECK(whole.bottom - whole.top == std::max<LONG>(size.cy, 320));
        RECT client{};
        ::GetClientRect(viewer.Window(), &client);
        ::MapWindowPoints(viewer.Window(), nullptr, reinterpret_cast<POINT*>(&client), 2);
        LONG bottom = client.top; // of what is above
        for (const int child : {ViewerProcess::kToolbar, ViewerProcess::kList,
                                ViewerProcess::kDetails, ViewerProcess::kStatus})
        {
            INFO("child " << child << " of a window of " << size.cx);
            const RECT place = placeOf(viewer.Child(child));
            CHECK(place.left == client.left);
            CHECK(place.right == client.right);
            if (child == ViewerProcess::kList) // the fields stand between
            {
                LONG fieldsBottom = bottom;
                for (const int field :
                     {ViewerProcess::kFilter, ViewerProcess::kLevel, ViewerProcess::kHighlight})
                {
                    const RECT of = placeOf(viewer.Child(field));
                    CHECK(of.top >= bottom);
                    CHECK(of.right <= client.right);
                    fieldsBottom = std::max(fieldsBottom, of.bottom);
                }
                CHECK(place.top >= fieldsBottom);
            }
            else
            {
                CHECK(place.top == bottom);
            }
            CHECK(place.bottom > place.top);
            bottom = place.bottom;
        }
        CHECK(bottom == client.bottom);
    }
    CHECK(viewer.Close() == 0);
}

TEST_CASE("Viewer: it stays while a dialog of its own asks something", "[tools]")
{
    ViewerProcess viewer;
    viewer.AwaitWindow();
    ::PostMessageW(viewer.Window(), WM_COMMAND, ViewerProcess::kOpenCommand, 0);
    HWND dialog = nullptr;
    REQUIRE(Eventually([&] {
        return (dialog = DialogOf(viewer.Id())) != nullptr && !::IsWindowEnabled(viewer.Window());
    }));
    constexpr int kKinds = 0x470; // cmb1: of the files that are listed
    CHECK(::SendDlgItemMessageW(dialog, kKinds, CB_GETCURSEL, 0, 0) == 0);
    ::SendMessageW(viewer.Window(), WM_CLOSE, 0, 0);
    CHECK(::IsWindow(viewer.Window()));
    CHECK(::IsWindow(dialog));
    ::PostMessageW(dialog, WM_COMMAND, IDCANCEL, 0);
    REQUIRE(Eventually([&] { return !::IsWindow(dialog); }));
    CHECK(viewer.Close() == 0);
}

TEST_CASE("Viewer: the window that programs find has the class and the title", "[tools]")
{
    ViewerProcess viewer;
    viewer.AwaitWindow();
    constexpr wchar_t kName[] = L"Pembrook Corporation::Trace::1.0";
    CHECK(::FindWindowW(kName, nullptr) == viewer.Receiver());
    CHECK(::FindWindowW(kName, kName) == viewer.Receiver());
    wchar_t title[64] = {};
    ::GetWindowTextW(viewer.Window(), title, 64);
    CHECK(std::wstring(title) == kName);
}

TEST_CASE("Viewer: a sender that names its window is told apart", "[tools]")
{
    ViewerProcess viewer;
    viewer.AwaitWindow();
    const HWND own =
        ::CreateWindowExW(0, L"STATIC", L"", 0, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr);
    SendRecord(viewer.Receiver(), "text", 3, "module", own);
    ::DestroyWindow(own);
    SendRecord(viewer.Receiver(), "text", 3, "module");
    REQUIRE(viewer.AwaitRows(2));
    CHECK(viewer.Cell(0, 1) ==
          L"tools_trace_viewer_test.exe (" + std::to_wstring(::GetCurrentProcessId()) + L")");
    CHECK(viewer.Cell(1, 1) == L"?"); // nobody has the component loaded
    CHECK(viewer.Cell(0, 3) == L"module");
}

TEST_CASE("Viewer: a kind of data that only ends in the magic is another kind", "[tools]")
{
    if (!kIs64Bit)
    {
        WARN("does not apply: a kind of data has 32 bits here");
        return;
    }
    ViewerProcess viewer;
    viewer.AwaitWindow();
    const velt::TraceRecord sound = velt::EncodeTraceRecord(4, 0, "", "text");
    SendBytes(viewer.Receiver(),
              std::string(reinterpret_cast<const char*>(sound.bytes.data()), sound.size),
              static_cast<ULONG_PTR>(0x1'5554'3132));
    REQUIRE(viewer.AwaitRows(1));
    CHECK(viewer.Texts()[0].starts_with(L"malformed record (wrong magic), 86 bytes"));
    CHECK(viewer.Close() == 0);
}

TEST_CASE("Viewer: malformed records are shown as such and counted", "[tools]")
{
    ViewerProcess viewer;
    viewer.AwaitWindow();
    const velt::TraceRecord sound = velt::EncodeTraceRecord(4, 0, "", "text");
    const std::string bytes(reinterpret_cast<const char*>(sound.bytes.data()), sound.size);
    std::string changed = bytes;

    SendBytes(viewer.Receiver(), "");
    SendBytes(viewer.Receiver(), bytes.substr(0, 81));
    changed[4] = '?';
    SendBytes(viewer.Receiver(), changed);
    changed = bytes;
    changed[0] = 1;
    SendBytes(viewer.Receiver(), changed);
    changed = bytes;
    changed.back() = '!';
    SendBytes(viewer.Receiver(), changed);
    SendBytes(viewer.Receiver(), std::string(50'000, 'x'));
    SendBytes(viewer.Receiver(), bytes, 1); // another kind of data
    SendBytes(viewer.Receiver(), bytes);

    REQUIRE(viewer.AwaitRows(8));
    const Texts texts = viewer.Texts();
    CHECK(texts[0] == L"malformed record (too short), 0 bytes");
    CHECK(texts[1].starts_with(L"malformed record (too short), 81 bytes: 56 00 00 00 32 31 54 55"));
    CHECK(texts[2].starts_with(L"malformed record (wrong magic), 86 bytes"));
    CHECK(texts[3].starts_with(L"malformed record (wrong total), 86 bytes"));
    CHECK(texts[4].starts_with(L"malformed record (text without end), 86 bytes"));
    CHECK(texts[5].starts_with(L"malformed record (wrong total), 50000 bytes"));
    CHECK(texts[6].starts_with(L"malformed record (wrong magic), 86 bytes"));
    CHECK(texts[7] == L"text");
    CHECK(viewer.Cell(0, 2) == L"!");
    CHECK(viewer.AwaitStatus(3, L"7 malformed"));
    CHECK(viewer.Close() == 0);
}

TEST_CASE("Viewer: texts are UTF-8 or the code page, and never control the list", "[tools]")
{
    ViewerProcess viewer;
    viewer.AwaitWindow();
    SendRecord(viewer.Receiver(), "gr\xC3\xBC\xC3\x9F");
    SendRecord(viewer.Receiver(), "gr\xFC\xDF");
    SendRecord(viewer.Receiver(), std::string(1022, 'x') + "\xC3\xBC"); // cut in two at 1023
    SendRecord(viewer.Receiver(), "a\tb\nc");
    REQUIRE(viewer.AwaitRows(4));
    CHECK(viewer.Cell(0, 4) == L"gr\u00FC\u00DF");
    wchar_t expected[8] = {};
    ::MultiByteToWideChar(CP_ACP, 0, "gr\xFC\xDF", -1, expected, 8);
    CHECK(viewer.Cell(1, 4) == expected);
    CHECK(viewer.Cell(2, 4).find_first_not_of(L'x') == std::wstring::npos);
    CHECK(viewer.Cell(3, 4) == L"a\\tb\\nc");
}

TEST_CASE("Viewer: the filter works while one types, by text, source and level", "[tools]")
{
    ViewerProcess viewer;
    viewer.AwaitWindow();
    SendRecord(viewer.Receiver(), "CName::Add - enter");
    SendRecord(viewer.Receiver(), "an error", 1);
    SendRecord(viewer.Receiver(), "a detail", 3, "Adder");
    REQUIRE(viewer.AwaitRows(3));

    viewer.Type(ViewerProcess::kFilter, L"ADD");
    REQUIRE(viewer.AwaitRows(2));
    CHECK(viewer.Texts() == Texts{L"CName::Add - enter", L"a detail"});
    CHECK(viewer.AwaitStatus(0, L"3 records"));
    CHECK(viewer.AwaitStatus(1, L"2 shown"));
    SendRecord(viewer.Receiver(), "CName::Add - return");
    REQUIRE(viewer.AwaitRows(3));
    SendRecord(viewer.Receiver(), "not this one");

    viewer.Type(ViewerProcess::kFilter, L"");
    REQUIRE(viewer.AwaitRows(5));
    ::SendMessageW(viewer.Child(ViewerProcess::kLevel), CB_SETCURSEL, 2, 0); // up to 3
    ::SendMessageW(viewer.Window(), WM_COMMAND, MAKEWPARAM(ViewerProcess::kLevel, CBN_SELCHANGE),
                   0);
    REQUIRE(viewer.AwaitRows(2));
    CHECK(viewer.Texts() == Texts{L"an error", L"a detail"});
}

TEST_CASE("Viewer: options of the command line fill the filter bar", "[tools]")
{
    ViewerProcess viewer(L"--filter \"an er\" --level 2");
    viewer.AwaitWindow();
    SendRecord(viewer.Receiver(), "an error", 2);
    SendRecord(viewer.Receiver(), "an error", 3);
    SendRecord(viewer.Receiver(), "another", 1);
    REQUIRE(viewer.AwaitRows(1));
    CHECK(viewer.TextOf(ViewerProcess::kFilter) == L"an er");
    CHECK(viewer.TextOf(ViewerProcess::kLevel) == L"up to 2");
}

TEST_CASE("Viewer: a second one brings the first one to the front", "[tools]")
{
    ViewerProcess first;
    first.AwaitWindow();
    ::ShowWindow(first.Window(), SW_MINIMIZE);
    REQUIRE(Eventually([&] { return ::IsIconic(first.Window()) != 0; }));
    {
        ViewerProcess second;
        CHECK(second.AwaitExit() == 1);
        CHECK(second.Errors() == "velt-trace: A trace viewer is running already.\r\n");
    }
    // It needs no answer, and what it said is to be seen.
    CHECK(Eventually([&] { return !::IsIconic(first.Window()); }));
    const auto isInFront = [](const ViewerProcess& viewer) {
        return Eventually([&] { return ::GetForegroundWindow() == viewer.Window(); });
    };
    CHECK(isInFront(first));
    // Also from behind another window.
    const TempFolder folder(L"viewer");
    folder.Write(L"trace.txt", "2024-02-29 12:34:56.000789  4  ?  saved\r\n");
    ViewerProcess files(L"\"" + folder.File(L"trace.txt") + L"\"");
    files.AwaitFileWindow();
    REQUIRE(isInFront(files));
    CHECK(ViewerProcess().AwaitExit() == 1);
    CHECK(isInFront(first));
    CHECK(files.Close() == 0);
    ViewerProcess third(L"--console");
    CHECK(third.AwaitExit() == 1);
    CHECK(third.Errors() == "velt-trace: A trace viewer is running already.\r\n");
    CHECK(third.Output().empty());
    CHECK(first.Close() == 0);
}

TEST_CASE("Viewer: what programs write for a debugger is a source of its own, when asked for",
          "[tools]")
{
    ViewerProcess viewer;
    viewer.AwaitWindow();
    ::OutputDebugStringA("nobody listens");
    viewer.Command(223);
    ::OutputDebugStringA("a line for the debugger\r\n");
    REQUIRE(viewer.AwaitRows(1));
    CHECK(viewer.Cell(0, 4) == L"a line for the debugger");
    CHECK(viewer.Cell(0, 3) == L"debugger");
    CHECK(viewer.Cell(0, 2) == L"3");
    CHECK(viewer.Cell(0, 1) ==
          L"tools_trace_viewer_test.exe (" + std::to_wstring(::GetCurrentProcessId()) + L")");
    // As the component writes a line: in three, and its calls are known as such.
    for (const char* piece : {"module: ", "A::B - enter", "\r\n"})
    {
        ::OutputDebugStringA(piece);
    }
    REQUIRE(viewer.AwaitRows(2));
    CHECK(viewer.Cell(1, 4) == L"module: A::B - enter");
    CHECK(viewer.Cell(1, 2) == L"4");
    const std::string longest(4091, 'x');
    ::OutputDebugStringA(longest.c_str()); // without an end
    REQUIRE(viewer.AwaitRows(3));
    CHECK(viewer.Cell(2, 4).size() > 1000);
    CHECK(viewer.Cell(2, 4).find_first_not_of(L'x') == std::wstring::npos);
    viewer.Command(223);
    ::OutputDebugStringA("nobody listens any more");
    SendRecord(viewer.Receiver(), "the last");
    REQUIRE(viewer.AwaitRows(4));
    CHECK(viewer.Cell(3, 4) == L"the last");
    CHECK(viewer.Close() == 0);
}

TEST_CASE("Viewer: it says when another program has the debugger output", "[tools]")
{
    const velt::UniqueKernelObject others(::CreateFileMappingW(
        INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, L"DBWIN_BUFFER"));
    REQUIRE(others);
    {
        ViewerProcess viewer(L"--debug-output");
        viewer.AwaitWindow();
        CHECK(viewer.AwaitStatus(4, L"another program listens to the debugger output"));
        SendRecord(viewer.Receiver(), "a record");
        CHECK(viewer.AwaitRows(1)); // all else goes on
        CHECK(viewer.Close() == 0);
    }
    ViewerProcess viewer(L"--console --debug-output");
    viewer.AwaitReceiver();
    SendRecord(viewer.Receiver(), "a record");
    CHECK(Eventually([&] { return viewer.OutputWaiting().ends_with("  a record\r\n"); }));
    CHECK(viewer.Close() == 0);
    CHECK_THAT(viewer.Errors(),
               Catch::StartsWith("velt-trace: another program listens to the debugger output"));
}
