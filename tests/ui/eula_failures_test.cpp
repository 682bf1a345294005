#include "tests/support/com_apartment.h"
#include "tests/support/high_contrast_on.h"
#include "tests/support/import_patch.h"
#include "tests/support/temp_folder.h"
#include "tests/support/test_module.h"
#include "tests/support/trace_recorder.h"
#include "tests/ui/eula_files.h"
#include "tests/ui/pixels.h"
#include "tests/ui/stand_in_document.h"
#include "ui/resources/resource_ids.h"
#include "ui/velt_eula_dlg.h"

#include <commctrl.h>
#include <wrl/client.h>

#include <catch.hpp>

#include <algorithm>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

using Microsoft::WRL::ComPtr;
using namespace velt::test;

namespace
{
using LoadLibraryPatch = ImportPatch<"LoadLibraryExW", decltype(::LoadLibraryExW)>;
using LoadBitmapPatch = ImportPatch<"LoadBitmapW", decltype(::LoadBitmapW)>;

/// The class in this program, so that calls of the system can be made to fail.
struct Made
{
    Made()
    {
        REQUIRE(velt::CreateComObject<CVeltEulaDlg>(
                    nullptr, __uuidof(IVeltEulaDlg),
                    reinterpret_cast<void**>(dialog.GetAddressOf())) == S_OK);
        folder.Write(L"agreement.rtf", kSmallAgreement);
    }

    HRESULT Launch(VARIANT_BOOL& accepted) const
    {
        const BSTR path = ::SysAllocString(folder.File(L"agreement.rtf").c_str());
        const BSTR texts = ::SysAllocString(folder.File(L"texts.xml").c_str());
        const HRESULT hr = dialog->LaunchEula(path, texts, &accepted);
        ::SysFreeString(path);
        ::SysFreeString(texts);
        return hr;
    }

    const ComApartment com;
    TestModule module;
    const TempFolder folder;
    ComPtr<IVeltEulaDlg> dialog;
};

/// Calls back with each dialog of this thread once it has been initialised.
class WhenInitialised
{
public:
    explicit WhenInitialised(std::function<void(HWND)> body)
        : m_hook(::SetWindowsHookExW(WH_CALLWNDPROCRET, &WhenInitialised::See, nullptr,
                                     ::GetCurrentThreadId()))
    {
        s_body = std::move(body);
    }

    WhenInitialised(const WhenInitialised&) = delete;
    WhenInitialised& operator=(const WhenInitialised&) = delete;

    ~WhenInitialised()
    {
        ::UnhookWindowsHookEx(m_hook);
        s_body = nullptr;
    }

private:
    static LRESULT CALLBACK See(int code, WPARAM wParam, LPARAM lParam)
    {
        const auto& sent = *reinterpret_cast<const CWPRETSTRUCT*>(lParam);
        if (code == HC_ACTION && sent.message == WM_INITDIALOG)
        {
            s_body(sent.hwnd);
        }
        return ::CallNextHookEx(nullptr, code, wParam, lParam);
    }

    inline static std::function<void(HWND)> s_body;

    HHOOK m_hook;
};

std::wstring TextOf(HWND dialog, int id)
{
    wchar_t text[200] = {};
    ::GetDlgItemTextW(dialog, id, text, 200);
    return text;
}
} // namespace

TEST_CASE("CVeltEulaDlg: without its skin it answers with the error and says nothing more", "[ui]")
{
    // By design a code that is no error number is passed through; one that would say that all is
    // well is E_UNEXPECTED.
    const auto [error, hr] = GENERATE(table<DWORD, HRESULT>({
        {ERROR_RESOURCE_NAME_NOT_FOUND, HRESULT_FROM_WIN32(ERROR_RESOURCE_NAME_NOT_FOUND)},
        {ERROR_OUTOFMEMORY, HRESULT_FROM_WIN32(ERROR_OUTOFMEMORY)},
        {static_cast<DWORD>(E_ACCESSDENIED), E_ACCESSDENIED},
        {ERROR_SUCCESS, E_UNEXPECTED},
    }));
    const Made made;
    const LoadBitmapPatch patch("user32.dll", [left = error](HINSTANCE, LPCWSTR name) -> HBITMAP {
        ::SetLastError(name == MAKEINTRESOURCEW(VELT_SKIN) ? left : ERROR_INVALID_DATA);
        return nullptr;
    });
    VARIANT_BOOL accepted = 0x5A5A;
    CHECK(made.Launch(accepted) == hr);
    CHECK(accepted == 0x5A5A);
    CHECK(patch.Calls() == 1);
}

