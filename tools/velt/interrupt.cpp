#include "tools/velt/interrupt.h"

#include "tools/velt/command_context.h"

namespace velt::tool
{
Interrupt::Interrupt() : m_event(::CreateEventW(nullptr, TRUE, FALSE, nullptr))
{
    s_event = m_event.Get();
    s_set = false;
    if (!m_event || !::SetConsoleCtrlHandler(&Interrupt::Handler, TRUE))
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
