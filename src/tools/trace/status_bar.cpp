#include "tools/trace/status_bar.h"

#include "foundation/system_exception.h"
#include "foundation/wide_text.h"
#include "tools/trace/resource_ids.h"
#include "tools/trace/trace_export.h"

#include <commctrl.h>

#include <algorithm>

namespace velt
{
namespace
{
enum Part : std::size_t
{
    kRecords,
    kShown,
    kGone,
    kMalformed,
    kSelection,
};
constexpr std::array<int, 5> kWidths{150, 150, 260, 130, -1};
} // namespace

StatusBar::StatusBar(HWND parent)
    : m_window(::CreateWindowExW(0, STATUSCLASSNAMEW, L"", WS_CHILD | WS_VISIBLE | SBARS_SIZEGRIP,
                                 0, 0, 0, 0, parent, reinterpret_cast<HMENU>(VELT_ID_STATUS),
                                 ::GetModuleHandleW(nullptr), nullptr))
{
    if (!m_window)
    {
        ThrowLastError();
    }
}

void StatusBar::SetLook(const WindowLook& look)
{
    ::SendMessageW(m_window, WM_SETFONT, reinterpret_cast<WPARAM>(look.Font()), TRUE);
    std::array<int, kWidths.size()> edges{};
    int edge = 0;
    std::transform(kWidths.begin(), kWidths.end(), edges.begin(),
                   [&](int width) { return width < 0 ? -1 : edge += look.Scaled(width); });
    ::SendMessageW(m_window, SB_SETPARTS, edges.size(), reinterpret_cast<LPARAM>(edges.data()));
}

void StatusBar::ShowCounts(const TraceSession& session, std::size_t shown, const std::string& state)
{
    const TraceStore& store = session.Store();
    Set(kRecords, FormatCount(store.Size()) + " records");
    Set(kShown, FormatCount(shown) + " shown" + state);
    std::string gone = store.Dropped() == 0 ? std::string("none dropped")
                                            : FormatCount(store.Dropped()) + " oldest dropped";
    if (session.Lost() != 0)
    {
        gone += ", " + FormatCount(session.Lost()) + " lost";
    }
    if (session.Forgotten() != 0)
    {
        gone += ", " + FormatCount(session.Forgotten()) + " forgotten";
    }
    Set(kGone, gone);
    Set(kMalformed, FormatCount(session.Malformed()) + " malformed");
}

void StatusBar::Say(const std::string& text)
{
    Set(kSelection, text);
}

void StatusBar::Set(std::size_t part, const std::string& text)
{
    std::string& shown = m_texts[part];
    if (shown != text)
    {
        shown = text;
        ::SendMessageW(m_window, SB_SETTEXTW, part,
                       reinterpret_cast<LPARAM>(WideFromUtf8(text).c_str()));
    }
}
} // namespace velt
