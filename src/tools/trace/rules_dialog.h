#pragma once

#include "tools/trace/list_dialog.h"
#include "tools/trace/resource_ids.h"
#include "tools/trace/trace_rule.h"

#include <windows.h>

#include <functional>
#include <optional>
#include <string>
#include <utility>

namespace velt
{
/// The window where filters and highlights are switched, added, changed and removed. It stays open
/// beside the main window, which hears of every change at once.
class RulesDialog final : public ListDialog
{
public:
    using Changed = std::function<void(const TraceRules& rules)>;

    explicit RulesDialog(Changed changed)
        : ListDialog(VELT_RULES_DIALOG, VELT_ID_RULES),
          m_changed(std::move(changed))
    {
    }

    /// Shows it, with these rules unless it is open already. Throws SystemException::Win32.
    void Show(HWND owner, const TraceRules& rules);

private:
    void Build() override;
    void OnCommand(UINT command, UINT code) override;
    void OnNotify(LPARAM notification) override;

    void Add();
    void Change();
    void Remove();

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
    bool m_filling = false; // what the list tells meanwhile is our own doing
};
} // namespace velt
