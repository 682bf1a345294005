#include "foundation/unique_handle.h"
#include "tests/facts/fact.h"
#include "tests/facts/helpers.h"
#include "tests/support/com_apartment.h"
#include "tests/support/gui_usage.h"

#include <windows.h>

#include <commctrl.h>
#include <objbase.h>
#include <oleacc.h>
#include <richedit.h>
#include <sddl.h>
#include <wrl/client.h>

#include <algorithm>
#include <functional>
#include <vector>

namespace velt::facts
{
namespace
{
constexpr wchar_t kReceiver[] = L"VeltFactsReceiver";
constexpr DWORD kLimitMs = 20000;

/// A window that a question shows, and its children.
class Window
{
public:
    explicit Window(const wchar_t* kind = L"STATIC", DWORD style = WS_OVERLAPPEDWINDOW | WS_VISIBLE)
        : m_window(::CreateWindowExW(WS_EX_CONTROLPARENT, kind, L"VeltFacts", style, 10, 10, 400,
                                     300, nullptr, nullptr, nullptr, nullptr))
    {
        Need(m_window != nullptr, "no window");
    }

    Window(const Window&) = delete;
    Window& operator=(const Window&) = delete;

    ~Window()
    {
        ::DestroyWindow(m_window);
    }

    HWND Get() const noexcept
    {
        return m_window;
    }

