#pragma once

#include <windows.h>

#include <oaidl.h>
#include <wrl/client.h>

#include <atomic>
#include <memory>

namespace velt
{
/// Traces a failure that goes no further: "<what>: 0x<hr>".
void TraceSinkFailure(const char* what, HRESULT hr) noexcept;

/// An object in the global interface table, which keeps it for its own apartment and gives it to
/// the threads of others.
class TableEntry
{
public:
    /// On a thread of the object's apartment. Throws SystemException::HRESULT when it cannot be
    /// kept.
    explicit TableEntry(IDispatch* object);

    TableEntry(const TableEntry&) = delete;
    TableEntry& operator=(const TableEntry&) = delete;

    ~TableEntry() = default;

    /// The object, as the calling thread's apartment sees it.
    HRESULT Get(Microsoft::WRL::ComPtr<IDispatch>& object) const noexcept;

    /// Takes an entry out of the table: here when `isAtHome` says that the calling thread is in the
    /// object's apartment. Anywhere else the system may have to wait for that apartment, which may
    /// be waiting itself; so another thread does it then. That thread also tries again what failed
    /// here.
    static void GiveUp(std::unique_ptr<TableEntry> entry, bool isAtHome) noexcept;

private:
    HRESULT Revoke() const noexcept;

    /// The body of the thread, which ends when no entry is left.
    static void RevokeAbandoned(void*) noexcept;

    static std::atomic<TableEntry*> s_abandoned; // owned, linked by m_next
    static std::atomic<bool> s_hasThread;

    DWORD m_registration = 0;
    TableEntry* m_next = nullptr;
};
} // namespace velt
