#include "tools/trace/list_dialog.h"

#include "foundation/system_exception.h"
#include "tools/trace/dark_controls.h"
#include "tools/trace/error_text.h"

#include <optional>

namespace velt
{
ListDialog::~ListDialog()
{
    if (m_window)
    {
        ::SetWindowLongPtrW(m_window, GWLP_USERDATA, 0); // who would hear of it is gone
        ::DestroyWindow(m_window);
    }
}

void ListDialog::Create(HWND owner)
{
    if (!::CreateDialogParamW(::GetModuleHandleW(nullptr), MAKEINTRESOURCEW(m_dialog), owner,
                              &ListDialog::DialogProc, reinterpret_cast<LPARAM>(this)))
    {
        ThrowLastError();
    }
}

void ListDialog::BringToFront() const noexcept
{
    ::ShowWindow(m_window, SW_SHOW);
    ::SetForegroundWindow(m_window);
}

void ListDialog::InsertColumns(std::span<const ListColumn> columns) const noexcept
{
    for (std::size_t i = 0; i < columns.size(); ++i)
    {
        RECT width{0, 0, columns[i].width, 0};
        ::MapDialogRect(m_window, &width);
        LVCOLUMNW column{};
        column.mask = LVCF_TEXT | LVCF_WIDTH | LVCF_SUBITEM | LVCF_FMT;
        column.fmt = columns[i].format;
        column.cx = static_cast<int>(width.right);
        column.pszText = const_cast<wchar_t*>(columns[i].name);
        column.iSubItem = static_cast<int>(i);
        ListView_InsertColumn(List(), static_cast<int>(i), &column);
    }
}

void ListDialog::SetLook(const WindowLook& look) noexcept
{
    m_look = &look;
    if (!m_window)
    {
        return;
    }
    const HWND list = List();
    for (HWND control = ::GetWindow(m_window, GW_CHILD); control;
         control = ::GetWindow(control, GW_HWNDNEXT))
    {
        PaintByLook(control, look);
    }
    ListView_SetBkColor(list, look.Colors().window);
    ListView_SetTextBkColor(list, look.Colors().window);
    ListView_SetTextColor(list, look.Colors().text);
    look.ApplyTo(m_window);
    look.ApplyTo(list);
    ::RedrawWindow(m_window, nullptr, nullptr, RDW_ERASE | RDW_INVALIDATE | RDW_ALLCHILDREN);
}

INT_PTR CALLBACK ListDialog::DialogProc(HWND window, UINT message, WPARAM wParam,
                                        LPARAM lParam) noexcept
{
    if (message == WM_INITDIALOG)
    {
        ::SetWindowLongPtrW(window, GWLP_USERDATA, lParam);
        reinterpret_cast<ListDialog*>(lParam)->m_window = window;
    }
    auto* const self = reinterpret_cast<ListDialog*>(::GetWindowLongPtrW(window, GWLP_USERDATA));
    try
    {
        return self ? self->Handle(message, wParam, lParam) : FALSE;
    }
    catch (...)
    {
        ::MessageBoxW(window, CurrentErrorText().c_str(), L"Trace viewer", MB_OK | MB_ICONERROR);
        return TRUE;
    }
}

INT_PTR ListDialog::Handle(UINT message, WPARAM wParam, LPARAM lParam)
{
    switch (message)
    {
    case WM_INITDIALOG:
        Build();
        SetLook(*m_look);
        return TRUE;
    case WM_COMMAND:
        OnCommand(LOWORD(wParam), HIWORD(wParam));
        return TRUE;
    case WM_CTLCOLORDLG:
    case WM_CTLCOLORSTATIC:
    case WM_CTLCOLOREDIT:
    case WM_CTLCOLORLISTBOX:
    case WM_CTLCOLORBTN:
        return reinterpret_cast<INT_PTR>(m_look->ColorsFor(message, reinterpret_cast<HDC>(wParam)));
    case WM_NOTIFY:
        if (const std::optional<LRESULT> painted = PaintButton(lParam, *m_look))
        {
            ::SetWindowLongPtrW(m_window, DWLP_MSGRESULT, *painted);
            return TRUE;
        }
        OnNotify(lParam);
        return FALSE;
    case WM_DESTROY:
        m_window = nullptr;
        OnClosed();
        return TRUE;
    default:
        return FALSE;
    }
}
} // namespace velt
