#include "tools/trace/calls_dialog.h"

#include "foundation/wide_text.h"
#include "tools/common/output_file.h"
#include "tools/trace/resource_ids.h"
#include "tools/trace/row_saver.h"
#include "tools/trace/trace_export.h"

#include <commctrl.h>

#include <array>
#include <cstring>
#include <optional>
#include <utility>

namespace velt
{
namespace
{
// In the order of CallTimesOrder.
constexpr std::array<ListColumn, 5> kColumns{{{L"Function", 160},
                                              {L"Count", 40, LVCFMT_RIGHT},
                                              {L"Total", 60, LVCFMT_RIGHT},
                                              {L"Own", 60, LVCFMT_RIGHT},
                                              {L"Longest", 60, LVCFMT_RIGHT}}};
} // namespace

void CallsDialog::Show(HWND owner)
{
    if (!Window())
    {
        Create(owner);
    }
    Collect();
    BringToFront();
    ::SetFocus(Item(VELT_ID_CALLS));
}

void CallsDialog::Build()
{
    ListView_SetExtendedListViewStyle(List(), LVS_EX_FULLROWSELECT | LVS_EX_LABELTIP);
    InsertColumns(kColumns);
    for (const ListColumn& column : kColumns)
    {
        ::SendMessageW(Item(VELT_ID_CALLS_ORDER), CB_ADDSTRING, 0,
                       reinterpret_cast<LPARAM>(column.name));
    }
}

void CallsDialog::OnClosed()
{
    m_content = {};
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
        ::DestroyWindow(Window());
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
    ::SetWindowTextW(Item(VELT_ID_CALLS_ABOUT), L"adding up...");
    m_collect();
}

void CallsDialog::SetContent(Content content)
{
    if (Window())
    {
        m_content = std::move(content);
        ::SetWindowTextW(Item(VELT_ID_CALLS_ABOUT), WideFromUtf8(m_content.about).c_str());
        SortBy(static_cast<int>(m_order));
    }
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
    if (const std::optional<std::wstring> path = AskForFile(Window(), SavedKind::csv))
    {
        OutputFile file(*path);
        file.Write(CallTimesCsv(m_content.times));
        file.Commit();
    }
}
} // namespace velt