TEST_CASE("CVeltEulaDlg: without a rich edit library the answer is accepted", "[ui]")
{
    const Made made;
    std::string asked;
    const LoadLibraryPatch patch(
        "kernel32.dll", [&](LPCWSTR name, HANDLE file, DWORD flags) -> HMODULE {
            if (::lstrcmpiW(name, L"RICHED32.DLL") == 0 || ::lstrcmpiW(name, L"RICHED20.DLL") == 0)
            {
                asked += ::lstrcmpiW(name, L"RICHED32.DLL") == 0 ? "32 " : "20 ";
                asked += flags == LOAD_LIBRARY_SEARCH_SYSTEM32 ? "system " : "anywhere ";
                ::SetLastError(ERROR_MOD_NOT_FOUND);
                return nullptr;
            }
            return LoadLibraryPatch::Original(name, file, flags);
        });
    VARIANT_BOOL accepted = 0x5A5A;
    CHECK(made.Launch(accepted) == S_OK);
    CHECK(accepted == VARIANT_TRUE);
    CHECK(asked == "32 system 20 system ");
}

TEST_CASE("CVeltEulaDlg: the library is asked for once and freed with the dialog", "[ui]")
{
    const Made made;
    REQUIRE(::GetModuleHandleW(L"riched32.dll") == nullptr);
    VARIANT_BOOL accepted = 0x5A5A;
    const BSTR missing = ::SysAllocString(made.folder.File(L"missing.rtf").c_str());
    std::string asked;
    {
        const LoadLibraryPatch patch("kernel32.dll",
                                     [&](LPCWSTR name, HANDLE file, DWORD flags) -> HMODULE {
                                         asked += ::lstrcmpiW(name, L"RICHED32.DLL") == 0   ? "32 "
                                                  : ::lstrcmpiW(name, L"RICHED20.DLL") == 0 ? "20 "
                                                                                            : "";
                                         return LoadLibraryPatch::Original(name, file, flags);
                                     });
        CHECK(made.dialog->LaunchEula(missing, nullptr, &accepted) == S_OK);
    }
    ::SysFreeString(missing);
    CHECK(accepted == VARIANT_FALSE);
    CHECK(asked == "32 ");
    CHECK(::GetModuleHandleW(L"riched32.dll") == nullptr);
}

TEST_CASE("CVeltEulaDlg: texts that there is no memory for leave the English ones", "[ui]")
{
    const Made made;
    made.folder.Write(L"texts.xml", "<T><RECORD><K>btn_ok</K><V>done</V></RECORD></T>");
    const bool isShort = GENERATE(true, false); // the texts are shown when there is
    std::wstring ok;
    const WhenInitialised press([&](HWND dialog) {
        ok = TextOf(dialog, VELT_EULA_OK);
        ::PostMessageW(dialog, WM_COMMAND, IDOK, 0);
    });
    VARIANT_BOOL accepted = 0x5A5A;
    using AllocPatch = ImportPatch<"SysAllocString", decltype(::SysAllocString)>;
    const AllocPatch alloc("oleaut32.dll", [&](const OLECHAR* text) {
        // All but the caller's own two.
        return isShort && alloc.Calls() > 2 ? nullptr : AllocPatch::Original(text);
    });
    CHECK(made.Launch(accepted) == S_OK);
    CHECK(accepted == VARIANT_FALSE);
    CHECK(ok == (isShort ? L"OK" : L"done"));
    CHECK(alloc.Calls() > 2);
}

TEST_CASE("CVeltEulaDlg: OK counts while the texts still load, and they are given up", "[ui]")
{
    const Made made;
    const bool isAccepted = GENERATE(false, true);
    int questions = 0;
    StandInDocument document([&]() -> LONG {
        if (++questions == 1)
        {
            const HWND dialog = ::FindWindowW(L"#32770", L"End User License Agreement");
            ::CheckRadioButton(dialog, VELT_EULA_DECLINE, VELT_EULA_ACCEPT,
                               isAccepted ? VELT_EULA_ACCEPT : VELT_EULA_DECLINE);
            ::PostMessageW(dialog, WM_COMMAND, IDOK, 0);
        }
        return 1; // and for ever
    });
    VARIANT_BOOL accepted = 0x5A5A;
    CHECK(made.Launch(accepted) == S_OK);
    CHECK(questions < 100); // it asks every 10 ms at least, and would for 5 s
    CHECK(accepted == (isAccepted ? VARIANT_TRUE : VARIANT_FALSE));
    CHECK(document.Loads() == 1);
    CHECK(document.Aborts() == 1);
    CHECK(document.References() == 0);
}

