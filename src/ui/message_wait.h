#pragma once

#include <windows.h>

#include <algorithm>

namespace velt
{
enum class WaitEnd
{
    kDone,
    kTimeOver,
    kGivenUp, // nobody is there any more who waits
};

/// Dispatches the thread's messages, those of `dialog` with its keyboard interface, until
/// `isDone()`, for `limitMs` milliseconds at most. Gives up when the thread is told to quit (the
/// message is left for the caller's own loop) or when the dialog is gone.
template <class IsDone>
WaitEnd WaitWithMessages(HWND dialog, DWORD limitMs, IsDone&& isDone)
{
    constexpr DWORD kLookAgainMs = 10; // what is waited for need not come as a message
    const ULONGLONG start = ::GetTickCount64();
    while (!isDone())
    {
        if (!::IsWindow(dialog))
        {
            return WaitEnd::kGivenUp;
        }
        const ULONGLONG passedMs = ::GetTickCount64() - start;
        if (passedMs >= limitMs)
        {
            return WaitEnd::kTimeOver;
        }
        const auto leftMs = static_cast<DWORD>(limitMs - passedMs);
        ::MsgWaitForMultipleObjectsEx(0, nullptr, std::min(leftMs, kLookAgainMs), QS_ALLINPUT,
                                      MWMO_INPUTAVAILABLE);
        MSG message;
        if (!::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
        {
            continue;
        }
        if (message.message == WM_QUIT)
        {
            ::PostQuitMessage(static_cast<int>(message.wParam));
            return WaitEnd::kGivenUp;
        }
        if (!::IsDialogMessageW(dialog, &message))
        {
            ::TranslateMessage(&message);
            ::DispatchMessageW(&message);
        }
    }
    return WaitEnd::kDone;
}
} // namespace velt
