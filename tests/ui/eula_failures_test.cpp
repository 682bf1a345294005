#include "tests/support/com_apartment.h"
#include "tests/support/import_patch.h"
#include "tests/support/temp_folder.h"
#include "tests/support/test_module.h"
#include "tests/ui/eula_files.h"
#include "tests/ui/plain_window.h"
#include "tests/ui/stand_in_document.h"
#include "ui/message_wait.h"
#include "ui/resources/resource_ids.h"
#include "ui/rtf_stream.h"
#include "ui/velt_eula_dlg.h"

#include <richedit.h>
#include <wrl/client.h>

#include <catch.hpp>

#include <functional>
#include <string>
#include <utility>

using Microsoft::WRL::ComPtr;
using namespace velt::test;

namespace
{
using LoadLibraryPatch = ImportPatch<"LoadLibraryExW", decltype(::LoadLibraryExW)>;
using LoadBitmapPatch = ImportPatch<"LoadBitmapW", decltype(::LoadBitmapW)>;
using ReadFilePatch = ImportPatch<"ReadFile", decltype(::ReadFile)>;

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

/// A rich edit control of its own.
class View
{
public:
    View()
        : m_library(::LoadLibraryW(L"riched32.dll")),
          m_window(::CreateWindowExW(0, L"RICHEDIT", L"", WS_POPUP | ES_MULTILINE, 0, 0, 300, 200,
                                     nullptr, nullptr, nullptr, nullptr))
    {
        REQUIRE(m_window);
    }

    View(const View&) = delete;
    View& operator=(const View&) = delete;

    ~View()
    {
        ::DestroyWindow(m_window);
        ::FreeLibrary(m_library);
    }

    HWND Window() const noexcept
    {
        return m_window;
    }

    std::string Text() const
    {
        std::string text(static_cast<std::size_t>(::GetWindowTextLengthA(m_window)) + 1, '\0');
        text.resize(static_cast<std::size_t>(
            ::GetWindowTextA(m_window, text.data(), static_cast<int>(text.size()))));
        return text;
    }

private:
    HMODULE m_library;
    HWND m_window;
};
} // namespace

TEST_CASE("CVeltEulaDlg: without its skin it answers with the error and says nothing more", "[ui]")
{
    const DWORD error = GENERATE(DWORD{ERROR_RESOURCE_NAME_NOT_FOUND}, DWORD{ERROR_OUTOFMEMORY});
    const Made made;
    const LoadBitmapPatch patch("user32.dll", [error](HINSTANCE, LPCWSTR name) -> HBITMAP {
        ::SetLastError(name == MAKEINTRESOURCEW(VELT_SKIN) ? error : 0);
        return nullptr;
    });
    VARIANT_BOOL accepted = 0x5A5A;
    CHECK(made.Launch(accepted) == HRESULT_FROM_WIN32(error));
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
    bool isPressed = false;
    StandInDocument document([&]() -> LONG {
        if (!isPressed)
        {
            isPressed = true;
            const HWND dialog = ::FindWindowW(L"#32770", L"End User License Agreement");
            ::CheckRadioButton(dialog, VELT_EULA_DECLINE, VELT_EULA_ACCEPT,
                               isAccepted ? VELT_EULA_ACCEPT : VELT_EULA_DECLINE);
            ::PostMessageW(dialog, WM_COMMAND, IDOK, 0);
        }
        return 1; // and for ever
    });
    VARIANT_BOOL accepted = 0x5A5A;
    const ULONGLONG start = ::GetTickCount64();
    CHECK(made.Launch(accepted) == S_OK);
    CHECK(::GetTickCount64() - start < 4'000); // of the 5 s that it waits for texts
    CHECK(accepted == (isAccepted ? VARIANT_TRUE : VARIANT_FALSE));
    CHECK(document.Loads() == 1);
    CHECK(document.Aborts() == 1);
    CHECK(document.References() == 0);
}

TEST_CASE("StreamRtfFile: a read that fails ends the text like the end of the file", "[ui]")
{
    const Made made;
    const View view;
    std::string rtf = "{\\rtf1 first\\par ";
    rtf += std::string(200'000, 'x');
    made.folder.Write(L"long.rtf", rtf + "last}");
    {
        int reads = 0;
        const ReadFilePatch patch("kernel32.dll", [&](HANDLE file, LPVOID buffer, DWORD wanted,
                                                      LPDWORD read, LPOVERLAPPED overlapped) {
            if (++reads > 3)
            {
                ::SetLastError(ERROR_CRC);
                return FALSE;
            }
            return ReadFilePatch::Original(file, buffer, wanted, read, overlapped);
        });
        CHECK(velt::StreamRtfFile(view.Window(), made.folder.File(L"long.rtf")));
        CHECK(reads == 4);
    }
    CHECK(view.Text().rfind("first", 0) == 0);
    CHECK(view.Text().find("last") == std::string::npos);
}

TEST_CASE("StreamRtfFile: a file that cannot be opened leaves the text and says why", "[ui]")
{
    const Made made;
    const View view;
    ::SetWindowTextW(view.Window(), L"as it was");
    CHECK_FALSE(velt::StreamRtfFile(view.Window(), made.folder.File(L"missing.rtf")));
    CHECK(::GetLastError() == ERROR_FILE_NOT_FOUND);
    CHECK(view.Text() == "as it was");
}

TEST_CASE("WaitWithMessages: messages are dispatched until it is done", "[ui]")
{
    const PlainWindow dialog;
    const PlainWindow other;
    ::PostMessageW(other.Window(), WM_CLOSE, 0, 0); // which destroys it
    const auto isDone = [&] { return !::IsWindow(other.Window()); };
    CHECK_FALSE(isDone());
    CHECK(velt::WaitWithMessages(dialog.Window(), 5000, isDone));
}

TEST_CASE("WaitWithMessages: it ends at its limit, at once when it is done, without the dialog and "
          "when the thread is to quit",
          "[ui]")
{
    const PlainWindow dialog;
    const auto never = [] { return false; };
    const ULONGLONG start = ::GetTickCount64();
    CHECK_FALSE(velt::WaitWithMessages(dialog.Window(), 100, never));
    CHECK(::GetTickCount64() - start >= 100);
    CHECK(velt::WaitWithMessages(dialog.Window(), 0, [] { return true; }));
    CHECK_FALSE(velt::WaitWithMessages(nullptr, 60'000, never));

    // Something that turns true without a message.
    const ULONGLONG then = ::GetTickCount64() + 50;
    CHECK(velt::WaitWithMessages(dialog.Window(), 5000,
                                 [then] { return ::GetTickCount64() >= then; }));

    ::PostQuitMessage(9);
    CHECK_FALSE(velt::WaitWithMessages(dialog.Window(), 60'000, never));
    MSG message{};
    REQUIRE(::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE));
    CHECK(message.message == WM_QUIT);
    CHECK(message.wParam == 9);
}
