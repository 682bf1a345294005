#include "tools/velt/interrupt.h"

#include "tools/velt/command_context.h"

namespace velt::tool
{
Interrupt::Interrupt() : m_event(::CreateEventW(nullptr, TRUE, FALSE, nullptr))
{
    s_event = m_event.Get();
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
    const bool first = ::WaitForSingleObject(s_event, 0) != WAIT_OBJECT_0;
    return known && first && ::SetEvent(s_event);
}
} // namespace velt::tool
