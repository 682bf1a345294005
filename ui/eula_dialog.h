#pragma once

#include "foundation/library_utils.h"
#include "ui/agreement_view.h"
#include "ui/eula_texts.h"
#include "ui/halden_style_button.h"
#include "ui/halden_style_dlg.h"

#include <windows.h>

#include <string>

/// The dialog that shows a licence agreement: a read-only view of it, a choice between declining and
/// accepting it, which starts as declining, and an OK button. Only OK ends it; DoModal answers 1
/// when accepting was chosen, else 0, and 0 at once when the agreement cannot be opened. By design,
/// neither Escape nor the system's close command ends it.
///
/// One is made for each call and lives on the thread that shows it.
class CEulaDialog final : public CHaldenStyleDlg<CEulaDialog>
{
public:
    /// The agreement is an RTF file; for the texts see velt::ReadEulaTexts. Throws what InitSkin
    /// throws when the skin cannot be loaded.
    CEulaDialog(std::wstring agreementPath, std::wstring textsPath);

    /// The dialog's own messages; what it leaves alone is the frame's.
    bool ProcessMessage(UINT message, WPARAM wParam, LPARAM lParam, LRESULT& result);

private:
    LRESULT OnInitialise(UINT message, WPARAM wParam, LPARAM lParam);
    void OnOk();

    void Centre() noexcept;
    void PlaceTitle() noexcept;
    void ShowTexts(const velt::EulaTexts& texts);

    HWND Item(int id) const noexcept;

    std::wstring m_agreementPath;
    std::wstring m_textsPath;
    CLibraryUtils::CLibraryUtilsImpl m_richEditLibrary;
    CHaldenStyleButton m_ok;
    velt::AgreementView m_view;
};
