#include "tools/trace/rules_dialog.h"

#include "foundation/wide_text.h"
#include "tools/trace/resource_ids.h"

#include <commctrl.h>

#include <array>
#include <charconv>
#include <cstring>
#include <vector>

namespace velt
{
namespace
{
struct KindChoice
{
    TraceRuleKind kind;
    int color;
    const wchar_t* name;
};

constexpr std::array<KindChoice, 8> kKinds{{
    {TraceRuleKind::include, 0, L"Show only"},
    {TraceRuleKind::exclude, 0, L"Hide"},
    {TraceRuleKind::forget, 0, L"Hide and forget"},
    {TraceRuleKind::highlight, 0, L"Highlight yellow"},
    {TraceRuleKind::highlight, 1, L"Highlight green"},
    {TraceRuleKind::highlight, 2, L"Highlight blue"},
    {TraceRuleKind::highlight, 3, L"Highlight red"},
    {TraceRuleKind::highlight, 4, L"Highlight violet"},
}};

constexpr std::array<ListColumn, 5> kColumns{
    {{L"What", 80}, {L"Text", 110}, {L"Level", 30}, {L"Source", 60}, {L"Process", 70}}};

std::size_t KindOf(const TraceRule& rule) noexcept
{
    for (std::size_t i = 0; i < kKinds.size(); ++i)
    {
        const bool same = kKinds[i].kind == rule.kind;
        if (same && (rule.kind != TraceRuleKind::highlight || kKinds[i].color == rule.color))
        {
            return i;
        }
    }
    return 0;
}
} // namespace

void RulesDialog::Show(HWND owner, const TraceRules& rules)
{
    if (!Window())
    {
        m_rules = rules;
        Create(owner);
    }
    BringToFront();
}

void RulesDialog::Build()
{
    ListView_SetExtendedListViewStyle(List(), LVS_EX_FULLROWSELECT | LVS_EX_CHECKBOXES);
    InsertColumns(kColumns);
    for (const KindChoice& choice : kKinds)
    {
        ::SendMessageW(Item(VELT_ID_RULE_KIND), CB_ADDSTRING, 0,
                       reinterpret_cast<LPARAM>(choice.name));
    }
    ::SendMessageW(Item(VELT_ID_RULE_KIND), CB_SETCURSEL, 0, 0);
    for (std::size_t row = 0; row < m_rules.size(); ++row)
    {
        InsertRow(row);
    }
    EnableButtons();
}

void RulesDialog::OnCommand(UINT command, UINT)
{
    switch (command)
    {
    case VELT_ID_RULE_ADD:
        return Add();
    case VELT_ID_RULE_CHANGE:
        return Change();
    case VELT_ID_RULE_REMOVE:
        return Remove();
    case IDCANCEL:
        ::DestroyWindow(Window());
        return;
    default:
        return;
    }
}

void RulesDialog::OnNotify(LPARAM notification)
{
    NMHDR header;
    std::memcpy(&header, reinterpret_cast<const void*>(notification), sizeof(header));
    if (header.idFrom != VELT_ID_RULES)
    {
        return;
    }
    if (header.code == LVN_KEYDOWN)
    {
        NMLVKEYDOWN key; // not aligned everywhere
        std::memcpy(&key, reinterpret_cast<const void*>(notification), sizeof(key));
        return key.wVKey == VK_DELETE ? Remove() : void();
    }
    if (header.code != LVN_ITEMCHANGED || m_filling)
    {
        return;
    }
    NMLISTVIEW change;
    std::memcpy(&change, reinterpret_cast<const void*>(notification), sizeof(change));
    const auto row = static_cast<std::size_t>(change.iItem);
    if (change.iItem < 0 || row >= m_rules.size())
    {
        return;
    }
    if (((change.uNewState ^ change.uOldState) & LVIS_STATEIMAGEMASK) != 0)
    {
        m_rules[row].on = ListView_GetCheckState(Item(VELT_ID_RULES), change.iItem) != 0;
        Tell();
    }
    if ((change.uNewState & ~change.uOldState & LVIS_SELECTED) != 0)
    {
        ShowInFields(m_rules[row]);
    }
    EnableButtons();
}

void RulesDialog::Add()
{
    if (const std::optional<TraceRule> rule = RuleFromFields())
    {
        m_rules.push_back(*rule);
        InsertRow(m_rules.size() - 1);
        SelectRow(m_rules.size() - 1);
        Tell();
    }
}

void RulesDialog::Change()
{
    const std::optional<std::size_t> row = SelectedRow();
    const std::optional<TraceRule> rule = row ? RuleFromFields() : std::nullopt;
    if (rule)
    {
        const bool on = m_rules[*row].on;
        m_rules[*row] = *rule;
        m_rules[*row].on = on;
        ShowRow(*row, m_rules[*row]);
        Tell();
    }
}

void RulesDialog::Remove()
{
    const std::optional<std::size_t> row = SelectedRow();
    if (!row)
    {
        ::MessageBeep(MB_OK);
        return;
    }
    m_filling = true;
    ListView_DeleteItem(Item(VELT_ID_RULES), static_cast<int>(*row));
    m_filling = false;
    m_rules.erase(m_rules.begin() + static_cast<std::ptrdiff_t>(*row));
    if (!m_rules.empty())
    {
        SelectRow(*row < m_rules.size() ? *row : *row - 1);
    }
    EnableButtons();
    Tell();
}

std::string RulesDialog::TextOf(int id) const
{
    std::vector<wchar_t> text(static_cast<std::size_t>(::GetWindowTextLengthW(Item(id))) + 1);
    const int length = ::GetWindowTextW(Item(id), text.data(), static_cast<int>(text.size()));
    return Utf8FromWide({text.data(), static_cast<std::size_t>(length)});
}

/// None, and the field that is wrong gets the focus, for a rule that would mean everything or whose
/// level is no number.
std::optional<TraceRule> RulesDialog::RuleFromFields() const
{
    TraceRule rule;
    const LRESULT chosen = ::SendMessageW(Item(VELT_ID_RULE_KIND), CB_GETCURSEL, 0, 0);
    const KindChoice& kind = kKinds[chosen >= 0 ? static_cast<std::size_t>(chosen) : 0];
    rule.kind = kind.kind;
    rule.color = kind.color;
    rule.text = TextOf(VELT_ID_RULE_TEXT);
    rule.source = TextOf(VELT_ID_RULE_SOURCE);
    rule.process = TextOf(VELT_ID_RULE_PROCESS);
    const std::string level = TextOf(VELT_ID_RULE_LEVEL);
    int wrong = 0;
    if (!level.empty())
    {
        std::int32_t number = 0;
        const char* const last = level.data() + level.size();
        const auto [end, error] = std::from_chars(level.data(), last, number);
        wrong = error != std::errc() || end != last ? VELT_ID_RULE_LEVEL : 0;
        rule.level = number;
    }
    if (rule.MeansAll())
    {
        wrong = VELT_ID_RULE_TEXT;
    }
    if (wrong != 0)
    {
        ::MessageBeep(MB_OK);
        ::SetWindowTextW(Item(VELT_ID_RULE_SAYS), wrong == VELT_ID_RULE_LEVEL
                                                      ? L"The level is a number."
                                                      : L"Say what the records have.");
        ::SendMessageW(Window(), WM_NEXTDLGCTL, reinterpret_cast<WPARAM>(Item(wrong)), TRUE);
        return std::nullopt;
    }
    ::SetWindowTextW(Item(VELT_ID_RULE_SAYS), L"");
    return rule;
}

void RulesDialog::ShowInFields(const TraceRule& rule) const
{
    ::SendMessageW(Item(VELT_ID_RULE_KIND), CB_SETCURSEL, KindOf(rule), 0);
    const std::wstring level = rule.level ? std::to_wstring(*rule.level) : L"";
    ::SetWindowTextW(Item(VELT_ID_RULE_LEVEL), level.c_str());
    ::SetWindowTextW(Item(VELT_ID_RULE_TEXT), WideFromUtf8(rule.text.Text()).c_str());
    ::SetWindowTextW(Item(VELT_ID_RULE_SOURCE), WideFromUtf8(rule.source.Text()).c_str());
    ::SetWindowTextW(Item(VELT_ID_RULE_PROCESS), WideFromUtf8(rule.process.Text()).c_str());
}

void RulesDialog::ShowRow(std::size_t row, const TraceRule& rule)
{
    const std::array<std::wstring, kColumns.size()> cells{
        kKinds[KindOf(rule)].name, WideFromUtf8(rule.text.Text()),
        rule.level ? std::to_wstring(*rule.level) : L"", WideFromUtf8(rule.source.Text()),
        WideFromUtf8(rule.process.Text())};
    const HWND list = Item(VELT_ID_RULES);
    for (std::size_t i = 0; i < cells.size(); ++i)
    {
        LVITEMW cell{};
        cell.iSubItem = static_cast<int>(i);
        cell.pszText = const_cast<wchar_t*>(cells[i].c_str());
        ::SendMessageW(list, LVM_SETITEMTEXTW, row, reinterpret_cast<LPARAM>(&cell));
    }
    m_filling = true;
    ListView_SetCheckState(list, static_cast<int>(row), rule.on);
    m_filling = false;
}

void RulesDialog::InsertRow(std::size_t row)
{
    m_filling = true;
    LVITEMW item{};
    item.iItem = static_cast<int>(row);
    ListView_InsertItem(Item(VELT_ID_RULES), &item);
    m_filling = false;
    ShowRow(row, m_rules[row]);
}

std::optional<std::size_t> RulesDialog::SelectedRow() const noexcept
{
    const int row = ListView_GetNextItem(Item(VELT_ID_RULES), -1, LVNI_SELECTED);
    return row >= 0 && static_cast<std::size_t>(row) < m_rules.size()
               ? std::optional(static_cast<std::size_t>(row))
               : std::nullopt;
}

void RulesDialog::SelectRow(std::size_t row) const noexcept
{
    constexpr UINT kBoth = LVIS_SELECTED | LVIS_FOCUSED;
    const HWND list = Item(VELT_ID_RULES);
    ListView_SetItemState(list, static_cast<int>(row), kBoth, kBoth);
    ListView_EnsureVisible(list, static_cast<int>(row), FALSE);
}

void RulesDialog::EnableButtons() const noexcept
{
    const BOOL chosen = SelectedRow() ? TRUE : FALSE;
    const HWND focus = ::GetFocus();
    for (const int id : {VELT_ID_RULE_CHANGE, VELT_ID_RULE_REMOVE})
    {
        if (!chosen && focus == Item(id))
        {
            ::SetFocus(Item(VELT_ID_RULES)); // a window that is disabled keeps no keyboard
        }
        ::EnableWindow(Item(id), chosen);
    }
}

void RulesDialog::Tell() const
{
    m_changed(m_rules);
}
} // namespace velt
