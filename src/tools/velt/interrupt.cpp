#include "tools/velt/interrupt.h"

#include "tools/velt/command_context.h"

namespace velt::tool
{
Interrupt::Interrupt()
{
    if (!s_event)
    {
        s_event = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
    }
    s_set = false;
    if (!s_event || !::ResetEvent(s_event) || !::SetConsoleCtrlHandler(&Interrupt::Handler, TRUE))
    {
        throw LastFailure(L"the handler of Ctrl+C");
    }
}

Interrupt::~Interrupt()
{
    ::SetConsoleCtrlHandler(&Interrupt::Handler, FALSE);
}

BOOL CALLBACK Interrupt::Handler(DWORD control) noexcept
{
    const bool known = control == CTRL_C_EVENT || control == CTRL_BREAK_EVENT;
    return known && !s_set.exchange(true) && ::SetEvent(s_event);
}
} // namespace velt::tool
