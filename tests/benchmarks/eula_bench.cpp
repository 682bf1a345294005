#include "tests/benchmarks/table.h"
#include "tests/support/com_apartment.h"
#include "tests/support/component_library.h"
#include "tests/support/temp_folder.h"
#include "ui/resources/resource_ids.h"

#include <provider_lib.h>

#include <windows.h>

#include <comdef.h>
#include <richedit.h>

#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

using namespace velt::test;

namespace
{
constexpr std::size_t kAgreementBytes = 100 * 1024;
constexpr int kRounds = 15;

std::string Agreement()
{
    std::string rtf = "{\\rtf1\\ansi\\deff0{\\fonttbl{\\f0 Arial;}}\\f0\\fs20 ";
    while (rtf.size() < kAgreementBytes)
    {
        rtf += "{\\b A point of it.} You may use this software as long as you like, on every "
               "computer that is your own, and keep a copy of it.\\par\n";
    }
    return rtf + "}";
}

/// When the dialog that this thread shows next has been painted for the first time; it is ended
/// then. One at a time.
class FirstPaint
{
public:
    FirstPaint()
        : m_initialised(Hook(WH_CALLWNDPROCRET, &FirstPaint::SeeSent)),
          m_received(Hook(WH_GETMESSAGE, &FirstPaint::SeeReceived))
    {
    }

    FirstPaint(const FirstPaint&) = delete;
    FirstPaint& operator=(const FirstPaint&) = delete;

    ~FirstPaint()
    {
        ::UnhookWindowsHookEx(m_initialised);
        ::UnhookWindowsHookEx(m_received);
    }

    /// Nanoseconds from the start of `show` until the paint.
    template <class Show>
    double NanosecondsUntil(Show&& show)
    {
        LARGE_INTEGER frequency;
        LARGE_INTEGER start;
        ::QueryPerformanceFrequency(&frequency);
        s_painted.QuadPart = 0;
        ::QueryPerformanceCounter(&start);
        show();
        if (s_painted.QuadPart == 0)
        {
            throw std::runtime_error("nothing was painted");
        }
        return static_cast<double>(s_painted.QuadPart - start.QuadPart) * 1e9 /
               static_cast<double>(frequency.QuadPart);
    }

private:
    static constexpr UINT kInitialised = WM_APP + 77;

    static HHOOK Hook(int kind, HOOKPROC procedure)
    {
        return ::SetWindowsHookExW(kind, procedure, nullptr, ::GetCurrentThreadId());
    }

    static LRESULT CALLBACK SeeSent(int code, WPARAM wParam, LPARAM lParam)
    {
        const auto& sent = *reinterpret_cast<const CWPRETSTRUCT*>(lParam);
        if (code == HC_ACTION && sent.message == WM_INITDIALOG)
        {
            ::PostMessageW(sent.hwnd, kInitialised, 0, 0); // seen once the dialog is shown
        }
        return ::CallNextHookEx(nullptr, code, wParam, lParam);
    }

    static LRESULT CALLBACK SeeReceived(int code, WPARAM wParam, LPARAM lParam)
    {
        const auto& message = *reinterpret_cast<const MSG*>(lParam);
        if (code == HC_ACTION && wParam == PM_REMOVE && message.message == kInitialised)
        {
            ::RedrawWindow(message.hwnd, nullptr, nullptr, RDW_UPDATENOW | RDW_ALLCHILDREN);
            ::GdiFlush();
            ::QueryPerformanceCounter(&s_painted);
            ::PostMessageW(message.hwnd, WM_COMMAND, IDOK, 0);
        }
        return ::CallNextHookEx(nullptr, code, wParam, lParam);
    }

    inline static LARGE_INTEGER s_painted{};

