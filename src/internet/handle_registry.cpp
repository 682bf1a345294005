#include "internet/handle_registry.h"

#include "foundation/velt_auto_critical_section.h"

namespace velt
{
HandleRegistry& HandleRegistry::Instance()
{
    static HandleRegistry registry;
    return registry;
}

void HandleRegistry::Insert(HINTERNET handle, CInternetSession* session)
{
    if (handle)
    {
        const VeltAutoCriticalSection lock(&m_lock);
        m_sessions.insert_or_assign(handle, session);
    }
}

void HandleRegistry::Remove(HINTERNET handle, const CInternetSession* session) noexcept
{
    const VeltAutoCriticalSection lock(&m_lock);
    const auto found = m_sessions.find(handle);
    if (found != m_sessions.end() && found->second == session)
    {
        m_sessions.erase(found);
    }
}

CInternetSession* HandleRegistry::Find(HINTERNET handle) noexcept
{
    const VeltAutoCriticalSection lock(&m_lock);
    const auto found = m_sessions.find(handle);
    return found == m_sessions.end() ? nullptr : found->second;
}

std::size_t HandleRegistry::Size() noexcept
{
    const VeltAutoCriticalSection lock(&m_lock);
    return m_sessions.size();
}
} // namespace velt
