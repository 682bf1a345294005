#include "tests/tools/trace/viewer_input.h"

#include "tests/support/eventually.h"

#include <iterator>
#include <stdexcept>
#include <vector>

namespace velt::test
{
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
    std::vector<INPUT> inputs;
    for (const WORD key : keys)
    {
        INPUT input{};
        input.type = INPUT_KEYBOARD;
        input.ki.wVk = key;
        inputs.push_back(input);
    }
    for (auto key = std::rbegin(keys); key != std::rend(keys); ++key)
    {
        INPUT input{};
        input.type = INPUT_KEYBOARD;
        input.ki.wVk = *key;
        input.ki.dwFlags = KEYEVENTF_KEYUP;
        inputs.push_back(input);
    }
    ::SendInput(static_cast<UINT>(inputs.size()), inputs.data(), sizeof(INPUT));
}

HWND FocusOf(HWND window) noexcept
{
    GUITHREADINFO info{};
    info.cbSize = sizeof(info);
    ::GetGUIThreadInfo(::GetWindowThreadProcessId(window, nullptr), &info);
    return info.hwndFocus;
}

HWND DialogOf(DWORD processId)
{
    HWND dialog = nullptr;
    while ((dialog = ::FindWindowExW(nullptr, dialog, L"#32770", nullptr)) != nullptr)
    {
        DWORD owner = 0;
        ::GetWindowThreadProcessId(dialog, &owner);
        if (owner == processId && ::IsWindowVisible(dialog))
        {
            return dialog;
        }
    }
    return nullptr;
}
} // namespace velt::test
