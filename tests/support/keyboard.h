#pragma once

#include <windows.h>

#include <cstddef>
#include <stdexcept>
#include <vector>

namespace velt::test
{
/// Presses keys together, as a keyboard does: the first one goes down first and comes up last. They
/// go to the window that has the focus. Throws std::runtime_error where the system takes none.
inline void SendKeys(const std::vector<WORD>& keys)
{
    std::vector<INPUT> inputs;
    for (const WORD key : keys)
    {
        INPUT input{};
        input.type = INPUT_KEYBOARD;
        input.ki.wVk = key;
        input.ki.wScan = static_cast<WORD>(::MapVirtualKeyW(key, MAPVK_VK_TO_VSC));
        inputs.push_back(input);
    }
    for (std::size_t left = keys.size(); left > 0; --left)
    {
        inputs.push_back(inputs[left - 1]);
        inputs.back().ki.dwFlags = KEYEVENTF_KEYUP;
    }
    if (::SendInput(static_cast<UINT>(inputs.size()), inputs.data(), sizeof(INPUT)) !=
        inputs.size())
    {
        throw std::runtime_error("no keyboard");
    }
}
} // namespace velt::test