TEST_CASE("CVeltEulaDlg: it loads its skin, then a rich edit library, then the common controls",
          "[ui]")
{
    const Made made;
    const bool hasSkin = GENERATE(true, false);
    std::vector<std::string> steps;
    const LoadBitmapPatch bitmap("user32.dll", [&](HINSTANCE module, LPCWSTR name) {
        if (name != MAKEINTRESOURCEW(VELT_SKIN))
        {
            return LoadBitmapPatch::Original(module, name);
        }
        steps.emplace_back("skin");
        return hasSkin ? LoadBitmapPatch::Original(module, name) : nullptr;
    });
    const LoadLibraryPatch library("kernel32.dll", [&](LPCWSTR name, HANDLE file, DWORD flags) {
        if (::lstrcmpiW(name, L"RICHED32.DLL") == 0)
        {
            steps.emplace_back("rich edit");
        }
        return LoadLibraryPatch::Original(name, file, flags);
    });
    const ImportPatch<"InitCommonControls", decltype(::InitCommonControls)> controls(
        "comctl32.dll", [&] { steps.emplace_back("controls"); });
    const WhenInitialised press([](HWND dialog) { ::PostMessageW(dialog, WM_COMMAND, IDOK, 0); });
    VARIANT_BOOL accepted = 0x5A5A;
    CHECK(SUCCEEDED(made.Launch(accepted)) == hasSkin);
    CHECK(steps == (hasSkin ? std::vector<std::string>{"skin", "rich edit", "controls"}
                            : std::vector<std::string>{"skin"}));
}

TEST_CASE("CVeltEulaDlg: the agreement is opened to be read, by nobody else, if it is there",
          "[ui]")
{
    const Made made;
    using CreateFilePatch = ImportPatch<"CreateFileW", decltype(::CreateFileW)>;
    int opened = 0;
    const CreateFilePatch open("kernel32.dll", [&](LPCWSTR name, DWORD access, DWORD sharing,
                                                   SECURITY_ATTRIBUTES* security, DWORD creation,
                                                   DWORD flags, HANDLE model) {
        if (made.folder.File(L"agreement.rtf") == name)
        {
            ++opened;
            CHECK(access == GENERIC_READ);
            CHECK(sharing == 0);
            CHECK(security == nullptr);
            CHECK(creation == OPEN_EXISTING);
            CHECK(flags == FILE_ATTRIBUTE_ARCHIVE);
            CHECK(model == nullptr);
        }
        return CreateFilePatch::Original(name, access, sharing, security, creation, flags, model);
    });
    const WhenInitialised press([](HWND dialog) { ::PostMessageW(dialog, WM_COMMAND, IDOK, 0); });
    VARIANT_BOOL accepted = 0x5A5A;
    CHECK(made.Launch(accepted) == S_OK);
    CHECK(opened == 1);
}

TEST_CASE("CVeltEulaDlg: a call is traced from its start to its result", "[ui]")
{
    const Made made;
    TraceRecorder trace;
    const bool isThere = GENERATE(true, false); // the agreement
    if (!isThere)
    {
        ::DeleteFileW(made.folder.File(L"agreement.rtf").c_str());
    }
    const WhenInitialised press([](HWND dialog) { ::PostMessageW(dialog, WM_COMMAND, IDOK, 0); });
    VARIANT_BOOL accepted = 0x5A5A;
    CHECK(made.Launch(accepted) == S_OK);
    CHECK(trace.Count("CVeltEulaDlg::LaunchEula - enter") == 1);
    CHECK(trace.Count("CVeltEulaDlg::LaunchEula - return = 0") == 1);
    CHECK(trace.Count("the agreement cannot be opened: 2") == (isThere ? 0 : 1));
    for (const TraceRecorder::Message& message : trace.Messages())
    {
        if (message.text.rfind("the ", 0) == 0)
        {
            CHECK(message.level == 1);
        }
    }
}

TEST_CASE("CVeltEulaDlg: the skin's corners of 109 x 63 are copied as they are", "[ui]")
{
    // The shipped skin looks the same with other corners, so the copies are looked at.
    struct Copy
    {
        int width;
        int height;
        int x; // of the skin
        int y;
        int targetX;
        int targetY;

        bool operator==(const Copy&) const = default;
    };
    const Made made;
    std::vector<Copy> copies;
    SIZE client{};
    const WhenInitialised look([&](HWND dialog) {
        RECT area{};
        ::GetClientRect(dialog, &area);
        client = {area.right, area.bottom};
        copies.clear();
        ::SendMessageW(dialog, WM_SIZE, SIZE_RESTORED, MAKELPARAM(area.right, area.bottom));
        ::PostMessageW(dialog, WM_COMMAND, IDOK, 0);
    });
    using BlitPatch = ImportPatch<"BitBlt", decltype(::BitBlt)>;
    const BlitPatch blit("gdi32.dll", [&](HDC target, int targetX, int targetY, int width,
                                          int height, HDC source, int x, int y, DWORD operation) {
        copies.push_back({width, height, x, y, targetX, targetY});
        return BlitPatch::Original(target, targetX, targetY, width, height, source, x, y,
                                   operation);
    });
    VARIANT_BOOL accepted = 0x5A5A;
    CHECK(made.Launch(accepted) == S_OK);
    const int right = client.cx - 109;
    const int bottom = client.cy - 63;
    for (const Copy& corner :
         {Copy{109, 63, 0, 0, 0, 0}, Copy{109, 63, 312 - 109, 0, right, 0},
          Copy{109, 63, 0, 156 - 63, 0, bottom}, Copy{109, 63, 312 - 109, 156 - 63, right, bottom}})
    {
        CAPTURE(corner.x, corner.y);
        CHECK(std::count(copies.begin(), copies.end(), corner) == 1);
    }
}

