#pragma once

#include "tools/trace/trace_rule.h"
#include "tools/trace/window_look.h"

#include <windows.h>

#include <functional>
#include <optional>
#include <string>
#include <utility>

namespace velt
{
/// The window where filters and highlights are switched, added, changed and removed. It stays open
/// beside the main window, which hears of every change at once.
class RulesDialog
{
public:
    using Changed = std::function<void(const TraceRules& rules)>;

    explicit RulesDialog(Changed changed) : m_changed(std::move(changed)) {}

    RulesDialog(const RulesDialog&) = delete;
    RulesDialog& operator=(const RulesDialog&) = delete;

    ~RulesDialog();

    /// Shows it, with these rules unless it is open already. Throws SystemException::Win32.
    void Show(HWND owner, const TraceRules& rules);

    /// The look must outlive its use here: until the next call.
    void SetLook(const WindowLook& look) noexcept;

    /// Whether a message was for one of its controls.
    bool Takes(MSG& message) const noexcept
    {
        return m_window && ::IsDialogMessageW(m_window, &message);
    }

private:
    static INT_PTR CALLBACK DialogProc(HWND window, UINT message, WPARAM wParam,
                                       LPARAM lParam) noexcept;
    INT_PTR Handle(UINT message, WPARAM wParam, LPARAM lParam);
    void Build();
    void OnCommand(UINT command);
    void OnNotify(LPARAM notification);
    void Add();
    void Change();
    void Remove();

    HWND Item(int id) const noexcept
    {
        return ::GetDlgItem(m_window, id);
    }

    std::string TextOf(int id) const;
    std::optional<TraceRule> RuleFromFields() const;
    void ShowInFields(const TraceRule& rule) const;
    void ShowRow(std::size_t row, const TraceRule& rule);
    void InsertRow(std::size_t row);
    std::optional<std::size_t> SelectedRow() const noexcept;
    void SelectRow(std::size_t row) const noexcept;
    void EnableButtons() const noexcept;
    void Tell() const;

    Changed m_changed;
    TraceRules m_rules;
    HWND m_window = nullptr;
    const WindowLook* m_look = nullptr;
    bool m_filling = false; // what the list tells meanwhile is our own doing
};
} // namespace velt
