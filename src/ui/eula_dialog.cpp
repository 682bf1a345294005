#include "ui/eula_dialog.h"

#include "foundation/exception_to_hresult.h"
#include "foundation/utrace.h"
#include "ui/drawing_scopes.h"
#include "ui/eula_texts_file.h"
#include "ui/own_module.h"
#include "ui/resources/resource_ids.h"
#include "ui/rtf_stream.h"

#include <commctrl.h>
#include <richedit.h>

#include <utility>

namespace
{
constexpr int kCornerWidth = 109;
constexpr int kCornerHeight = 63;
constexpr int kUsualDpi = 96;

/// The library that registers the window class of the view, "RICHEDIT".
HMODULE LoadRichEdit() noexcept
{
    const HMODULE module = velt::LoadSystemLibrary(L"RICHED32.DLL");
    return module ? module : velt::LoadSystemLibrary(L"RICHED20.DLL");
}

std::wstring TextOf(HWND window)
{
    std::wstring text(static_cast<std::size_t>(::GetWindowTextLengthW(window)), L'\0');
    text.resize(static_cast<std::size_t>(
        ::GetWindowTextW(window, text.data(), static_cast<int>(text.size() + 1))));
    return text;
}
} // namespace

CEulaDialog::CEulaDialog(std::wstring agreementPath, std::wstring textsPath)
    : CHaldenStyleDlg(kCornerWidth, kCornerHeight, kCornerWidth, kCornerHeight, kCornerWidth,
                      kCornerHeight, kCornerWidth, kCornerHeight),
      m_agreementPath(std::move(agreementPath)),
      m_textsPath(std::move(textsPath)),
      m_ok(VELT_BUTTON_NORMAL, VELT_BUTTON_HOT, VELT_BUTTON_PRESSED)
{
    OSVERSIONINFOW version{};
    version.dwOSVersionInfoSize = sizeof(version);
    ::GetVersionExW(&version); // by design asked for and used for nothing
    SetTextColour(RGB(0, 0, 0));
    InitSkin(true, VELT_EULA_DIALOG, velt::OwnModule(), VELT_SKIN);
    m_richEdit.emplace(LoadRichEdit());
    ::InitCommonControls();
}

std::optional<LRESULT> CEulaDialog::ProcessMessage(UINT message, WPARAM wParam, LPARAM lParam)
{
    if (message == WM_INITDIALOG || message == WM_CREATE)
    {
        CHaldenStyleDlg::ProcessMessage(message, wParam, lParam);
        OnInitialise();
        return TRUE; // the system gives the first control the focus
    }
    if (message == WM_COMMAND && wParam == MAKEWPARAM(IDOK, BN_CLICKED))
    {
        OnOk();
        return 0;
    }
    return CHaldenStyleDlg::ProcessMessage(message, wParam, lParam);
}

void CEulaDialog::OnInitialise()
{
    Centre();
    m_ok.SubclassWindow(Item(VELT_EULA_OK));
    m_view.Attach(Item(VELT_EULA_VIEW), Item(VELT_EULA_TITLE));
    PlaceTitle();
    // By design, the window keeps the template's title when the texts bring another one.
    ::SetWindowTextW(Window(), TextOf(Item(VELT_EULA_TITLE)).c_str());
    ::SendMessageW(Item(VELT_EULA_DECLINE), BM_SETCHECK, BST_CHECKED, 0);
    // By design, the limit stands where the control does not look: it keeps its own.
    ::SendMessageW(Item(VELT_EULA_VIEW), EM_EXLIMITTEXT, 99999, 0);
    if (!velt::StreamRtfFile(Item(VELT_EULA_VIEW), m_agreementPath))
    {
        UTrace::TraceLevel1("the agreement cannot be opened: %lu", ::GetLastError());
        End(0);
        return;
    }
    ShowTexts();
}

/// Accepting is nothing but the choice at this moment.
void CEulaDialog::OnOk() noexcept
{
    End(::SendMessageW(Item(VELT_EULA_ACCEPT), BM_GETCHECK, 0, 0) & BST_CHECKED);
}

/// Moves the dialog to the middle of the primary screen and shows it.
void CEulaDialog::Centre() const noexcept
{
    RECT place{};
    ::GetWindowRect(Window(), &place);
    const int width = place.right - place.left;
    const int height = place.bottom - place.top;
    ::SetWindowPos(Window(), nullptr, (::GetSystemMetrics(SM_CXSCREEN) - width) / 2,
                   (::GetSystemMetrics(SM_CYSCREEN) - height) / 2, width, height, SWP_SHOWWINDOW);
}

/// Moves the title, and with it the caption that the frame draws, onto the skin's band.
void CEulaDialog::PlaceTitle() const noexcept
{
    const velt::WindowDc context(Window());
    const int dpi = context.Get() ? ::GetDeviceCaps(context.Get(), LOGPIXELSX) : kUsualDpi;
    // Its place among the controls stays as well: the label before the view names it.
    ::SetWindowPos(Item(VELT_EULA_TITLE), nullptr, dpi * 20 / kUsualDpi, 12, 368, 13,
                   SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
}

/// Texts that cannot be had leave those of the template.
void CEulaDialog::ShowTexts() noexcept
{
    try
    {
        const velt::EulaTexts texts =
            velt::ReadEulaTexts(m_textsPath, Window(), [this] { return HasEnded(); });
        if (!HasEnded())
        {
            Show(texts);
        }
    }
    catch (...)
    {
        velt::TraceCurrentException();
    }
}

void CEulaDialog::Show(const velt::EulaTexts& texts)
{
    const auto show = [this](int id, const std::optional<std::wstring>& text) {
        if (text)
        {
            ::SetWindowTextW(Item(id), text->c_str());
        }
    };
    show(VELT_EULA_TITLE, texts.title);
    show(VELT_EULA_DECLINE, texts.decline);
    show(VELT_EULA_ACCEPT, texts.accept);
    show(VELT_EULA_OK, texts.ok);
    if (texts.title)
    {
        SetCaptionText(*texts.title);
    }
}

HWND CEulaDialog::Item(int id) const noexcept
{
    return ::GetDlgItem(Window(), id);
}
