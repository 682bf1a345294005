#include "internet/handle_registry.h"

#include "foundation/velt_auto_critical_section.h"

#include <utility>

namespace velt
{
HandleRegistry& HandleRegistry::Instance()
{
    static HandleRegistry registry;
    return registry;
}

void HandleRegistry::Insert(std::shared_ptr<HandleEntry> entry)
{
    const VeltAutoCriticalSection lock(&m_lock);
    std::shared_ptr<HandleEntry>& place = m_entries[entry->Handle()];
    if (place)
    {
        place->End(); // the system would not have given out the value otherwise
    }
    place = std::move(entry);
}

void HandleRegistry::Remove(const HandleEntry& entry) noexcept
{
    const VeltAutoCriticalSection lock(&m_lock);
    const auto found = m_entries.find(entry.Handle());
    if (found != m_entries.end() && found->second.get() == &entry)
    {
        m_entries.erase(found);
    }
}

CInternetSession* HandleRegistry::Find(HINTERNET handle) noexcept
{
    const VeltAutoCriticalSection lock(&m_lock);
    const auto found = m_entries.find(handle);
    return found == m_entries.end() ? nullptr : found->second->Session();
}

void HandleRegistry::End(HINTERNET handle) noexcept
{
    const VeltAutoCriticalSection lock(&m_lock);
    const auto found = m_entries.find(handle);
    if (found != m_entries.end())
    {
        found->second->End();
        m_entries.erase(found);
    }
}

std::size_t HandleRegistry::Size() noexcept
{
    const VeltAutoCriticalSection lock(&m_lock);
    return m_entries.size();
}
} // namespace velt