    HHOOK m_initialised;
    HHOOK m_received;
};

DWORD CALLBACK ReadFromFile(DWORD_PTR file, LPBYTE buffer, LONG wanted, LONG* read)
{
    DWORD count = 0;
    ::ReadFile(reinterpret_cast<HANDLE>(file), buffer, static_cast<DWORD>(wanted), &count, nullptr);
    *read = static_cast<LONG>(count);
    return 0;
}

/// The least that shows the same controls and the same agreement.
INT_PTR CALLBACK BareProcedure(HWND dialog, UINT message, WPARAM wParam, LPARAM path)
{
    if (message == WM_COMMAND && wParam == IDOK)
    {
        ::EndDialog(dialog, 0);
        return TRUE;
    }
    if (message != WM_INITDIALOG)
    {
        return FALSE;
    }
    ::ShowWindow(dialog, SW_SHOW);
    ::CheckDlgButton(dialog, VELT_EULA_DECLINE, BST_CHECKED);
    const HANDLE file = ::CreateFileW(reinterpret_cast<const wchar_t*>(path), GENERIC_READ, 0,
                                      nullptr, OPEN_EXISTING, 0, nullptr);
    EDITSTREAM stream{reinterpret_cast<DWORD_PTR>(file), 0, &ReadFromFile};
    ::SendDlgItemMessageW(dialog, VELT_EULA_VIEW, EM_STREAMIN, SF_RTF,
                          reinterpret_cast<LPARAM>(&stream));
    ::CloseHandle(file);
    return TRUE;
}

void ShowBare(HMODULE module, const std::wstring& agreement)
{
    const HMODULE richEdit = ::LoadLibraryW(L"riched32.dll");
    ::DialogBoxParamW(module, MAKEINTRESOURCEW(VELT_EULA_DIALOG), nullptr, &BareProcedure,
                      reinterpret_cast<LPARAM>(agreement.c_str()));
    ::FreeLibrary(richEdit);
}

void Measure(const char* measure, const char* reach, const ComponentLibrary& library,
             const std::wstring& agreement, const std::wstring& texts)
{
    const auto dialog = library.Create<IVeltEulaDlg>(CLSID_CVeltEulaDlg);
    const _bstr_t agreementText(agreement.c_str());
    const _bstr_t textsText(texts.c_str());
    FirstPaint firstPaint;
    const auto ours = [&] {
        return firstPaint.NanosecondsUntil([&] {
            VARIANT_BOOL accepted = VARIANT_TRUE;
            if (dialog->LaunchEula(agreementText, textsText, &accepted) != S_OK ||
                accepted != VARIANT_FALSE)
            {
                throw std::runtime_error("the dialog failed");
            }
        });
    };
    const auto bare = [&] {
        return firstPaint.NanosecondsUntil([&] { ShowBare(library.Module(), agreement); });
    };
    ours();
    bare();
    std::vector<double> oursNs;
    std::vector<double> bareNs;
    std::vector<double> ratios;
    for (int i = 0; i < kRounds; ++i)
    {
        oursNs.push_back(ours());
        bareNs.push_back(bare());
        ratios.push_back(oursNs.back() / bareNs.back());
    }
    velt::bench::PrintRow(
        measure, "bare dialog, same controls and RTF",
        {velt::bench::Median(oursNs), velt::bench::Median(bareNs), velt::bench::Median(ratios)},
        reach);
}

void Run()
{
    const ComApartment com;
    const TempFolder folder;
    folder.Write(L"agreement.rtf", Agreement());
    folder.Write(L"texts.xml", "<T><RECORD><K>i_accept</K><V>Ja</V></RECORD></T>");
    const ComponentLibrary library;
    Measure("LaunchEula until painted, 100 KB", "<= 1.30", library, folder.File(L"agreement.rtf"),
            folder.File(L"missing.xml"));
    Measure("the same with a texts file", "<= 1.30", library, folder.File(L"agreement.rtf"),
            folder.File(L"texts.xml"));
}
} // namespace

int main()
{
    try
    {
        velt::bench::PrintHeading("");
        Run();
        return 0;
    }
    catch (const std::exception& e)
    {
        std::fprintf(stderr, "bench: %s\n", e.what());
    }
    return 1;
}
