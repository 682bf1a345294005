#include "ui/agreement_view.h"

namespace velt
{
namespace
{
/// What the control wants to see of the keyboard, less what would keep the reader in it.
LRESULT DialogCode(LRESULT code, const MSG* key) noexcept
{
    code &= ~LRESULT{DLGC_HASSETSEL}; // the dialog would select all text on entering
    if (key && key->message == WM_KEYDOWN && key->wParam == VK_TAB)
    {
        code &= ~LRESULT{DLGC_WANTTAB | DLGC_WANTALLKEYS};
    }
    return code;
}
} // namespace

void AgreementView::Attach(HWND view, HWND label) noexcept
{
    const bool taken = m_subclass.Attach(view, &AgreementView::HandleMessage, this);
    if (taken && label)
    {
        ::SetWindowPos(label, ::GetWindow(view, GW_HWNDPREV), 0, 0, 0, 0,
                       SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE | SWP_NOREDRAW);
    }
}

LRESULT AgreementView::HandleMessage(void* view, UINT message, WPARAM wParam,
                                     LPARAM lParam) noexcept
{
    WindowSubclass& subclass = static_cast<AgreementView*>(view)->m_subclass;
    const HWND window = subclass.Window();
    const WNDPROC original = subclass.Original();
    if (message == WM_NCDESTROY)
    {
        subclass.Detach();
    }
    const LRESULT result = ::CallWindowProcW(original, window, message, wParam, lParam);
    if (message != WM_GETDLGCODE)
    {
        return result;
    }
    const auto* const key = reinterpret_cast<const MSG*>(lParam); // NOLINT(*-no-int-to-ptr)
    return DialogCode(result, key);
}
} // namespace velt
