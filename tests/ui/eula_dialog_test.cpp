#include "tests/support/built_file.h"
#include "tests/support/temp_folder.h"
#include "tests/ui/eula_files.h"
#include "tests/ui/eula_session.h"
#include "ui/resources/resource_ids.h"

#include <richedit.h>

#include <catch.hpp>

#include <string>
#include <vector>

using namespace velt::test;

namespace
{
constexpr wchar_t kTitle[] = L"End User License Agreement";
constexpr wchar_t kDecline[] = L"I &do not accept the terms in the license agreement";
constexpr wchar_t kAccept[] = L"I &accept the terms in the license agreement";

/// A dialog with a small agreement.
struct Shown
{
    explicit Shown(std::string_view texts = {})
        : session(library,
                  (folder.Write(L"agreement.rtf", kSmallAgreement), folder.File(L"agreement.rtf")),
                  texts.empty() ? std::wstring()
                                : (folder.Write(L"texts.xml", texts), folder.File(L"texts.xml")))
    {
    }

    const TempFolder folder;
    const ComponentLibrary library;
    EulaSession session;
};

EulaAnswer Answer(const std::wstring& agreement)
{
    const ComponentLibrary library;
    return EulaSession(library, agreement).Join();
}

void CheckIsEnglish(EulaSession& session)
{
    CHECK(session.Text(VELT_EULA_TITLE) == kTitle);
    CHECK(session.Text(VELT_EULA_DECLINE) == kDecline);
    CHECK(session.Text(VELT_EULA_ACCEPT) == kAccept);
    CHECK(session.Text(VELT_EULA_OK) == L"OK");
    CHECK(TextOfWindow(session.Dialog()) == kTitle);
}

/// The view's text; its class answers for the usual question in the system's code page only.
std::wstring UnicodeText(HWND view)
{
    std::wstring text(100'000, L'\0');
    GETTEXTEX want{};
    want.cb = static_cast<DWORD>(text.size() * sizeof(wchar_t));
    want.codepage = 1200; // UTF-16
    const LRESULT length = ::SendMessageW(view, EM_GETTEXTEX, reinterpret_cast<WPARAM>(&want),
                                          reinterpret_cast<LPARAM>(text.data()));
    text.resize(static_cast<std::size_t>(length));
    return text;
}

std::wstring Folded(std::wstring text)
{
    ::CharLowerBuffW(text.data(), static_cast<DWORD>(text.size()));
    return text;
}

DWORD StyleOf(HWND window)
{
    return static_cast<DWORD>(::GetWindowLongW(window, GWL_STYLE));
}
} // namespace

TEST_CASE("CEulaDialog: without a texts file it shows the template's English texts", "[ui]")
{
    Shown shown;
    CHECK(shown.session.IsOpen() == (shown.session.Dialog() != nullptr));
    CheckIsEnglish(shown.session);
    CHECK(shown.session.Text(VELT_EULA_VIEW).find(kSmallAgreementText) != std::wstring::npos);
    CHECK(shown.session.IsChecked(VELT_EULA_DECLINE));
    CHECK_FALSE(shown.session.IsChecked(VELT_EULA_ACCEPT));
    CHECK(WaitUntil([&] { return shown.session.FocusedId() == VELT_EULA_DECLINE; }));
}

TEST_CASE("CEulaDialog: the controls are where the template has them, in its tab order", "[ui]")
{
    Shown shown;
    const HWND dialog = shown.session.Dialog();
    const struct
    {
        int id;
        const wchar_t* type;
        DWORD style; // that must be there
        RECT units;  // left, top, width, height
    } rows[] = {
        {VELT_EULA_DECLINE,
         L"Button",
         WS_VISIBLE | WS_GROUP | WS_TABSTOP | BS_AUTORADIOBUTTON,
         {16, 204, 383, 10}},
        {VELT_EULA_ACCEPT, L"Button", WS_VISIBLE | BS_AUTORADIOBUTTON, {16, 219, 381, 10}},
        {VELT_EULA_VIEW,
         L"RICHEDIT",
         WS_VISIBLE | WS_TABSTOP | ES_MULTILINE | ES_AUTOVSCROLL | ES_READONLY,
         {16, 26, 378, 171}},
        {VELT_EULA_OK, L"Button", WS_VISIBLE | WS_TABSTOP | BS_OWNERDRAW, {180, 231, 50, 17}},
    };
    for (const auto& row : rows)
    {
        CAPTURE(row.id);
        const HWND item = shown.session.Item(row.id);
        REQUIRE(item);
        wchar_t type[32] = {};
        ::GetClassNameW(item, type, 32);
        CHECK(::lstrcmpiW(type, row.type) == 0);
        CHECK((StyleOf(item) & row.style) == row.style);
        RECT expected = row.units; // each of the four is rounded for itself
        REQUIRE(::MapDialogRect(dialog, &expected));
        const RECT place = PlaceInParent(item);
        CHECK(place.left == expected.left);
        CHECK(place.top == expected.top);
        CHECK(place.right - place.left == expected.right);
        CHECK(place.bottom - place.top == expected.bottom);
    }
    RECT size{0, 0, 411, 259};
    REQUIRE(::MapDialogRect(dialog, &size));
    RECT client{};
    ::GetClientRect(dialog, &client);
    CHECK(client.right == size.right);
    CHECK(client.bottom == size.bottom);
    CHECK((StyleOf(dialog) & WS_CAPTION) == 0);
    CHECK((StyleOf(dialog) & WS_POPUP) != 0);
    // The style of a border may have become an edge of the extended style.
    const HWND view = shown.session.Item(VELT_EULA_VIEW);
    CHECK(((StyleOf(view) & WS_BORDER) != 0 ||
           (::GetWindowLongW(view, GWL_EXSTYLE) & WS_EX_CLIENTEDGE) != 0));

    HWND item = shown.session.Item(VELT_EULA_DECLINE);
    for (const int next : {VELT_EULA_ACCEPT, VELT_EULA_VIEW, VELT_EULA_OK, VELT_EULA_DECLINE})
    {
        item = ::GetNextDlgTabItem(dialog, item, FALSE);
        CHECK(::GetDlgCtrlID(item) == next);
    }
}

TEST_CASE("CEulaDialog: it stands in the middle of the screen with its title on the band", "[ui]")
{
    Shown shown;
    RECT place{};
    ::GetWindowRect(shown.session.Dialog(), &place);
    CHECK(place.left == (::GetSystemMetrics(SM_CXSCREEN) - (place.right - place.left)) / 2);
    CHECK(place.top == (::GetSystemMetrics(SM_CYSCREEN) - (place.bottom - place.top)) / 2);

    const HWND title = shown.session.Item(VELT_EULA_TITLE);
    CHECK((StyleOf(title) & WS_VISIBLE) == 0);
    const HDC context = ::GetDC(title);
    const int dpi = ::GetDeviceCaps(context, LOGPIXELSX);
    ::ReleaseDC(title, context);
    const RECT at = PlaceInParent(title);
    RECT size{0, 0, 368, 13};
    ::MapDialogRect(shown.session.Dialog(), &size);
    CHECK(at.left == dpi * 20 / 96);
    CHECK(at.top == 12);
    CHECK(at.right - at.left == size.right); // its size is the template's
    CHECK(at.bottom - at.top == size.bottom);
}

TEST_CASE("CEulaDialog: a texts file replaces the four texts and not the window's", "[ui]")
{
    Shown shown("<T><RECORD><K>enu_user_license_agreement</K><V>Lizenz</V></RECORD>"
                "<RECORD><K>i_do_not_accept</K><V>&amp;Nein</V></RECORD>"
                "<RECORD><K>i_accept</K><V>first</V></RECORD>"
                "<RECORD><K>other</K><V>ignored</V></RECORD><OTHER/>"
                "<RECORD><K>i_accept</K><X/><V>&amp;Ja \xE6\x97\xA5\xE6\x9C\xAC</V></RECORD>"
                "<RECORD>btn_ok</RECORD></T>");
    shown.session.Dialog();
    CHECK(shown.session.Text(VELT_EULA_TITLE) == L"Lizenz");
    CHECK(shown.session.Text(VELT_EULA_DECLINE) == L"&Nein");
    CHECK(shown.session.Text(VELT_EULA_ACCEPT) == L"&Ja \u65E5\u672C");
    CHECK(shown.session.Text(VELT_EULA_OK) == L"btn_ok"); // a single child is key and value
    CHECK(TextOfWindow(shown.session.Dialog()) == kTitle);
}

TEST_CASE("CEulaDialog: texts that cannot be read leave the English ones", "[ui]")
{
    const std::string_view texts =
        GENERATE("<T><RECORD><K>btn_ok</K><V>x</V></RECORD>", "not XML", "<T/>");
    Shown shown(texts);
    shown.session.Dialog();
    CheckIsEnglish(shown.session);
    shown.session.PressOk();
    CHECK(shown.session.Join().accepted == VARIANT_FALSE);
}

TEST_CASE("CEulaDialog: texts of 10,000 characters are shown, whatever fits", "[ui]")
{
    const std::string text(10'000, 'W');
    std::string xml = "<T>";
    for (const char* key : {"enu_user_license_agreement", "i_do_not_accept", "i_accept", "btn_ok"})
    {
        xml += std::string("<RECORD><K>") + key + "</K><V>" + text + "</V></RECORD>";
    }
    Shown shown(xml + "</T>");
    shown.session.Dialog();
    for (const int id : {VELT_EULA_TITLE, VELT_EULA_DECLINE, VELT_EULA_ACCEPT, VELT_EULA_OK})
    {
        CHECK(shown.session.Text(id) == std::wstring(10'000, L'W'));
    }
    ::RedrawWindow(shown.session.Dialog(), nullptr, nullptr,
                   RDW_INVALIDATE | RDW_ALLCHILDREN | RDW_UPDATENOW);
    CHECK(shown.session.IsOpen());
    shown.session.PressOk();
    CHECK(shown.session.Join().hr == S_OK);
}

TEST_CASE("CEulaDialog: the choice at the moment of OK is the answer", "[ui]")
{
    using Ids = std::vector<int>;
    const auto [clicks, accepted] = GENERATE(table<Ids, VARIANT_BOOL>({
        {Ids(), VARIANT_FALSE},
        {Ids{VELT_EULA_ACCEPT}, VARIANT_TRUE},
        {Ids{VELT_EULA_DECLINE}, VARIANT_FALSE},
        {Ids{VELT_EULA_ACCEPT, VELT_EULA_DECLINE}, VARIANT_FALSE},
        {Ids{VELT_EULA_ACCEPT, VELT_EULA_DECLINE, VELT_EULA_ACCEPT}, VARIANT_TRUE},
    }));
    Shown shown;
    shown.session.Activate();
    for (const int id : clicks)
    {
        shown.session.Choose(id);
    }
    shown.session.ClickOk();
    const EulaAnswer answer = shown.session.Join();
    CHECK(answer.hr == S_OK);
    CHECK(answer.accepted == accepted);
}

TEST_CASE("CEulaDialog: only OK's own command ends it", "[ui]")
{
    Shown shown;
    const HWND dialog = shown.session.Dialog();
    ::SendMessageW(dialog, WM_COMMAND, IDCANCEL, 0);
    ::SendMessageW(dialog, WM_COMMAND, MAKEWPARAM(IDOK, BN_SETFOCUS), 0);
    ::SendMessageW(dialog, WM_COMMAND, MAKEWPARAM(VELT_EULA_ACCEPT, BN_CLICKED), 0);
    ::SendMessageW(dialog, WM_CLOSE, 0, 0);
    ::SendMessageW(dialog, WM_SYSCOMMAND, SC_CLOSE, 0);
    CHECK(shown.session.IsOpen());
    ::SendMessageW(dialog, WM_COMMAND, IDOK, 0);
    CHECK(shown.session.Join().accepted == VARIANT_FALSE);
}

TEST_CASE("CEulaDialog: an agreement that cannot be opened ends it at once, not accepted", "[ui]")
{
    const TempFolder folder;
    folder.Write(L"locked.rtf", kSmallAgreement);
    folder.Write(L"read.rtf", kSmallAgreement);
    const auto open = [&](const wchar_t* name, DWORD share) {
        return ::CreateFileW(folder.File(name).c_str(), GENERIC_READ, share, nullptr, OPEN_EXISTING,
                             0, nullptr);
    };
    const HANDLE locked = open(L"locked.rtf", 0);
    // Also one that others may read: the dialog wants it for itself.
    const HANDLE read = open(L"read.rtf", FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);
    REQUIRE(locked != INVALID_HANDLE_VALUE);
    REQUIRE(read != INVALID_HANDLE_VALUE);
    for (const std::wstring& path :
         {std::wstring(), folder.File(L"missing.rtf"), folder.Path(), folder.File(L"locked.rtf"),
          folder.File(L"read.rtf"), std::wstring(L"?:\\<>|"), std::wstring(40'000, L'x')})
    {
        CAPTURE(path.size());
        const EulaAnswer answer = Answer(path);
        CHECK(answer.hr == S_OK);
        CHECK(answer.accepted == VARIANT_FALSE);
    }
    ::CloseHandle(locked);
    ::CloseHandle(read);
}

TEST_CASE("CEulaDialog: the agreement is closed once it is shown", "[ui]")
{
    Shown shown;
    shown.session.Dialog();
    CHECK(::DeleteFileW(shown.folder.File(L"agreement.rtf").c_str()));
}

TEST_CASE("CEulaDialog: whatever the agreement is, the dialog works", "[ui]")
{
    const std::string rtf(kSmallAgreement);
    const auto [what, content] = GENERATE_COPY(table<std::string, std::string>({
        {"empty", ""},
        {"plain text", "This is no RTF at all.\r\nSecond line.\r\n"},
        {"cut", rtf.substr(0, rtf.size() / 2)},
        {"cut in a control word", rtf.substr(0, 40)},
        {"a mark of a text file", "\xEF\xBB\xBF" + rtf},
        {"zeros", std::string(10'000, '\0')},
        {"the sample, once more", rtf + rtf},
    }));
    CAPTURE(what);
    const TempFolder folder;
    folder.Write(L"agreement.rtf", content);
    const ComponentLibrary library;
    EulaSession session(library, folder.File(L"agreement.rtf"));
    session.Activate();
    session.Choose(VELT_EULA_ACCEPT);
    session.ClickOk();
    const EulaAnswer answer = session.Join();
    CHECK(answer.hr == S_OK);
    CHECK(answer.accepted == VARIANT_TRUE);
}

TEST_CASE("CEulaDialog: the sample agreement is shown with its formats", "[ui]")
{
    const ComponentLibrary library;
    EulaSession session(library, BuiltFile(L"samples\\eula\\agreement.rtf"),
                        BuiltFile(L"samples\\eula\\texts\\ENU.xml"));
    session.Dialog();
    const std::wstring text = UnicodeText(session.Item(VELT_EULA_VIEW));
    CHECK(text.find(L"Velt Online Services") != std::wstring::npos);
    CHECK(text.find(L"\u65E5\u672C\u8A9E:") != std::wstring::npos);
    CHECK(text.find(L"\u0420\u0443\u0441\u0441\u043A\u0438\u0439") != std::wstring::npos);
    CHECK(text.find(L"rtf1") == std::wstring::npos);
    // The dialog's own texts and the agreement are in one English.
    for (const int id : {VELT_EULA_TITLE, VELT_EULA_DECLINE, VELT_EULA_ACCEPT})
    {
        CHECK(Folded(session.Text(id)).find(L"license agreement") != std::wstring::npos);
    }
    CHECK(Folded(text).find(L"license") != std::wstring::npos);
    CHECK(Folded(text).find(L"licence") == std::wstring::npos);
    session.PressOk();
    CHECK(session.Join().accepted == VARIANT_FALSE);
}

TEST_CASE("CEulaDialog: the samples of German and Japanese are whole, and in their language",
          "[ui]")
{
    const auto [language, ofAgreement,
                ofLabel] = GENERATE(table<const wchar_t*, const wchar_t*, const wchar_t*>({
        {L"DEU", L"k\u00F6nnen ihn jederzeit beenden", L"Lizenzvertrag"},
        {L"JPN",
         L"\u3044\u3064\u3067\u3082\u672C\u5951\u7D04\u3092\u7D42\u4E86\u3067\u304D\u307E\u3059",
         L"\u540C\u610F\u3057\u307E\u305B\u3093"},
    }));
    const ComponentLibrary library;
    const std::wstring samples = BuiltFile(L"samples\\eula");
    EulaSession session(library, samples + L"\\agreement_" + language + L".rtf",
                        samples + L"\\texts\\" + language + L".xml");
    session.Dialog();
    const std::wstring text = UnicodeText(session.Item(VELT_EULA_VIEW));
    CHECK(text.find(ofAgreement) != std::wstring::npos);
    CHECK(text.find(L'?') == std::wstring::npos); // what stands where a character is not understood
    CHECK(text.find(L"licen") == std::wstring::npos);
    CHECK(session.Text(VELT_EULA_DECLINE).find(ofLabel) != std::wstring::npos);
    session.PressOk();
    CHECK(session.Join().accepted == VARIANT_FALSE);
}

TEST_CASE("CEulaDialog: a thread without COM sees the English texts", "[ui]")
{
    const TempFolder folder;
    folder.Write(L"agreement.rtf", kSmallAgreement);
    folder.Write(L"texts.xml", "<T><RECORD><K>btn_ok</K><V>x</V></RECORD></T>");
    const ComponentLibrary library;
    EulaSession session(library, folder.File(L"agreement.rtf"), folder.File(L"texts.xml"), false);
    session.Dialog();
    // Under Wine the system's input methods initialise COM on a thread that has the keyboard.
    if (session.Text(VELT_EULA_OK) == L"x")
    {
        WARN("the system has initialised COM on the dialog's thread");
        ::SetDlgItemTextW(session.Dialog(), VELT_EULA_OK, L"OK");
    }
    CheckIsEnglish(session);
    session.PressOk();
    const EulaAnswer answer = session.Join();
    CHECK(answer.hr == S_OK);
    CHECK(answer.accepted == VARIANT_FALSE);
}

TEST_CASE("CEulaDialog: the thread's active window owns it, and none does without one", "[ui]")
{
    const bool hasWindow = GENERATE(true, false);
    const TempFolder folder;
    folder.Write(L"agreement.rtf", kSmallAgreement);
    const ComponentLibrary library;
    HWND host = nullptr;
    bool enabledAfter = false;
    EulaSession session(
        library, folder.File(L"agreement.rtf"), {}, true,
        [&] {
            if (hasWindow)
            {
                host = ::CreateWindowExW(0, L"STATIC", L"host", WS_POPUP | WS_VISIBLE, 0, 0, 300,
                                         200, nullptr, nullptr, nullptr, nullptr);
                ::SetActiveWindow(host);
            }
        },
        [&] {
            enabledAfter = ::IsWindowEnabled(host) != FALSE;
            ::DestroyWindow(host);
        });
    const HWND dialog = session.Dialog();
    CHECK(::GetWindow(dialog, GW_OWNER) == host);
    CHECK((host != nullptr) == hasWindow);
    if (hasWindow)
    {
        CHECK_FALSE(::IsWindowEnabled(host));
    }
    session.PressOk();
    CHECK(session.Join().accepted == VARIANT_FALSE);
    CHECK(enabledAfter == hasWindow);
}

TEST_CASE("CEulaDialog: two dialogs on two threads at once have answers of their own", "[ui]")
{
    const TempFolder folder;
    folder.Write(L"one.rtf", kSmallAgreement);
    folder.Write(L"two.rtf", kSmallAgreement);
    folder.Write(L"texts.xml", "<T><RECORD><K>btn_ok</K><V>zwei</V></RECORD></T>");
    const ComponentLibrary library;
    EulaSession one(library, folder.File(L"one.rtf"));
    EulaSession two(library, folder.File(L"two.rtf"), folder.File(L"texts.xml"));
    REQUIRE(one.Dialog() != two.Dialog());
    CHECK(one.Text(VELT_EULA_OK) == L"OK");
    CHECK(two.Text(VELT_EULA_OK) == L"zwei");
    const UINT keepSize = SWP_NOSIZE | SWP_NOZORDER;
    ::SetWindowPos(one.Dialog(), nullptr, 0, 0, 0, 0, keepSize); // they lay on each other
    ::SetWindowPos(two.Dialog(), nullptr, 400, 500, 0, 0, keepSize);
    two.Activate();
    two.Choose(VELT_EULA_ACCEPT);
    CHECK(one.IsChecked(VELT_EULA_DECLINE));
    one.PressOk();
    CHECK(one.Join().accepted == VARIANT_FALSE);
    CHECK(two.IsOpen());
    two.PressOk();
    CHECK(two.Join().accepted == VARIANT_TRUE);
}

TEST_CASE("CEulaDialog: it is dragged by its surface, and works where it is then", "[ui]")
{
    Shown shown;
    shown.session.Activate();
    const HWND dialog = shown.session.Dialog();
    RECT before{};
    ::GetWindowRect(dialog, &before);
    shown.session.Drag({300, 8}, 40, 24);
    RECT after{};
    ::GetWindowRect(dialog, &after);
    CHECK(after.left > before.left);
    CHECK(after.right - after.left == before.right - before.left);
    CHECK(after.bottom - after.top == before.bottom - before.top);
    shown.session.Choose(VELT_EULA_ACCEPT);
    shown.session.ClickOk();
    const EulaAnswer answer = shown.session.Join();
    CHECK(answer.hr == S_OK);
    CHECK(answer.accepted == VARIANT_TRUE);
}
