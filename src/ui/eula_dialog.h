#pragma once

#include "foundation/library_utils.h"
#include "ui/agreement_view.h"
#include "ui/eula_texts.h"
#include "ui/halden_style_button.h"
#include "ui/halden_style_dlg.h"

#include <windows.h>

#include <optional>
#include <string>

/// The dialog that shows a licence agreement: a read-only view of it, a choice between declining
/// and accepting it, which starts as declining, and an OK button. Only OK ends it; DoModal answers
/// 1 when accepting was chosen, else 0, and 0 at once when the agreement cannot be opened. By
/// design, neither Escape nor the system's close command ends it.
///
/// One is made for each call and lives on the thread that shows it.
class CEulaDialog final : public CHaldenStyleDlg<CEulaDialog>
{
public:
    /// The agreement is an RTF file; for the texts see velt::ReadEulaTexts. Throws what InitSkin
    /// throws when the skin cannot be loaded.
    CEulaDialog(std::wstring agreementPath, std::wstring textsPath);

    ~CEulaDialog() override = default;

    /// Sees each message before the frame.
    std::optional<LRESULT> ProcessMessage(UINT message, WPARAM wParam, LPARAM lParam);

private:
    void OnInitialise();
    void OnOk() noexcept;

    void Centre() const noexcept;
    void PlaceTitle() const noexcept;
    void ShowTexts() noexcept;
    void Show(const velt::EulaTexts& texts);

    HWND Item(int id) const noexcept;

    std::wstring m_agreementPath;
    std::wstring m_textsPath;
    std::optional<CLibraryUtils::CLibraryUtilsImpl> m_richEdit; // what registers the view's class
    CHaldenStyleButton m_ok;
    velt::AgreementView m_view;
};
