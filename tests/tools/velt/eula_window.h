#pragma once

#include "tests/support/test_thread.h"
#include "ui/resources/resource_ids.h"

#include <windows.h>

#include <string>
#include <vector>

namespace velt::test
{
/// The top-level windows of a process.
inline std::vector<HWND> WindowsOf(DWORD processId)
{
    struct Search
    {
        DWORD processId;
        std::vector<HWND> windows;

        static BOOL CALLBACK Add(HWND window, LPARAM search) noexcept
        {
            auto& self = *reinterpret_cast<Search*>(search);
            DWORD owner = 0;
            ::GetWindowThreadProcessId(window, &owner);
            if (owner == self.processId)
            {
                self.windows.push_back(window);
            }
            return TRUE;
        }
    };
    Search search{processId, {}};
    ::EnumWindows(&Search::Add, reinterpret_cast<LPARAM>(&search));
    return search.windows;
}

/// The button that accepts, in the licence dialog of another process, once its text begins like
/// this; null when that does not come.
inline HWND AwaitAcceptButton(DWORD processId, const std::wstring& caption)
{
    const ULONGLONG limit = ::GetTickCount64() + kWaitLimitMs;
    while (::GetTickCount64() < limit)
    {
        for (const HWND window : WindowsOf(processId))
        {
            const HWND button = ::GetDlgItem(window, VELT_EULA_ACCEPT);
            wchar_t text[20] = {};
            if (button && ::IsWindowVisible(window) &&
                ::SendMessageW(button, WM_GETTEXT, 20, reinterpret_cast<LPARAM>(text)) > 0 &&
                std::wstring(text).starts_with(caption))
            {
                return button;
            }
        }
        ::Sleep(10);
    }
    return nullptr;
}
} // namespace velt::test
