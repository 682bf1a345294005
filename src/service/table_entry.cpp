#include "service/table_entry.h"

#include "foundation/com_module.h"
#include "foundation/detached_thread.h"
#include "foundation/library_utils.h"
#include "foundation/system_exception.h"
#include "foundation/utrace.h"

#include <exception>
#include <utility>

using Microsoft::WRL::ComPtr;

namespace velt
{
namespace
{
constexpr char kItStays[] = "a sink stays in the global interface table";
} // namespace

void TraceSinkFailure(const char* what, HRESULT hr) noexcept
{
    try
    {
        UTrace::TraceLevel1("%s: 0x%08lX", what, static_cast<unsigned long>(hr));
    }
    catch (const std::exception&)
    {
        // A thread that cannot trace goes on to the next sink.
    }
}

// The entries that are given up, the newest first, and whether there is the one thread that takes
// them out of the table. One of them whose apartment does not answer holds up the others, and
// nobody else.
constinit std::atomic<TableEntry*> TableEntry::s_abandoned = nullptr;
constinit std::atomic<bool> TableEntry::s_hasThread = false;

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
    if (isAtHome && SUCCEEDED(entry->Revoke()))
    {
        return;
    }
    TableEntry* const added = entry.release();
    added->m_next = s_abandoned;
    while (!s_abandoned.compare_exchange_weak(added->m_next, added))
    {
    }
    if (!s_hasThread.exchange(true) && !RunDetached(&RevokeAbandoned, nullptr))
    {
        s_hasThread = false;
        TraceSinkFailure(kItStays, E_OUTOFMEMORY); // until the next one is given up
    }
}

void TableEntry::RevokeAbandoned(void*) noexcept
{
    // What stayed in the table would keep the sink and the library for good, so this thread has
    // COM, whoever gave the entries up.
    const CLibraryUtils::SmartComInitializer com;
    do
    {
        std::unique_ptr<TableEntry> next(s_abandoned.exchange(nullptr));
        while (const std::unique_ptr<TableEntry> entry = std::move(next))
        {
            next.reset(entry->m_next);
            if (const HRESULT hr = entry->Revoke(); FAILED(hr))
            {
                TraceSinkFailure(kItStays, hr);
            }
        }
        s_hasThread = false;
        // Whoever gave one up before this has left it to this thread.
    } while (s_abandoned && !s_hasThread.exchange(true));
}

HRESULT TableEntry::Revoke() const noexcept
{
    ComPtr<IGlobalInterfaceTable> table;
    const HRESULT hr = ComModule::Current().GetGITPtr(&table);
    return SUCCEEDED(hr) ? table->RevokeInterfaceFromGlobal(m_registration) : hr;
}
} // namespace velt
