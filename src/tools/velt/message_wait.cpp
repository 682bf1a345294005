#include "tools/velt/message_wait.h"

#include <algorithm>

namespace velt::tool
{
bool WaitWithMessages(const std::function<bool()>& condition, HANDLE event,
                      std::optional<DWORD> limitMs)
{
    const ULONGLONG start = ::GetTickCount64();
    while (!condition())
    {
        const ULONGLONG passedMs = ::GetTickCount64() - start;
        if (limitMs && passedMs >= *limitMs)
        {
            return false;
        }
        const DWORD leftMs = limitMs ? static_cast<DWORD>(*limitMs - passedMs) : INFINITE;
        const DWORD count = event ? 1 : 0;
        const DWORD woken =
            ::MsgWaitForMultipleObjectsEx(count, &event, leftMs, QS_ALLINPUT, MWMO_INPUTAVAILABLE);
        if (woken != WAIT_OBJECT_0 + count && woken != WAIT_TIMEOUT)
        {
            return condition(); // the event, or a failure
        }
        MSG message;
        while (::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
        {
            ::TranslateMessage(&message);
            ::DispatchMessageW(&message);
        }
    }
    return true;
}
} // namespace velt::tool
