#pragma once

#include "ui/window_subclass.h"

#include <windows.h>

namespace velt
{
/// Makes a rich edit control in a dialog fit for reading by keyboard: Tab leaves it, and entering
/// it neither selects its text nor scrolls it to the end. Lives on the dialog's thread, longer than
/// the control.
class AgreementView
{
public:
    AgreementView() = default;
    AgreementView(const AgreementView&) = delete;
    AgreementView& operator=(const AgreementView&) = delete;
    ~AgreementView() = default;

    /// Takes the control's messages first; null, and a second call, do nothing. `label` becomes the
    /// static control right before it: there, visible or not, a screen reader looks for its name.
    void Attach(HWND view, HWND label) noexcept;

private:
    static LRESULT HandleMessage(void* view, UINT message, WPARAM wParam, LPARAM lParam) noexcept;

    WindowSubclass m_subclass;
};
} // namespace velt
