#pragma once

#include "tests/support/eventually.h"

#include <windows.h>

namespace velt::test
{
/// Chooses a radio button of another process's dialog. A dialog that is not active may miss a
/// click, so it is made again until it has an effect; false when it has none within the limit.
inline bool Choose(HWND dialog, int id)
{
    return Eventually([=] {
        const HWND button = ::GetDlgItem(dialog, id);
        ::SendMessageW(button, BM_CLICK, 0, 0);
        return ::SendMessageW(button, BM_GETCHECK, 0, 0) == BST_CHECKED;
    });
}

/// Presses a button of another process's dialog until the dialog has gone; false when it stays
/// longer than the limit.
inline bool PressUntilGone(HWND dialog, int id)
{
    constexpr int kLooks = 100; // between two clicks
    int look = 0;
    return Eventually([=, &look] {
        if (look++ % kLooks == 0)
        {
            ::PostMessageW(::GetDlgItem(dialog, id), BM_CLICK, 0, 0);
        }
        return !::IsWindow(dialog);
    });
}
} // namespace velt::test
