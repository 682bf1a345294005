#include "tools/trace/calls_dialog.h"

#include "foundation/system_exception.h"
#include "foundation/wide_text.h"
#include "tools/common/output_file.h"
#include "tools/trace/error_text.h"
#include "tools/trace/resource_ids.h"
#include "tools/trace/row_saver.h"
#include "tools/trace/trace_export.h"
#include "tools/trace/wait_cursor.h"

#include <commctrl.h>

#include <array>
#include <cstring>
#include <optional>

namespace velt
{
namespace
{
struct Column
{
    const wchar_t* name;
    int width; // in dialog units
};

// In the order of CallTimesOrder.
constexpr std::array<Column, 5> kColumns{
    {{L"Function", 160}, {L"Count", 40}, {L"Total", 60}, {L"Own", 60}, {L"Longest", 60}}};
} // namespace

CallsDialog::~CallsDialog()
{
    if (m_window)
    {
        ::DestroyWindow(m_window);
    }
}

void CallsDialog::Show(HWND owner)
{
    if (!m_window &&
        !::CreateDialogParamW(::GetModuleHandleW(nullptr), MAKEINTRESOURCEW(VELT_CALLS_DIALOG),
                              owner, &CallsDialog::DialogProc, reinterpret_cast<LPARAM>(this)))
    {
        ThrowLastError();
    }
    Collect();
    ::ShowWindow(m_window, SW_SHOW);
    ::SetForegroundWindow(m_window);
    ::SetFocus(Item(VELT_ID_CALLS));
}

void CallsDialog::SetLook(const WindowLook& look) noexcept
{
    m_look = &look;
    if (!m_window)
    {
        return;
    }
    const HWND list = Item(VELT_ID_CALLS);
    ListView_SetBkColor(list, look.Colors().window);
    ListView_SetTextBkColor(list, look.Colors().window);
    ListView_SetTextColor(list, look.Colors().text);
    look.ApplyTo(m_window);
    look.ApplyTo(list);
    ::RedrawWindow(m_window, nullptr, nullptr, RDW_ERASE | RDW_INVALIDATE | RDW_ALLCHILDREN);
}

INT_PTR CALLBACK CallsDialog::DialogProc(HWND window, UINT message, WPARAM wParam,
                                         LPARAM lParam) noexcept
{
    if (message == WM_INITDIALOG)
    {
        ::SetWindowLongPtrW(window, GWLP_USERDATA, lParam);
        reinterpret_cast<CallsDialog*>(lParam)->m_window = window;
    }
    auto* const self = reinterpret_cast<CallsDialog*>(::GetWindowLongPtrW(window, GWLP_USERDATA));
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

INT_PTR CallsDialog::Handle(UINT message, WPARAM wParam, LPARAM lParam)
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
        OnNotify(lParam);
        return FALSE;
    case WM_DESTROY:
        m_window = nullptr;
        m_content = {};
        return TRUE;
    default:
        return FALSE;
    }
}

void CallsDialog::Build()
{
    const HWND list = Item(VELT_ID_CALLS);
    ListView_SetExtendedListViewStyle(list, LVS_EX_FULLROWSELECT | LVS_EX_LABELTIP);
    for (std::size_t i = 0; i < kColumns.size(); ++i)
    {
        RECT width{0, 0, kColumns[i].width, 0};
        ::MapDialogRect(m_window, &width);
        LVCOLUMNW column{};
        column.mask = LVCF_TEXT | LVCF_WIDTH | LVCF_SUBITEM | LVCF_FMT;
        column.fmt = i == 0 ? LVCFMT_LEFT : LVCFMT_RIGHT;
        column.cx = static_cast<int>(width.right);
        column.pszText = const_cast<wchar_t*>(kColumns[i].name);
        column.iSubItem = static_cast<int>(i);
        ListView_InsertColumn(list, static_cast<int>(i), &column);
        ::SendMessageW(Item(VELT_ID_CALLS_ORDER), CB_ADDSTRING, 0,
                       reinterpret_cast<LPARAM>(kColumns[i].name));
    }
}

