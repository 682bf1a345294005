#include "ui/agreement_view.h"

namespace velt
{
namespace
{
constexpr wchar_t kProperty[] = L"VeltAgreementView";

/// Answers with the procedure that the window had.
WNDPROC SetProcedure(HWND view, WNDPROC procedure) noexcept
{
    const LONG_PTR old =
        ::SetWindowLongPtrW(view, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(procedure));
    return reinterpret_cast<WNDPROC>(old); // NOLINT(performance-no-int-to-ptr): so it is given
}

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
    if (!view || m_original || !::SetPropW(view, kProperty, this))
    {
        return;
    }
    m_original = SetProcedure(view, &AgreementView::Procedure);
    if (label)
    {
        ::SetWindowPos(label, ::GetWindow(view, GW_HWNDPREV), 0, 0, 0, 0,
                       SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE | SWP_NOREDRAW);
    }
}

LRESULT CALLBACK AgreementView::Procedure(HWND view, UINT message, WPARAM wParam,
                                          LPARAM lParam) noexcept
{
    const auto* const self = static_cast<const AgreementView*>(::GetPropW(view, kProperty));
    if (!self)
    {
        return ::DefWindowProcW(view, message, wParam, lParam);
    }
    const WNDPROC original = self->m_original;
    if (message == WM_NCDESTROY)
    {
        SetProcedure(view, original);
        ::RemovePropW(view, kProperty);
    }
    const LRESULT result = ::CallWindowProcW(original, view, message, wParam, lParam);
    if (message != WM_GETDLGCODE)
    {
        return result;
    }
    const auto* const key = reinterpret_cast<const MSG*>(lParam); // NOLINT(*-no-int-to-ptr)
    return DialogCode(result, key);
}
} // namespace velt
