#include "tools/velt/progress_display.h"

#include "foundation/wide_text.h"

#include <wininet.h>

#include <exception>

namespace velt::tool
{
ProgressDisplay::ProgressDisplay(const Console& console) noexcept : m_console(console) {}

ProgressDisplay::~ProgressDisplay()
{
    Clear();
}

void ProgressDisplay::Show(const FetchProgress& progress)
{
    const std::size_t width = m_console.Width();
    if (width < 2)
    {
        return;
    }
    // One column stays free, because the last one would begin a new line.
    std::string line = FormatProgressLine(progress, width - 1);
    const std::size_t characters = WideFromUtf8(line).size();
    const std::size_t blanks = m_shown > characters ? m_shown - characters : 0;
    m_shown = characters;
    m_console.Write("\r" + line.append(blanks, ' '));
}

void ProgressDisplay::Clear() noexcept
{
    if (m_shown == 0)
    {
        return;
    }
    try
    {
        m_console.Write("\r" + std::string(m_shown, ' ') + "\r");
        m_shown = 0;
    }
    catch (const std::exception&)
    {
        // The terminal has gone.
    }
}

const char* PhaseOf(unsigned long status) noexcept
{
    switch (status)
    {
    case 0:
        return "waiting";
    case INTERNET_STATUS_RESOLVING_NAME:
    case INTERNET_STATUS_NAME_RESOLVED:
        return "looking up";
    case INTERNET_STATUS_CONNECTING_TO_SERVER:
    case INTERNET_STATUS_CONNECTED_TO_SERVER:
        return "connecting";
    case INTERNET_STATUS_SENDING_REQUEST:
    case INTERNET_STATUS_REQUEST_SENT:
        return "sending";
    case INTERNET_STATUS_REDIRECT:
        return "redirected";
    case INTERNET_STATUS_RECEIVING_RESPONSE:
    case INTERNET_STATUS_RESPONSE_RECEIVED:
        return "receiving";
    default:
        return "working";
    }
}
} // namespace velt::tool
