#include "ui/eula_dialog.h"

#include "ui/eula_texts_file.h"
#include "ui/resources/resource_ids.h"
#include "ui/rtf_stream.h"

#include <commctrl.h>
#include <richedit.h>

#include <utility>

extern "C" IMAGE_DOS_HEADER __ImageBase; // the linker's name for where this module begins

namespace
{
constexpr int kCornerWidth = 109;
constexpr int kCornerHeight = 63;

HINSTANCE OwnModule() noexcept
{
    return reinterpret_cast<HINSTANCE>(&__ImageBase);
}

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
    SetTextColour(RGB(0, 0, 0));
    InitSkin(true, VELT_EULA_DIALOG, OwnModule(), VELT_SKIN);
    m_richEditLibrary.Reset(LoadRichEdit());
    ::InitCommonControls();
}
