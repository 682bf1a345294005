#include "tools/trace/command_bar.h"

#include "foundation/system_exception.h"
#include "tools/trace/resource_ids.h"

#include <commctrl.h>

#include <array>

namespace velt
{
namespace
{
struct Button
{
    UINT command;
    const wchar_t* text;
    BYTE style;
};
constexpr std::array<Button, 8> kButtons{{
    {VELT_COMMAND_PAUSE, L"Pause", BTNS_CHECK},
    {VELT_COMMAND_FOLLOW, L"Follow", BTNS_CHECK},
    {VELT_COMMAND_CLEAR, L"Clear", BTNS_BUTTON},
    {0, nullptr, BTNS_SEP},
    {VELT_COMMAND_COPY, L"Copy", BTNS_BUTTON},
    {VELT_COMMAND_SAVE, L"Save", BTNS_BUTTON},
    {0, nullptr, BTNS_SEP},
    {VELT_COMMAND_JUMP, L"Entry / exit", BTNS_BUTTON},
}};
} // namespace

HWND MakeCommandBar(HWND parent)
{
    const HWND toolbar = ::CreateWindowExW(
        0, TOOLBARCLASSNAMEW, L"Commands",
        WS_CHILD | WS_VISIBLE | TBSTYLE_FLAT | TBSTYLE_LIST | CCS_NODIVIDER, 0, 0, 0, 0, parent,
        reinterpret_cast<HMENU>(VELT_ID_TOOLBAR), ::GetModuleHandleW(nullptr), nullptr);
    if (!toolbar)
    {
        ThrowLastError();
    }
    ::SendMessageW(toolbar, TB_BUTTONSTRUCTSIZE, sizeof(TBBUTTON), 0);
    ::SendMessageW(toolbar, TB_SETBITMAPSIZE, 0, 0); // the words say it
    std::array<TBBUTTON, kButtons.size()> buttons{};
    for (std::size_t i = 0; i < buttons.size(); ++i)
    {
        buttons[i].iBitmap = I_IMAGENONE;
        buttons[i].idCommand = static_cast<int>(kButtons[i].command);
        buttons[i].fsState = TBSTATE_ENABLED;
        buttons[i].fsStyle = static_cast<BYTE>(kButtons[i].style | BTNS_AUTOSIZE);
        buttons[i].iString = reinterpret_cast<INT_PTR>(kButtons[i].text);
    }
    ::SendMessageW(toolbar, TB_ADDBUTTONSW, buttons.size(),
                   reinterpret_cast<LPARAM>(buttons.data()));
    return toolbar;
}
} // namespace velt
