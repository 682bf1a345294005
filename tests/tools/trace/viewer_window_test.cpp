#include "foundation/trace_record.h"
#include "tests/support/component_library.h"
#include "tests/support/temp_folder.h"
#include "tests/support/variants.h"
#include "tests/support/viewer_process.h"
#include "tools/common/output_file.h"

#include <provider_lib.h>

#include <windows.h>

#include <commctrl.h>

#include <catch.hpp>

#include <initializer_list>
#include <iterator>
#include <string>
#include <vector>

using namespace velt::test;

namespace
{
using Texts = std::vector<std::wstring>;

std::string ReadFile(const std::wstring& path)
{
    const HANDLE file = ::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                      OPEN_EXISTING, 0, nullptr);
    std::string text(file == INVALID_HANDLE_VALUE ? 0 : ::GetFileSize(file, nullptr), '\0');
    DWORD read = 0;
    ::ReadFile(file, text.data(), static_cast<DWORD>(text.size()), &read, nullptr);
    ::CloseHandle(file);
    return text;
}

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

/// Presses keys together, as a keyboard does, once the window is in front.
void Press(HWND window, std::initializer_list<WORD> keys)
{
    ::SetForegroundWindow(window);
    std::vector<INPUT> inputs;
    for (const WORD key : keys)
    {
        INPUT input{};
        input.type = INPUT_KEYBOARD;
        input.ki.wVk = key;
        inputs.push_back(input);
    }
    for (auto key = std::rbegin(keys); key != std::rend(keys); ++key)
    {
        INPUT input{};
        input.type = INPUT_KEYBOARD;
        input.ki.wVk = *key;
        input.ki.dwFlags = KEYEVENTF_KEYUP;
        inputs.push_back(input);
    }
    ::SendInput(static_cast<UINT>(inputs.size()), inputs.data(), sizeof(INPUT));
}

/// The child of the viewer that has the keyboard.
HWND FocusOf(HWND window)
{
    GUITHREADINFO info{};
    info.cbSize = sizeof(info);
    ::GetGUIThreadInfo(::GetWindowThreadProcessId(window, nullptr), &info);
    return info.hwndFocus;
}

/// A window of a process that is a dialog.
HWND DialogOf(DWORD processId)
{
    HWND dialog = nullptr;
    while ((dialog = ::FindWindowExW(nullptr, dialog, L"#32770", nullptr)) != nullptr)
    {
        DWORD owner = 0;
        ::GetWindowThreadProcessId(dialog, &owner);
        if (owner == processId && ::IsWindowVisible(dialog))
        {
            return dialog;
        }
    }
    return nullptr;
}

/// The message box of a process, and what it says.
HWND BoxOf(DWORD processId, HWND other, std::wstring& text)
{
    constexpr int kMessageText = 0xFFFF;
    const HWND box = DialogOf(processId);
    const HWND message = box && box != other ? ::GetDlgItem(box, kMessageText) : nullptr;
    if (!message)
    {
        return nullptr;
    }
    std::vector<wchar_t> characters(1000);
    const LRESULT length = ::SendMessageW(message, WM_GETTEXT, characters.size(),
                                          reinterpret_cast<LPARAM>(characters.data()));
    text.assign(characters.data(), static_cast<std::size_t>(length));
    return box;
}

/// Saves through the system's dialog, replacing what exists; returns the text of the error box that
/// follows, if one does.
std::wstring SaveAs(const ViewerProcess& viewer, const std::wstring& path)
{
    ::PostMessageW(viewer.Window(), WM_COMMAND, ViewerProcess::kSaveCommand, 0);
    HWND dialog = nullptr;
    if (!Eventually([&] { return (dialog = DialogOf(viewer.Id())) != nullptr; }))
    {
        return L"no dialog";
    }
    constexpr int kNameField = 0x47C;    // cmb13: a combo box, with an edit field inside
    constexpr int kOldNameField = 0x480; // edt1
    HWND field = ::GetDlgItem(dialog, kNameField);
    field = field ? field : ::GetDlgItem(dialog, kOldNameField);
    ::SendMessageW(field, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(path.c_str()));
    ::PostMessageW(dialog, WM_COMMAND, IDOK, 0);
    for (;;)
    {
        HWND box = nullptr;
        std::wstring text;
        if (!Eventually([&] {
                box = BoxOf(viewer.Id(), dialog, text);
                return box || (DialogOf(viewer.Id()) == nullptr &&
                               viewer.Status(4).ends_with(L"records saved"));
            }))
        {
            return L"neither saved nor failed";
        }
        if (!box)
        {
            return {};
        }
        const bool isQuestion = ::GetDlgItem(box, IDYES) != nullptr; // whether to replace it
        ::PostMessageW(box, WM_COMMAND, isQuestion ? IDYES : IDOK, 0);
        if (!Eventually([&] { return !::IsWindow(box); }))
        {
            return L"the box stays";
        }
        if (!isQuestion)
        {
            return text;
        }
    }
}
} // namespace

