#include "tests/tools/trace/viewer_input.h"

#include "tests/support/eventually.h"
#include "tests/support/keyboard.h"

#include <array>
#include <stdexcept>
#include <vector>

namespace velt::test
{
namespace
{
/// What has dropped down of a menu; null when nothing has.
HWND OpenMenu() noexcept
{
    const HWND menu = ::FindWindowW(L"#32768", nullptr);
    return ::IsWindowVisible(menu) ? menu : nullptr;
}

/// Whether a window's keys go to its menu.
bool IsInMenu(HWND window) noexcept
{
    GUITHREADINFO info{};
    info.cbSize = sizeof(info);
    ::GetGUIThreadInfo(::GetWindowThreadProcessId(window, nullptr), &info);
    return (info.flags & (GUI_POPUPMENUMODE | GUI_INMENUMODE)) != 0;
}
} // namespace

void Press(HWND window, std::initializer_list<WORD> keys)
{
    // In front is not yet awake: until its thread has seen that, keys go where the focus was.
    const auto isAwake = [&] {
        if (::GetForegroundWindow() != window)
        {
            ::SetForegroundWindow(window);
        }
        const HWND focus = FocusOf(window);
        return focus == window || ::IsChild(window, focus);
    };
    if (!Eventually(isAwake))
    {
        throw std::runtime_error("the window does not come to the front");
    }
    SendKeys(keys);
}

HWND OpenViewMenu(HWND window)
{
    constexpr DWORD kPatienceMs = 3'000;
    HWND menu = nullptr;
    const bool isThere = Eventually([&] { // where keys are lost, a user presses once more
        CloseMenu(window);
        Press(window, {VK_MENU, 'V'});
        return Eventually([&] { return IsInMenu(window) && (menu = OpenMenu()) != nullptr; },
                          kPatienceMs);
    });
    return isThere ? menu : nullptr;
}

void CloseMenu(HWND window)
{
    ::SendMessageW(window, WM_CANCELMODE, 0, 0);
    if (!Eventually([&] { return !IsInMenu(window) && !OpenMenu(); }))
    {
        throw std::runtime_error("the menu stays open");
    }
}

void ClickAt(HWND window, const POINT& place)
{
    ::SetCursorPos(static_cast<int>(place.x), static_cast<int>(place.y));
    const bool isThere = Eventually([&] {
        POINT at{};
        return ::GetCursorPos(&at) && at.x == place.x && at.y == place.y &&
               ::WindowFromPoint(at) == window;
    });
    std::array<INPUT, 2> inputs{};
    inputs[0].type = INPUT_MOUSE;
    inputs[0].mi.dwFlags = MOUSEEVENTF_LEFTDOWN;
    inputs[1].type = INPUT_MOUSE;
    inputs[1].mi.dwFlags = MOUSEEVENTF_LEFTUP;
    if (!isThere || ::SendInput(static_cast<UINT>(inputs.size()), inputs.data(), sizeof(INPUT)) !=
                        inputs.size())
    {
        throw std::runtime_error("no mouse");
    }
}

HWND FocusOf(HWND window) noexcept
{
    GUITHREADINFO info{};
    info.cbSize = sizeof(info);
    ::GetGUIThreadInfo(::GetWindowThreadProcessId(window, nullptr), &info);
    return info.hwndFocus;
}

HWND DialogOf(DWORD processId, HWND other)
{
    HWND dialog = nullptr;
    while ((dialog = ::FindWindowExW(nullptr, dialog, L"#32770", nullptr)) != nullptr)
    {
        DWORD owner = 0;
        ::GetWindowThreadProcessId(dialog, &owner);
        if (owner == processId && dialog != other && ::IsWindowVisible(dialog))
        {
            return dialog;
        }
    }
    return nullptr;
}

HWND OpenDialog(const ViewerProcess& viewer, int command)
{
    ::PostMessageW(viewer.Window(), WM_COMMAND, static_cast<WPARAM>(command), 0);
    HWND dialog = nullptr;
    Eventually([&] { return (dialog = DialogOf(viewer.Id())) != nullptr; });
    return dialog;
}

HWND NameFile(DWORD processId, const std::wstring& path, HWND other)
{
    constexpr int kNameField = 0x47C;    // cmb13: a combo box, with an edit field inside
    constexpr int kOldNameField = 0x480; // edt1
    HWND dialog = nullptr;
    HWND field = nullptr;
    const bool there = Eventually([&] {
        dialog = DialogOf(processId, other);
        field = dialog ? ::GetDlgItem(dialog, kNameField) : nullptr;
        field = dialog && !field ? ::GetDlgItem(dialog, kOldNameField) : field;
        return field != nullptr;
    });
    if (!there)
    {
        return nullptr;
    }
    ::SendMessageW(field, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(path.c_str()));
    ::PostMessageW(dialog, WM_COMMAND, IDOK, 0);
    return dialog;
}

HWND BoxOf(DWORD processId, std::wstring& text)
{
    constexpr int kMessageText = 0xFFFF;
    HWND box = nullptr;
    while ((box = ::FindWindowExW(nullptr, box, L"#32770", nullptr)) != nullptr)
    {
        DWORD owner = 0;
        ::GetWindowThreadProcessId(box, &owner);
        const HWND message = owner == processId && ::IsWindowVisible(box) &&
                                     (::GetDlgItem(box, IDOK) || ::GetDlgItem(box, IDYES))
                                 ? ::GetDlgItem(box, kMessageText)
                                 : nullptr;
        if (message)
        {
            std::vector<wchar_t> characters(1000);
            const LRESULT length = ::SendMessageW(message, WM_GETTEXT, characters.size(),
                                                  reinterpret_cast<LPARAM>(characters.data()));
            text.assign(characters.data(), static_cast<std::size_t>(length));
            return box;
        }
    }
    return nullptr;
}
} // namespace velt::test
