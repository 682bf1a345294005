#include "tools/trace/record_list.h"

#include "foundation/system_exception.h"
#include "foundation/wide_text.h"
#include "tools/trace/dark_controls.h"
#include "tools/trace/resource_ids.h"
#include "tools/trace/trace_export.h"
#include "tools/trace/trace_filter.h"

#include <algorithm>
#include <utility>

namespace velt
{
namespace
{
struct Column
{
    const wchar_t* name;
    int width; // at 96 dots an inch
};

enum ColumnNumber
{
    kTime,
    kProcess,
    kLevel,
    kSource,
    kText,
};

constexpr std::array<Column, 5> kColumns{{
    {L"Time", 140},
    {L"Process", 170},
    {L"Level", 60},
    {L"Source", 90},
    {L"Text", 900},
}};

constexpr wchar_t kMarked[] = L"\u25BA ";
constexpr std::size_t kDateLength = 11; // "2026-11-21 "

// Beyond this many, a selection is not carried along when the oldest rows go.
constexpr std::size_t kMostMoved = 10'000;
} // namespace

RecordList::RecordList(HWND parent, const TraceSession& session, TraceView& view,
                       const TraceMarks& marks)
    : m_session(session),
      m_view(view),
      m_marks(marks),
      m_window(::CreateWindowExW(WS_EX_CLIENTEDGE, WC_LISTVIEWW, L"Trace records",
                                 WS_CHILD | WS_VISIBLE | WS_TABSTOP | LVS_REPORT | LVS_OWNERDATA |
                                     LVS_SHOWSELALWAYS,
                                 0, 0, 0, 0, parent, reinterpret_cast<HMENU>(VELT_ID_LIST),
                                 ::GetModuleHandleW(nullptr), nullptr))
{
    if (!m_window)
    {
        ThrowLastError();
    }
    ListView_SetExtendedListViewStyle(m_window, LVS_EX_FULLROWSELECT | LVS_EX_DOUBLEBUFFER |
                                                    LVS_EX_HEADERDRAGDROP | LVS_EX_LABELTIP);
    for (std::size_t i = 0; i < kColumns.size(); ++i)
    {
        LVCOLUMNW column{};
        column.mask = LVCF_TEXT | LVCF_SUBITEM; // a look gives the width
        column.pszText = const_cast<wchar_t*>(kColumns[i].name);
        column.iSubItem = static_cast<int>(i);
        ListView_InsertColumn(m_window, static_cast<int>(i), &column);
        m_widths.push_back(kColumns[i].width);
    }
}

void RecordList::SetLook(const WindowLook& look)
{
    if (m_dpi != 0)
    {
        m_widths = ColumnWidths(); // as the user has left them
    }
    m_dpi = look.Dpi();
    m_look = &look;
    ::SendMessageW(m_window, WM_SETFONT, reinterpret_cast<WPARAM>(look.FixedFont()), TRUE);
    for (std::size_t i = 0; i < m_widths.size(); ++i)
    {
        ListView_SetColumnWidth(m_window, static_cast<int>(i), look.Scaled(m_widths[i]));
    }
    const Palette& colors = look.Colors();
    ListView_SetBkColor(m_window, colors.window);
    ListView_SetTextBkColor(m_window, colors.window);
    ListView_SetTextColor(m_window, colors.text);
    look.ApplyTo(m_window);
    PaintByLook(m_window, look);
    ::InvalidateRect(m_window, nullptr, TRUE);
}

void RecordList::SetColumns(const std::optional<std::vector<int>>& widths,
                            const std::optional<std::vector<int>>& order)
{
    m_widths = widths && widths->size() == m_widths.size() ? *widths : m_widths;
    if (order && order->size() == m_widths.size())
    {
        std::vector<int> places = *order;
        ListView_SetColumnOrderArray(m_window, static_cast<int>(places.size()), places.data());
    }
}

std::vector<int> RecordList::ColumnWidths() const
{
    std::vector<int> widths(kColumns.size());
    for (std::size_t i = 0; i < widths.size(); ++i)
    {
        const int width = ListView_GetColumnWidth(m_window, static_cast<int>(i));
        // One that has not been moved stays what it was: there and back would round it.
        widths[i] =
            width == ::MulDiv(m_widths[i], m_dpi, 96) ? m_widths[i] : ::MulDiv(width, 96, m_dpi);
    }
    return widths;
}

std::vector<int> RecordList::ColumnOrder() const
{
    std::vector<int> order(kColumns.size());
    ListView_GetColumnOrderArray(m_window, static_cast<int>(order.size()), order.data());
    return order;
}

void RecordList::SetHighlight(TextPattern part)
{
    m_highlight = std::move(part);
    ::InvalidateRect(m_window, nullptr, FALSE);
}

void RecordList::SetRules(const TraceRules& rules)
{
    m_rules = rules;
    ::InvalidateRect(m_window, nullptr, FALSE);
}

void RecordList::ShowMarks() noexcept
{
    ::InvalidateRect(m_window, nullptr, FALSE);
}

void RecordList::Update(bool follow)
{
    const std::size_t gone = m_view.Trim();
    if (gone != 0)
    {
        MoveSelection(gone);
        if (!follow)
        {
            ScrollBack(gone);
        }
    }
    const auto size = static_cast<int>(m_view.Size());
    const int before = ListView_GetItemCount(m_window);
    if (size != before || gone != 0)
    {
        const bool grown = size >= before && gone == 0;
        ListView_SetItemCountEx(m_window, size,
                                LVSICF_NOSCROLL | (grown ? LVSICF_NOINVALIDATEALL : 0));
    }
    if (m_keep && Select(*m_keep))
    {
        m_keep.reset();
    }
    if (follow && (size > before || gone != 0) && size > 0)
    {
        ListView_EnsureVisible(m_window, size - 1, FALSE);
    }
}

void RecordList::KeepFocus() noexcept
{
    const std::optional<std::uint64_t> focused = Focused();
    m_keep = focused ? focused : m_keep;
    Deselect();
}

bool RecordList::Select(std::uint64_t sequence)
{
    const std::optional<std::size_t> row = m_view.RowOf(sequence);
    if (!row || static_cast<int>(*row) >= ListView_GetItemCount(m_window))
    {
        return false;
    }
    Deselect();
    SelectRow(*row, LVIS_SELECTED | LVIS_FOCUSED);
    ListView_EnsureVisible(m_window, static_cast<int>(*row), FALSE);
    return true;
}

void RecordList::SelectAll() noexcept
{
    ListView_SetItemState(m_window, -1, LVIS_SELECTED, LVIS_SELECTED);
}

std::size_t RecordList::RowsOnScreen() const noexcept
{
    return static_cast<std::size_t>(ListView_GetCountPerPage(m_window)) + 1; // the last one in part
}

std::optional<std::size_t> RecordList::FocusedRow() const noexcept
{
    const int row = ListView_GetNextItem(m_window, -1, LVNI_FOCUSED);
    return row >= 0 && static_cast<std::size_t>(row) < m_view.Size()
               ? std::optional(static_cast<std::size_t>(row))
               : std::nullopt;
}

std::optional<std::uint64_t> RecordList::Focused() const noexcept
{
    const std::optional<std::size_t> row = FocusedRow();
    return row ? std::optional(m_view.SequenceAt(*row)) : std::nullopt;
}

std::vector<std::uint64_t> RecordList::Selected() const
{
    std::vector<std::uint64_t> selected;
    for (int row = -1; (row = ListView_GetNextItem(m_window, row, LVNI_SELECTED)) >= 0;)
    {
        if (static_cast<std::size_t>(row) < m_view.Size())
        {
            selected.push_back(m_view.SequenceAt(static_cast<std::size_t>(row)));
        }
    }
    return selected;
}

std::size_t RecordList::SelectedCount() const noexcept
{
    return static_cast<std::size_t>(ListView_GetSelectedCount(m_window));
}

std::optional<LRESULT> RecordList::OnNotify(const NMHDR& header, LPARAM notification)
{
    if (header.hwndFrom != m_window)
    {
        return std::nullopt;
    }
    if (header.code == LVN_GETDISPINFOW)
    {
        OnText(reinterpret_cast<NMLVDISPINFOW*>(notification)->item);
        return 0;
    }
    if (header.code == NM_CUSTOMDRAW)
    {
        return OnDraw(*reinterpret_cast<NMLVCUSTOMDRAW*>(notification));
    }
    return std::nullopt;
}

void RecordList::SelectRow(std::size_t row, UINT state) noexcept
{
    ListView_SetItemState(m_window, static_cast<int>(row), state, state);
}

/// Takes selection and focus away row by row where they are few: told to do so for all rows, some
/// list views walk through a million.
void RecordList::Deselect() noexcept
{
    constexpr UINT kBoth = LVIS_SELECTED | LVIS_FOCUSED;
    std::size_t selected = SelectedCount();
    if (selected > kMostMoved)
    {
        ListView_SetItemState(m_window, -1, 0, kBoth);
        return;
    }
    if (const std::optional<std::size_t> row = FocusedRow())
    {
        ListView_SetItemState(m_window, static_cast<int>(*row), 0, LVIS_FOCUSED);
    }
    for (int row = -1;
         selected > 0 && (row = ListView_GetNextItem(m_window, row, LVNI_SELECTED)) >= 0;
         --selected)
    {
        ListView_SetItemState(m_window, row, 0, LVIS_SELECTED);
    }
}

void RecordList::MoveSelection(std::size_t gone)
{
    // The list view knows rows only: what is selected stays where its record goes.
    std::vector<int> rows;
    const int focused = ListView_GetNextItem(m_window, -1, LVNI_FOCUSED);
    for (int row = -1; rows.size() < kMostMoved &&
                       (row = ListView_GetNextItem(m_window, row, LVNI_SELECTED)) >= 0;)
    {
        rows.push_back(row);
    }
    Deselect();
    const auto moved = static_cast<int>(gone);
    for (const int row : rows)
    {
        if (row >= moved)
        {
            SelectRow(static_cast<std::size_t>(row - moved), LVIS_SELECTED);
        }
    }
    if (focused >= moved)
    {
        SelectRow(static_cast<std::size_t>(focused - moved), LVIS_FOCUSED);
    }
}

void RecordList::ScrollBack(std::size_t gone) noexcept
{
    const auto moved = static_cast<int>(gone);
    const int top = ListView_GetTopIndex(m_window);
    RECT bounds{};
    if (ListView_GetItemRect(m_window, top, &bounds, LVIR_BOUNDS))
    {
        ListView_Scroll(m_window, 0, -std::min(moved, top) * (bounds.bottom - bounds.top));
    }
}

void RecordList::OnText(LVITEMW& item)
{
    if ((item.mask & LVIF_TEXT) == 0 || item.iItem < 0 ||
        static_cast<std::size_t>(item.iItem) >= m_view.Size())
    {
        return;
    }
    const std::uint64_t sequence = m_view.SequenceAt(static_cast<std::size_t>(item.iItem));
    if (sequence < m_session.Store().First())
    {
        return; // dropped since the last update
    }
    const TraceEntry entry = m_session.Store().At(sequence);
    switch (item.iSubItem)
    {
    case kTime:
        // Before it, so that a mark can be seen in every colour and heard.
        m_text = (m_marks.Has(sequence) ? kMarked : L"") +
                 WideFromUtf8(FormatArrival(entry.arrivalUs).substr(kDateLength));
        break;
    case kProcess:
        m_text = WideFromUtf8(m_session.Process(entry));
        break;
    case kLevel:
        m_text = WideFromUtf8(FormatLevel(entry));
        break;
    case kSource:
        m_text = WideFromUtf8(WithoutControls(entry.source));
        break;
    default:
        m_text = WideFromUtf8(WithoutControls(entry.text));
        break;
    }
    item.pszText = m_text.data(); // read before the next question
}

LRESULT RecordList::OnDraw(NMLVCUSTOMDRAW& draw) const
{
    if (draw.nmcd.dwDrawStage == CDDS_PREPAINT)
    {
        return CDRF_NOTIFYITEMDRAW;
    }
    const std::size_t row = draw.nmcd.dwItemSpec;
    if (draw.nmcd.dwDrawStage != CDDS_ITEMPREPAINT || row >= m_view.Size() ||
        m_view.SequenceAt(row) < m_session.Store().First())
    {
        return CDRF_DODEFAULT;
    }
    const TraceEntry entry = m_session.Store().At(m_view.SequenceAt(row));
    const std::optional<int> highlight = ColorBehind(entry);
    if (m_look->IsHighContrast())
    {
        if (!highlight)
        {
            return CDRF_DODEFAULT;
        }
        draw.clrText = ::GetSysColor(COLOR_HOTLIGHT); // the one other colour that fits there
        return CDRF_NEWFONT;
    }
    draw.clrText = ColorOf(entry);
    if (highlight)
    {
        draw.clrTextBk = m_look->Colors().highlights[static_cast<std::size_t>(*highlight)];
        const bool plain = entry.level > 3 && entry.fault == TraceRecordFault::none;
        draw.clrText = plain && !m_look->IsDark() ? RGB(0, 0, 0) : draw.clrText;
    }
    return CDRF_NEWFONT;
}

COLORREF RecordList::ColorOf(const TraceEntry& entry) const noexcept
{
    const Palette& colors = m_look->Colors();
    if (entry.fault != TraceRecordFault::none)
    {
        return colors.malformed;
    }
    return entry.level <= 1 ? colors.error : entry.level <= 3 ? colors.detail : colors.text;
}

std::optional<int> RecordList::ColorBehind(const TraceEntry& entry) const noexcept
{
    if (!m_highlight.IsEmpty() && (m_highlight.IsIn(entry.text) || m_highlight.IsIn(entry.source)))
    {
        return 0;
    }
    return HighlightOf(m_rules, entry, m_session.Process(entry));
}
} // namespace velt
