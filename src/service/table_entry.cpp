#include "service/table_entry.h"

#include "foundation/com_module.h"
#include "foundation/detached_thread.h"
#include "foundation/library_utils.h"
#include "foundation/system_exception.h"
#include "foundation/utrace.h"
#include "foundation/velt_auto_critical_section.h"
#include "foundation/velt_critical_section.h"

#include <exception>
#include <utility>

using Microsoft::WRL::ComPtr;

namespace velt
{
namespace
{
void TraceThatItStays(HRESULT hr) noexcept
{
    try
    {
        UTrace::TraceLevel1("a sink stays in the global interface table: 0x%08lX",
                            static_cast<unsigned long>(hr));
    }
    catch (const std::exception&)
    {
        // Nothing is left that could be done.
    }
}
} // namespace

/// The entries that are given up, and the one thread that takes them out of the table. One of them
/// whose apartment does not answer holds up the others, and nobody else.
class TableEntry::Abandoned
{
public:
    static Abandoned& Instance() noexcept
    {
        static Abandoned instance;
        return instance;
    }

    void Add(std::unique_ptr<TableEntry> entry) noexcept
    {
        {
            const VeltAutoCriticalSection lock(&m_lock);
            entry->m_next = std::move(m_first);
            m_first = std::move(entry);
            if (std::exchange(m_hasThread, true))
            {
                return;
            }
        }
        if (!RunDetached(&Abandoned::Run, this))
        {
            TraceThatItStays(E_OUTOFMEMORY); // until the next one is given up
            const VeltAutoCriticalSection lock(&m_lock);
            m_hasThread = false;
        }
    }

private:
    static void Run(void* self) noexcept
    {
        // What stayed in the table would keep the sink and the library for good, so it has COM,
        // whoever gave the entries up.
        const CLibraryUtils::SmartComInitializer com;
        while (const std::unique_ptr<TableEntry> entry = static_cast<Abandoned*>(self)->Take())
        {
            const HRESULT hr = entry->Revoke();
            if (FAILED(hr))
            {
                TraceThatItStays(hr);
            }
        }
    }

    /// The next one; null for none, and then the thread ends.
    std::unique_ptr<TableEntry> Take() noexcept
    {
        const VeltAutoCriticalSection lock(&m_lock);
        std::unique_ptr<TableEntry> entry = std::move(m_first);
        if (entry)
        {
            m_first = std::move(entry->m_next);
        }
        else
        {
            m_hasThread = false;
        }
        return entry;
    }

    VeltCriticalSection m_lock;

    // guarded by m_lock
    std::unique_ptr<TableEntry> m_first;
    bool m_hasThread = false;
};

TableEntry::TableEntry(IDispatch* object)
{
    ComPtr<IGlobalInterfaceTable> table;
    ThrowIfFailed(ComModule::Current().GetGITPtr(&table));
    ThrowIfFailed(table->RegisterInterfaceInGlobal(object, IID_IDispatch, &m_registration));
}

HRESULT TableEntry::Get(ComPtr<IDispatch>& object) const noexcept
{
    ComPtr<IGlobalInterfaceTable> table;
    const HRESULT hr = ComModule::Current().GetGITPtr(&table);
    return SUCCEEDED(hr) ? table->GetInterfaceFromGlobal(m_registration, IID_PPV_ARGS(&object))
                         : hr;
}

void TableEntry::GiveUp(std::unique_ptr<TableEntry> entry, bool isAtHome) noexcept
{
    if (!isAtHome || FAILED(entry->Revoke()))
    {
        Abandoned::Instance().Add(std::move(entry));
    }
}

HRESULT TableEntry::Revoke() noexcept
{
    ComPtr<IGlobalInterfaceTable> table;
    const HRESULT hr = ComModule::Current().GetGITPtr(&table);
    return SUCCEEDED(hr) ? table->RevokeInterfaceFromGlobal(m_registration) : hr;
}
} // namespace velt
