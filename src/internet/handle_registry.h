#pragma once

#include "foundation/win_critical_section.h"

#include <windows.h>

#include <wininet.h>

#include <cstddef>
#include <functional>
#include <map>

class CInternetSession;

namespace velt
{
/// Which session owns each internet handle that is open; one per process. Status callbacks arrive
/// with nothing but a handle and find their session here. Any thread may call.
class HandleRegistry
{
public:
    HandleRegistry() = default;

    HandleRegistry(const HandleRegistry&) = delete;
    HandleRegistry& operator=(const HandleRegistry&) = delete;

    ~HandleRegistry() = default;

    static HandleRegistry& Instance();

    /// Enters an open handle; a null one is nothing to enter. Throws std::bad_alloc.
    void Insert(HINTERNET handle, CInternetSession* session);

    /// Removes a session's entry of a handle; nothing happens when there is none. Another session's
    /// entry stays: the system may have given the closed handle's value out again meanwhile.
    void Remove(HINTERNET handle, const CInternetSession* session) noexcept;

    /// The session that owns a handle, null for an unknown one.
    CInternetSession* Find(HINTERNET handle) noexcept;

    /// How many handles are open.
    std::size_t Size() noexcept;

private:
    WinCriticalSection m_lock;

    // guarded by m_lock
    std::map<HINTERNET, CInternetSession*, std::less<>> m_sessions;
};
} // namespace velt