void CallsDialog::OnCommand(UINT command, UINT code)
{
    switch (command)
    {
    case VELT_ID_CALLS_ORDER:
        return code == CBN_SELCHANGE ? SortBy(static_cast<int>(::SendMessageW(
                                           Item(VELT_ID_CALLS_ORDER), CB_GETCURSEL, 0, 0)))
                                     : void();
    case VELT_ID_CALLS_REFRESH:
        return Collect();
    case VELT_ID_CALLS_SAVE:
        return Save();
    case VELT_ID_CALLS_GO:
        return Go();
    case IDCANCEL:
        ::DestroyWindow(m_window);
        return;
    default:
        return;
    }
}

void CallsDialog::OnNotify(LPARAM notification)
{
    NMHDR header;
    std::memcpy(&header, reinterpret_cast<const void*>(notification), sizeof(header));
    if (header.idFrom != VELT_ID_CALLS)
    {
        return;
    }
    if (header.code == LVN_COLUMNCLICK)
    {
        NMLISTVIEW click;
        std::memcpy(&click, reinterpret_cast<const void*>(notification), sizeof(click));
        SortBy(click.iSubItem);
    }
    else if (header.code == NM_DBLCLK)
    {
        Go();
    }
}

void CallsDialog::Collect()
{
    const WaitCursor wait;
    m_content = m_collect();
    ::SetWindowTextW(Item(VELT_ID_CALLS_ABOUT), WideFromUtf8(m_content.about).c_str());
    SortBy(static_cast<int>(m_order));
}

void CallsDialog::SortBy(int column)
{
    if (column < 0 || static_cast<std::size_t>(column) >= kColumns.size())
    {
        return;
    }
    m_order = static_cast<CallTimesOrder>(column);
    ::SendMessageW(Item(VELT_ID_CALLS_ORDER), CB_SETCURSEL, static_cast<WPARAM>(column), 0);
    Sort(m_content.times, m_order);
    Fill();
}

void CallsDialog::Fill()
{
    const HWND list = Item(VELT_ID_CALLS);
    ::SendMessageW(list, WM_SETREDRAW, FALSE, 0);
    ListView_DeleteAllItems(list);
    for (std::size_t row = 0; row < m_content.times.size(); ++row)
    {
        const CallTimes& times = m_content.times[row];
        const std::array<std::wstring, kColumns.size()> cells{
            WideFromUtf8(WithoutControls(times.name)), WideFromUtf8(FormatCount(times.count)),
            WideFromUtf8(FormatDuration(times.totalUs)), WideFromUtf8(FormatDuration(times.ownUs)),
            WideFromUtf8(FormatDuration(times.longestUs))};
        for (std::size_t i = 0; i < cells.size(); ++i)
        {
            LVITEMW cell{};
            cell.mask = LVIF_TEXT;
            cell.iItem = static_cast<int>(row);
            cell.iSubItem = static_cast<int>(i);
            cell.pszText = const_cast<wchar_t*>(cells[i].c_str());
            ::SendMessageW(list, i == 0 ? LVM_INSERTITEMW : LVM_SETITEMW, 0,
                           reinterpret_cast<LPARAM>(&cell));
        }
    }
    constexpr UINT kBoth = LVIS_SELECTED | LVIS_FOCUSED;
    ListView_SetItemState(list, 0, kBoth, kBoth);
    ::SendMessageW(list, WM_SETREDRAW, TRUE, 0);
    ::InvalidateRect(list, nullptr, TRUE);
    const BOOL any = m_content.times.empty() ? FALSE : TRUE;
    ::EnableWindow(Item(VELT_ID_CALLS_GO), any);
    ::EnableWindow(Item(VELT_ID_CALLS_SAVE), any);
}

void CallsDialog::Go()
{
    const int row = ListView_GetNextItem(Item(VELT_ID_CALLS), -1, LVNI_SELECTED);
    if (row >= 0 && static_cast<std::size_t>(row) < m_content.times.size())
    {
        m_go(m_content.times[static_cast<std::size_t>(row)].longest);
    }
}

void CallsDialog::Save()
{
    if (const std::optional<std::wstring> path = AskForFile(m_window, SavedKind::csv))
    {
        OutputFile file(*path);
        file.Write(CallTimesCsv(m_content.times));
        file.Commit();
    }
}
} // namespace velt