TEST_CASE("CVeltEulaDlg: the title stands 20 of 96 parts of an inch from the left", "[ui]")
{
    const auto [dpi, left] = GENERATE(table<int, int>({{96, 20}, {100, 20}, {120, 25}, {144, 30}}));
    const Made made;
    using CapsPatch = ImportPatch<"GetDeviceCaps", decltype(::GetDeviceCaps)>;
    const CapsPatch caps("gdi32.dll", [dots = dpi](HDC context, int index) {
        return index == LOGPIXELSX ? dots : CapsPatch::Original(context, index);
    });
    POINT at{};
    const WhenInitialised look([&](HWND dialog) {
        RECT place{};
        ::GetWindowRect(::GetDlgItem(dialog, VELT_EULA_TITLE), &place);
        at = {place.left, place.top};
        ::ScreenToClient(dialog, &at);
        ::PostMessageW(dialog, WM_COMMAND, IDOK, 0);
    });
    VARIANT_BOOL accepted = 0x5A5A;
    CHECK(made.Launch(accepted) == S_OK);
    CHECK(at.x == left);
    CHECK(at.y == 12);
}

TEST_CASE("CVeltEulaDlg: the text of its labels, and its caption, are black", "[ui]")
{
    const Made made;
    COLORREF label = CLR_INVALID;
    std::vector<COLORREF> captions;
    const WhenInitialised look([&](HWND dialog) {
        const Pixels target(10, 10);
        ::SetTextColor(target.Context(), RGB(1, 2, 3));
        ::SendMessageW(dialog, WM_CTLCOLORSTATIC, reinterpret_cast<WPARAM>(target.Context()),
                       reinterpret_cast<LPARAM>(::GetDlgItem(dialog, VELT_EULA_ACCEPT)));
        label = ::GetTextColor(target.Context());
        ::RedrawWindow(dialog, nullptr, nullptr, RDW_INVALIDATE | RDW_UPDATENOW);
        ::PostMessageW(dialog, WM_COMMAND, IDOK, 0);
    });
    using DrawPatch = ImportPatch<"DrawTextW", decltype(::DrawTextW)>;
    const DrawPatch draw(
        "user32.dll", [&](HDC context, const wchar_t* text, int length, RECT* area, UINT format) {
            captions.push_back(::GetTextColor(context));
            return DrawPatch::Original(context, text, length, area, format);
        });
    VARIANT_BOOL accepted = 0x5A5A;
    CHECK(made.Launch(accepted) == S_OK);
    CHECK(label == RGB(0, 0, 0));
    CHECK_FALSE(captions.empty());
    CHECK(captions == std::vector<COLORREF>(captions.size(), RGB(0, 0, 0)));
}

TEST_CASE("CVeltEulaDlg: with high contrast its labels and its button have the system's colours",
          "[ui]")
{
    const Made made;
    const bool isOn = GENERATE(true, false);
    std::optional<HighContrastOn> on;
    if (isOn)
    {
        on.emplace();
    }
    const COLORREF face = isOn ? ::GetSysColor(COLOR_BTNFACE) : RGB(237, 237, 237);
    CHECK(::GetSysColor(COLOR_BTNFACE) != RGB(237, 237, 237));
    const WhenInitialised look([&](HWND dialog) {
        ::RedrawWindow(dialog, nullptr, nullptr,
                       RDW_INVALIDATE | RDW_ERASE | RDW_ALLCHILDREN | RDW_UPDATENOW);
        for (const int id : {VELT_EULA_DECLINE, VELT_EULA_ACCEPT})
        {
            const Pixels label = Pixels::Of(::GetDlgItem(dialog, id));
            CHECK(label.At(label.Width() - 1, label.Height() / 2) == face);
        }
        const Pixels ok = Pixels::Of(::GetDlgItem(dialog, VELT_EULA_OK));
        CHECK((ok.At(8, 8) == ::GetSysColor(COLOR_BTNFACE)) == isOn);
        ::PostMessageW(dialog, WM_COMMAND, IDOK, 0);
    });
    VARIANT_BOOL accepted = 0x5A5A;
    CHECK(made.Launch(accepted) == S_OK);
}