    HWND Add(const wchar_t* kind, DWORD style, const wchar_t* text = L"") const
    {
        const HWND child = ::CreateWindowExW(0, kind, text, WS_CHILD | WS_VISIBLE | style, 10, 10,
                                             200, 100, m_window, nullptr, nullptr, nullptr);
        Need(child != nullptr, "no control");
        return child;
    }

private:
    HWND m_window;
};

/// An empty dialog whose procedure runs `begin` at its start.
INT_PTR CALLBACK RunBegin(HWND dialog, UINT message, WPARAM, LPARAM parameter) noexcept
{
    if (message == WM_INITDIALOG)
    {
        (*reinterpret_cast<std::function<void(HWND)>*>(parameter))(dialog);
    }
    else if (message == WM_CLOSE)
    {
        ::EndDialog(dialog, 1);
    }
    return FALSE;
}

INT_PTR ShowDialog(std::function<void(HWND)> begin)
{
    struct
    {
        DLGTEMPLATE head;
        WORD menu, kind, title;
    } dialog{};
    dialog.head.style = WS_POPUP | WS_VISIBLE | DS_MODALFRAME;
    dialog.head.cx = 100;
    dialog.head.cy = 60;
    return ::DialogBoxIndirectParamW(nullptr, &dialog.head, nullptr, &RunBegin,
                                     reinterpret_cast<LPARAM>(&begin));
}

std::string ControlHost()
{
    const HMODULE library = ::LoadLibraryW(L"ATL.DLL");
    if (!library)
    {
        throw NotAsked("ATL.DLL is not there");
    }
    using Function = BOOL(WINAPI*)();
    const auto initialise = reinterpret_cast<Function>(
        reinterpret_cast<void*>(::GetProcAddress(library, "AtlAxWinInit")));
    Need(initialise && initialise(), "no control host");
    return Choose(initialise() != FALSE, "TRUE", "FALSE");
}

/// A dialog with a push button, which has the focus, and two automatic radio buttons after it.
std::string FocusOnRadioButton(bool byKeyboard)
{
    std::string answer;
    ShowDialog([&](HWND dialog) {
        const auto add = [&](DWORD style) {
            return ::CreateWindowExW(0, L"BUTTON", L"x", WS_CHILD | WS_VISIBLE | style, 0, 0, 50,
                                     20, dialog, nullptr, nullptr, nullptr);
        };
        const HWND push = add(BS_PUSHBUTTON | WS_TABSTOP | WS_GROUP);
        const HWND first = add(BS_AUTORADIOBUTTON | WS_TABSTOP | WS_GROUP);
        add(BS_AUTORADIOBUTTON);
        ::SetFocus(push);
        if (byKeyboard)
        {
            MSG tab{};
            tab.hwnd = push;
            tab.message = WM_KEYDOWN;
            tab.wParam = VK_TAB;
            tab.lParam = 1;
            ::IsDialogMessageW(dialog, &tab);
        }
        else
        {
            ::SetFocus(first);
        }
        answer = ::GetFocus() != first
                     ? "no focus"
                     : Choose(::SendMessageW(first, BM_GETCHECK, 0, 0) == BST_CHECKED, "checks it",
                              "does not check it");
        ::EndDialog(dialog, 1);
    });
    return answer;
}

std::string TabToRadioButton()
{
    return FocusOnRadioButton(true);
}

std::string SetFocusToRadioButton()
{
    return FocusOnRadioButton(false);
}

std::string QuitInDialog()
{
    const INT_PTR result = ShowDialog([](HWND) { ::PostQuitMessage(77); });
    MSG message{};
    const bool again = ::PeekMessageW(&message, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE) &&
                       message.message == WM_QUIT && message.wParam == 77;
    return "ends with " + std::to_string(result) + ", " +
           (again ? "the message is there again" : "the message is gone");
}

struct RtfSource
{
    std::string text;
    std::size_t position = 0;
};

DWORD CALLBACK ReadRtf(DWORD_PTR cookie, BYTE* buffer, LONG size, LONG* done) noexcept
{
    auto& source = *reinterpret_cast<RtfSource*>(cookie);
    const auto count =
        std::min(static_cast<std::size_t>(size), source.text.size() - source.position);
    std::copy_n(source.text.data() + source.position, count, buffer);
    source.position += count;
    *done = static_cast<LONG>(count);
    return 0;
}

std::string StreamedRtf()
{
    Need(::LoadLibraryW(L"RICHED32.DLL") != nullptr, "no rich edit control");
    const Window window;
    const HWND edit = window.Add(L"RICHEDIT", ES_MULTILINE | WS_VSCROLL);
    RtfSource source{"{\\rtf1\\ansi "};
    for (int i = 0; i < 2000; ++i)
    {
        source.text += std::string(49, 'x') + "\\par ";
    }
    source.text += "}";
    EDITSTREAM stream{reinterpret_cast<DWORD_PTR>(&source), 0, &ReadRtf};
    ::SendMessageW(edit, EM_STREAMIN, SF_RTF, reinterpret_cast<LPARAM>(&stream));
    const auto length = ::SendMessageW(edit, WM_GETTEXTLENGTH, 0, 0);
    // The control may count a final line end.
    return Choose(length >= 100'000, "all of it",
                  length >= 32'000 && length <= 66'000 ? "cut at the limit" : "cut elsewhere");
}

std::string RichEditName()
{
    const test::ComApartment apartment;
    Need(::LoadLibraryW(L"RICHED32.DLL") != nullptr, "no rich edit control");
    const Window window;
    window.Add(L"STATIC", SS_LEFT, L"label");
    const HWND edit = window.Add(L"RICHEDIT", ES_MULTILINE | WS_TABSTOP, L"text");
    Microsoft::WRL::ComPtr<IAccessible> object;
    using Function = decltype(&::AccessibleObjectFromWindow);
    const auto fromWindow = reinterpret_cast<Function>(reinterpret_cast<void*>(
        ::GetProcAddress(::LoadLibraryW(L"OLEACC.DLL"), "AccessibleObjectFromWindow")));
    Need(fromWindow && SUCCEEDED(fromWindow(edit, static_cast<DWORD>(OBJID_CLIENT), IID_IAccessible,
                                            reinterpret_cast<void**>(object.GetAddressOf()))),
         "not accessible");
    VARIANT self{};
    self.vt = VT_I4;
    BSTR name = nullptr;
    object->get_accName(self, &name);
    const std::wstring text = name ? name : L"";
    ::SysFreeString(name);
    return text == L"label" ? "the label" : text == L"text" ? "its own text" : "another one";
}

std::string ScrollBarStyle()
{
    Need(::LoadLibraryW(L"RICHED32.DLL") != nullptr, "no rich edit control");
    const Window window;
    const HWND edit = window.Add(L"RICHEDIT", ES_MULTILINE | WS_VSCROLL, L"short");
    ::UpdateWindow(window.Get());
    return Choose((::GetWindowLongPtrW(edit, GWL_STYLE) & WS_VSCROLL) != 0, "kept", "taken off");
}

std::string RegionObjects()
{
    return Choose(velt::test::GdiObjectsKeptOfShapedWindow() == 0, "go with the window", "stay");
}

std::string ComOfDialogThread()
{
    ShowDialog([](HWND dialog) {
        ::SetFocus(::CreateWindowExW(0, L"EDIT", L"", WS_CHILD | WS_VISIBLE | WS_TABSTOP, 0, 0, 50,
                                     20, dialog, nullptr, nullptr, nullptr));
        ::PostMessageW(dialog, WM_CLOSE, 0, 0);
    });
    APTTYPE type{};
    APTTYPEQUALIFIER qualifier{};
    return Choose(::CoGetApartmentType(&type, &qualifier) == CO_E_NOTINITIALIZED, "stays without",
                  "has it");
}

LPARAM g_notification = 0;

LRESULT CALLBACK KeepNotification(HWND window, UINT message, WPARAM wParam, LPARAM lParam) noexcept
{
    if (message == WM_NOTIFY && reinterpret_cast<NMHDR*>(lParam)->code == LVN_KEYDOWN)
    {
        g_notification = lParam;
        return 0;
    }
    return ::DefWindowProcW(window, message, wParam, lParam);
}

std::string KeyNotification()
{
    INITCOMMONCONTROLSEX controls{sizeof(controls), ICC_LISTVIEW_CLASSES};
    ::InitCommonControlsEx(&controls);
    const Window window;
    ::SetWindowLongPtrW(window.Get(), GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&KeepNotification));
    const HWND list = window.Add(WC_LISTVIEWW, LVS_REPORT);
    ::SendMessageW(list, WM_KEYDOWN, VK_F5, 1);
    Need(g_notification != 0, "no notification");
    return Choose(g_notification % static_cast<LPARAM>(alignof(NMHDR)) == 0, "aligned",
                  "not aligned");
}

int CALLBACK CountFont(const LOGFONTW*, const TEXTMETRICW*, DWORD, LPARAM count) noexcept
{
    ++*reinterpret_cast<int*>(count);
    return 0;
}

std::string EastAsianFonts()
{
    const HDC screen = ::GetDC(nullptr);
    std::string answer;
    for (const wchar_t* name : {L"MS Gothic", L"SimSun"})
    {
        LOGFONTW font{};
        font.lfCharSet = DEFAULT_CHARSET;
        std::copy_n(name, std::wcslen(name), font.lfFaceName);
        int count = 0;
        ::EnumFontFamiliesExW(screen, &font, &CountFont, reinterpret_cast<LPARAM>(&count), 0);
        answer += (answer.empty() ? "" : ", ");
        answer += count > 0 ? "there" : "missing";
    }
    ::ReleaseDC(nullptr, screen);
    return answer;
}

/// What one character looks like in the dialog's font.
std::vector<DWORD> Picture(HDC context, wchar_t character, DWORD* bits)
{
    RECT area{0, 0, 32, 32};
    ::FillRect(context, &area, static_cast<HBRUSH>(::GetStockObject(WHITE_BRUSH)));
    ::ExtTextOutW(context, 0, 0, ETO_OPAQUE, &area, &character, 1, nullptr);
    ::GdiFlush();
    return {bits, bits + 32 * 32};
}

std::string LabelFonts()
{
    // Of each language that the samples have texts in, what others lack.
    struct Language
    {
        const char* name;
        const wchar_t* characters;
    };
    constexpr Language kLanguages[] = {{"CHS", L"\u6211\u63A5\u53D7"},
                                       {"CHT", L"\u6211\u63A5\u53D7"},
                                       {"DAN", L"\u00E6\u00F8"},
                                       {"DEU", L"\u00E4\u00DF"},
                                       {"ENU", L"Ag"},
                                       {"ESN", L"\u00F1\u00F3"},
                                       {"FIN", L"\u00E4\u00F6"},
                                       {"FRA", L"\u00E9\u00E7"},
                                       {"ITA", L"\u00E0\u00F9"},
                                       {"JPN", L"\u540C\u610F\u307E"},
                                       {"KOR", L"\uB3D9\uC758"},
                                       {"NLD", L"\u00EB\u00EF"},
                                       {"NOR", L"\u00E5\u00F8"},
                                       {"PTB", L"\u00E3\u00E7"},
                                       {"PTG", L"\u00E3\u00E7"},
                                       {"SVE", L"\u00E5\u00F6"}};
    const HDC context = ::CreateCompatibleDC(nullptr);
    BITMAPINFO info{};
    info.bmiHeader = {sizeof(info.bmiHeader), 32, -32, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
    void* bits = nullptr;
    const HBITMAP bitmap = ::CreateDIBSection(context, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
    Need(bitmap != nullptr, "no bitmap");
    ::SelectObject(context, bitmap);
    const HFONT font = ::CreateFontW(-11, 0, 0, 0, FW_NORMAL, FALSE, FALSE, FALSE, DEFAULT_CHARSET,
                                     0, 0, NONANTIALIASED_QUALITY, 0, L"MS Sans Serif");
    ::SelectObject(context, font);
    auto* pixels = static_cast<DWORD*>(bits);
    const auto box = Picture(context, L'\uFFFF', pixels); // which no font has
    std::string missing;
    for (const Language& language : kLanguages)
    {
        for (const wchar_t* c = language.characters; *c; ++c)
        {
            const auto picture = Picture(context, *c, pixels);
            if (picture == box)
            {
                missing += (missing.empty() ? "" : " ");
                missing += language.name;
                break;
            }
        }
    }
    ::DeleteDC(context);
    ::DeleteObject(bitmap);
    ::DeleteObject(font);
    return missing.empty() ? "all shown" : "boxes for " + missing;
}

LRESULT CALLBACK ReceiveProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) noexcept
{
    if (message == WM_COPYDATA)
    {
        const auto* data = reinterpret_cast<const COPYDATASTRUCT*>(lParam);
        return data->cbData == data->dwData ? 7 : 8;
    }
    if (message == WM_CLOSE)
    {
        ::PostQuitMessage(0);
        return 0;
    }
    return ::DefWindowProcW(window, message, wParam, lParam);
}

/// Starts a receiver, of low integrity or as this process is, and sends it so many bytes.
std::string SendTo(bool lowIntegrity, DWORD bytes)
{
    Need(!::FindWindowW(kReceiver, nullptr), "another receiver is there");
    std::wstring command = L"\"" + ThisProgram() + L"\" --receive";
    UniqueKernelObject token;
    UniqueKernelObject low;
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process{};
    BOOL started = FALSE;
    if (lowIntegrity)
    {
        PSID level = nullptr;
        Need(::OpenProcessToken(::GetCurrentProcess(), TOKEN_ALL_ACCESS, token.Put()) &&
                 ::DuplicateTokenEx(token.Get(), TOKEN_ALL_ACCESS, nullptr, SecurityAnonymous,
                                    TokenPrimary, low.Put()) &&
                 ::ConvertStringSidToSidW(L"S-1-16-4096", &level),
             "no token");
        TOKEN_MANDATORY_LABEL label{{level, SE_GROUP_INTEGRITY}};
        const BOOL lowered =
            ::SetTokenInformation(low.Get(), TokenIntegrityLevel, &label,
                                  static_cast<DWORD>(sizeof(label) + ::GetLengthSid(level)));
        ::LocalFree(level);
        if (!lowered)
        {
            return "integrity cannot be lowered";
        }
        started = ::CreateProcessAsUserW(low.Get(), nullptr, command.data(), nullptr, nullptr,
                                         FALSE, 0, nullptr, nullptr, &startup, &process);
    }
    else
    {
        started = ::CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr,
                                   nullptr, &startup, &process);
    }
    Need(started, "the receiver is not started");
    const UniqueKernelObject handle(process.hProcess);
    const UniqueKernelObject thread(process.hThread);
    HWND window = nullptr;
    const ULONGLONG end = ::GetTickCount64() + kLimitMs;
    while (!window && ::GetTickCount64() < end &&
           ::WaitForSingleObject(handle.Get(), 50) == WAIT_TIMEOUT)
    {
        window = ::FindWindowW(kReceiver, nullptr);
    }
    std::vector<BYTE> content(bytes);
    COPYDATASTRUCT data{bytes, bytes, content.data()};
    DWORD_PTR result = 0;
    const LRESULT sent =
        window ? ::SendMessageTimeoutW(window, WM_COPYDATA, 0, reinterpret_cast<LPARAM>(&data),
                                       SMTO_NORMAL, kLimitMs / 2, &result)
               : 0;
    ::TerminateProcess(handle.Get(), 0);
    return !window ? "not found" : Choose(sent && result == 7, "arrives", "does not arrive");
}

std::string SendToLowIntegrity()
{
    return SendTo(true, 1000);
}

std::string SendMuch()
{
    return SendTo(false, 100'000);
}

std::string ToolBarPadding()
{
    const INITCOMMONCONTROLSEX controls{sizeof(controls), ICC_BAR_CLASSES};
    ::InitCommonControlsEx(&controls);
    const Window window;
    const HWND bar = window.Add(TOOLBARCLASSNAMEW, TBSTYLE_FLAT | TBSTYLE_LIST);
    ::SendMessageW(bar, TB_SETPADDING, 0, MAKELPARAM(24, 16));
    const LRESULT padding = ::SendMessageW(bar, TB_GETPADDING, 0, 0);
    return std::to_string(LOWORD(padding)) + " x " + std::to_string(HIWORD(padding));
}

constexpr Fact kFacts[] = {
    {"window.control-host", &ControlHost},
    {"window.tab-to-radio-button", &TabToRadioButton},
    {"window.focus-on-radio-button", &SetFocusToRadioButton},
    {"window.quit-in-dialog", &QuitInDialog},
    {"window.streamed-rtf", &StreamedRtf},
    {"window.rich-edit-name", &RichEditName},
    {"window.scroll-bar-style", &ScrollBarStyle},
    {"window.region-objects", &RegionObjects},
    {"window.com-of-dialog-thread", &ComOfDialogThread},
    {"window.key-notification", &KeyNotification},
    {"window.east-asian-fonts", &EastAsianFonts},
    {"window.label-fonts", &LabelFonts},
    {"window.tool-bar-padding", &ToolBarPadding},
    {"window.data-to-low-integrity", &SendToLowIntegrity},
    {"window.much-data", &SendMuch},
};
} // namespace

int RunReceiver()
{
    WNDCLASSW kind{};
    kind.lpfnWndProc = &ReceiveProcedure;
    kind.lpszClassName = kReceiver;
    ::RegisterClassW(&kind);
    const HWND window = ::CreateWindowExW(0, kReceiver, L"", WS_OVERLAPPED, 0, 0, 10, 10, nullptr,
                                          nullptr, nullptr, nullptr);
    MSG message;
    while (window && ::GetMessageW(&message, nullptr, 0, 0) > 0)
    {
        ::DispatchMessageW(&message);
    }
    return 0;
}

std::span<const Fact> WindowFacts()
{
    return kFacts;
}
} // namespace velt::facts
