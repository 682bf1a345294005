#pragma once

#include "tools/trace/text_pattern.h"
#include "tools/trace/trace_marks.h"
#include "tools/trace/trace_rule.h"
#include "tools/trace/trace_session.h"
#include "tools/trace/trace_view.h"
#include "tools/trace/window_look.h"

#include <windows.h>

#include <commctrl.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace velt
{
/// The list of records: a virtual list view over the rows of a TraceView. It keeps no record; what
/// it selects it remembers by sequence number while rows come and go.
class RecordList
{
public:
    /// Session, view and marks must outlive the list. Throws SystemException::Win32.
    RecordList(HWND parent, const TraceSession& session, TraceView& view, const TraceMarks& marks);

    HWND Window() const noexcept
    {
        return m_window;
    }

    /// The look must outlive its use here: until the next call.
    void SetLook(const WindowLook& look);

    /// Columns as settings keep them: widths at 96 dots an inch, and their order from the left.
    void SetColumns(const std::optional<std::vector<int>>& widths,
                    const std::optional<std::vector<int>>& order);
    std::vector<int> ColumnWidths() const;
    std::vector<int> ColumnOrder() const;

    /// Records with this in their text or source get another background, before those that a rule
    /// highlights; none for an empty part.
    void SetHighlight(TextPattern part);
    void SetRules(const TraceRules& rules);

    /// Shows the marks that are there now.
    void ShowMarks() noexcept;

    /// How many rows the window has room for.
    std::size_t RowsOnScreen() const noexcept;

    /// The row with the focus.
    std::optional<std::size_t> FocusedRow() const noexcept;

    /// Takes over the rows of the view after it has advanced. Throws std::bad_alloc.
    void Update(bool follow);

    /// Selects the record with the focus again as soon as another filter shows it. Call before the
    /// filter changes.
    void KeepFocus() noexcept;

    /// Selects one record alone and brings it into sight; false when the view does not show it.
    bool Select(std::uint64_t sequence);

    void SelectAll() noexcept;

    /// The record with the focus.
    std::optional<std::uint64_t> Focused() const noexcept;

    /// The selected records, oldest first. Throws std::bad_alloc.
    std::vector<std::uint64_t> Selected() const;

    std::size_t SelectedCount() const noexcept;

    /// The answer to a notification, if it is one that the list answers itself. The header is a
    /// copy of the front of what `notification` points to.
    std::optional<LRESULT> OnNotify(const NMHDR& header, LPARAM notification);

private:
    void SelectRow(std::size_t row, UINT state) noexcept;
    void Deselect() noexcept;
    void MoveSelection(std::size_t gone);
    void ScrollBack(std::size_t gone) noexcept;
    void OnText(LVITEMW& item);
    LRESULT OnDraw(NMLVCUSTOMDRAW& draw) const;
    COLORREF ColorOf(const TraceEntry& entry) const noexcept;
    std::optional<int> ColorBehind(const TraceEntry& entry) const noexcept;

    const TraceSession& m_session;
    TraceView& m_view;
    const TraceMarks& m_marks;
    HWND m_window;
    std::vector<int> m_widths; // at 96 dots an inch
    int m_dpi = 0;             // that they are shown with
    const WindowLook* m_look = nullptr;
    TextPattern m_highlight;
    TraceRules m_rules;
    std::optional<std::uint64_t> m_keep; // to be selected when it is shown
    std::wstring m_text;                 // of the last cell that was asked for
};
} // namespace velt