TEST_CASE("Viewer: it shows what the component traces, and who does", "[tools]")
{
    ViewerProcess viewer;
    viewer.AwaitWindow();
    {
        const ComponentLibrary library;
        auto collection = library.Create<IEnumVariantCol>(CLSID_CEnumVariantCol);
        REQUIRE(collection->Remove(OfType(kImpossibleType)) == DISP_E_BADVARTYPE);
        collection.Reset();
        REQUIRE(viewer.AwaitRows(7));
    }
    CHECK(viewer.Cell(4, 4) == L"CEnumVariantCol::Remove - enter");
    CHECK(viewer.Cell(5, 4).starts_with(L"  failed: 0x80020008 "));
    CHECK(viewer.Cell(5, 2) == L"1");
    CHECK(viewer.Cell(6, 4) == L"CEnumVariantCol::Remove - return = -2147352568");
    CHECK(viewer.Cell(6, 2) == L"4");
    CHECK(viewer.Cell(0, 1) ==
          L"tools_trace_viewer_test.exe (" + std::to_wstring(::GetCurrentProcessId()) + L")");
    CHECK(viewer.Cell(0, 3).empty());
    const std::wstring time = viewer.Cell(0, 0);
    CHECK(time.size() == std::wstring_view(L"09:05:03.000042").size());
    CHECK(viewer.Status(0) == L"7 records");
    CHECK(viewer.Status(1) == L"7 shown");
    CHECK(viewer.Status(2) == L"none dropped");
    CHECK(viewer.Status(3) == L"0 malformed");
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
    SendBytes(viewer.Receiver(), std::string(100'000, 'x'));
    SendBytes(viewer.Receiver(), bytes, 1); // another kind of data
    SendBytes(viewer.Receiver(), bytes);

    REQUIRE(viewer.AwaitRows(8));
    const Texts texts = viewer.Texts();
    CHECK(texts[0] == L"malformed record (too short), 0 bytes");
    CHECK(texts[1].starts_with(L"malformed record (too short), 81 bytes: 56 00 00 00 32 31 54 55"));
    CHECK(texts[2].starts_with(L"malformed record (wrong magic), 86 bytes"));
    CHECK(texts[3].starts_with(L"malformed record (wrong total), 86 bytes"));
    CHECK(texts[4].starts_with(L"malformed record (text without end), 86 bytes"));
    CHECK(texts[5].starts_with(L"malformed record (wrong total), 100000 bytes"));
    CHECK(texts[6].starts_with(L"malformed record (wrong magic), 86 bytes"));
    CHECK(texts[7] == L"text");
    CHECK(viewer.Cell(0, 2) == L"!");
    CHECK(viewer.Status(3) == L"7 malformed");
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
    CHECK(viewer.Status(0) == L"3 records");
    CHECK(viewer.Status(1) == L"2 shown");
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

TEST_CASE("Viewer: a pause holds the list and keeps the records", "[tools]")
{
    ViewerProcess viewer;
    viewer.AwaitWindow();
    SendRecord(viewer.Receiver(), "before");
    REQUIRE(viewer.AwaitRows(1));
    Press(viewer.Window(), {VK_CONTROL, 'P'});
    REQUIRE(Eventually([&] { return viewer.Status(1) == L"1 shown, paused"; }));
    SendRecord(viewer.Receiver(), "meanwhile");
    REQUIRE(Eventually([&] { return viewer.Status(0) == L"2 records"; }));
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
    CHECK(viewer.Status(0) == L"0 records");
    CHECK(viewer.Status(3) == L"0 malformed");
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

    viewer.Type(ViewerProcess::kFilter, L"enter");
    REQUIRE(viewer.AwaitRows(2));
    REQUIRE(Eventually([&] { return focused() == 0; })); // the record keeps the focus
    Press(viewer.Window(), {VK_RETURN});
    CHECK(Eventually([&] { return viewer.Status(4).starts_with(L"the other line is not shown"); }));
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
    for (int i = 0; i < 500; ++i)
    {
        SendRecord(viewer.Receiver(), "text");
    }
    REQUIRE(viewer.AwaitRows(500));
    REQUIRE(Eventually([&] { return top() > 400; }));
    Press(viewer.Window(), {VK_HOME});
    REQUIRE(Eventually([&] { return top() == 0; }));
    SendRecord(viewer.Receiver(), "text");
    REQUIRE(viewer.AwaitRows(501));
    CHECK(top() == 0);
    Press(viewer.Window(), {VK_CONTROL, 'E'});
    CHECK(Eventually([&] { return top() > 400; }));
}

TEST_CASE("Viewer: it saves what it shows, as text or CSV", "[tools]")
{
    const TempFolder folder(L"viewer");
    ViewerProcess viewer;
    viewer.AwaitWindow();
    SendRecord(viewer.Receiver(), "  first, with a comma", 3);
    SendRecord(viewer.Receiver(), "hidden", 1);
    REQUIRE(viewer.AwaitRows(2));
    viewer.Type(ViewerProcess::kFilter, L"first");
    REQUIRE(viewer.AwaitRows(1));

    CHECK(SaveAs(viewer, folder.File(L"trace.txt")).empty());
    CHECK(viewer.Status(4) == L"1 records saved");
    CHECK_THAT(ReadFile(folder.File(L"trace.txt")),
               Catch::EndsWith("  3  ?    first, with a comma\r\n"));

    viewer.Type(ViewerProcess::kFilter, L"");
    REQUIRE(viewer.AwaitRows(2));
    CHECK(SaveAs(viewer, folder.File(L"trace.csv")).empty());
    const std::string csv = ReadFile(folder.File(L"trace.csv"));
    CHECK_THAT(csv, Catch::StartsWith("\xEF\xBB\xBFtime,process,level,source,text\r\n"));
    CHECK_THAT(csv, Catch::Contains(",?,3,,\"  first, with a comma\"\r\n"));
    CHECK_THAT(csv, Catch::EndsWith(",?,1,,hidden\r\n"));
}

TEST_CASE("Viewer: a save that fails says why and leaves what was there", "[tools]")
{
    const TempFolder folder(L"viewer");
    ViewerProcess viewer;
    viewer.AwaitWindow();
    SendRecord(viewer.Receiver(), "text");
    REQUIRE(viewer.AwaitRows(1));

    folder.Write(L"kept.txt", "what was there");
    {
        // Another program has the file open and shares it with nobody.
        const velt::UniqueFile open(::CreateFileW(folder.File(L"kept.txt").c_str(), GENERIC_READ, 0,
                                                  nullptr, OPEN_EXISTING, 0, nullptr));
        REQUIRE(open);
        CHECK(SaveAs(viewer, folder.File(L"kept.txt")).find(L"0x00000020") !=
              std::wstring::npos); // ERROR_SHARING_VIOLATION
    }
    CHECK(ReadFile(folder.File(L"kept.txt")) == "what was there");
    CHECK(viewer.Close() == 0);
}

TEST_CASE("Viewer: a second one says that one is running", "[tools]")
{
    ViewerProcess first;
    first.AwaitWindow();
    {
        ViewerProcess second;
        HWND box = nullptr;
        REQUIRE(Eventually([&] { return (box = DialogOf(second.Id())) != nullptr; }));
        ::PostMessageW(box, WM_COMMAND, IDOK, 0);
        CHECK(second.AwaitExit() == 1);
        CHECK(second.Errors() == "velt-trace: A trace viewer is running already.\r\n");
    }
    ViewerProcess third(L"--console");
    CHECK(third.AwaitExit() == 1);
    CHECK(third.Errors() == "velt-trace: A trace viewer is running already.\r\n");
    CHECK(third.Output().empty());
    CHECK(first.Close() == 0);
}
