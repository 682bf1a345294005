#pragma once

#include "foundation/velt_auto_critical_section.h"
#include "foundation/win_critical_section.h"
#include "tests/support/counted_texts.h"
#include "tests/support/import_patch.h"

#include <windows.h>

#include <wininet.h>

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace velt::test
{
/// Watches the internet handles of this program until the end of the scope. A handle is open from
/// its opening until it, or one that it was opened from, is closed; each is used and closed by the
/// thread that opened it. A call with any other handle is a fault. Any thread may call.
class HandleWatch
{
public:
    HandleWatch() = default;

    HandleWatch(const HandleWatch&) = delete;
    HandleWatch& operator=(const HandleWatch&) = delete;

    ~HandleWatch() = default;

    /// The calls that had a handle which was not theirs: what was called, and whose it was.
    std::vector<std::string> Faults() const
    {
        const VeltAutoCriticalSection lock(&m_lock);
        return m_faults.All();
    }

    bool IsOpen(HINTERNET handle) const
    {
        const VeltAutoCriticalSection lock(&m_lock);
        return m_open.contains(handle);
    }

    std::size_t OpenCount() const
    {
        const VeltAutoCriticalSection lock(&m_lock);
        return m_open.size();
    }

    /// How often a handle was closed by a call of this program.
    LONG Closes() const noexcept
    {
        return m_closePatch.Calls();
    }

private:
    using OpenPatch = ImportPatch<"InternetOpenW", decltype(::InternetOpenW)>;
    using ConnectPatch = ImportPatch<"InternetConnectW", decltype(::InternetConnectW)>;
    using OpenRequestPatch = ImportPatch<"HttpOpenRequestW", decltype(::HttpOpenRequestW)>;
    using SendPatch = ImportPatch<"HttpSendRequestW", decltype(::HttpSendRequestW)>;
    using QueryPatch = ImportPatch<"HttpQueryInfoW", decltype(::HttpQueryInfoW)>;
    using ReadPatch = ImportPatch<"InternetReadFile", decltype(::InternetReadFile)>;
    using ClosePatch = ImportPatch<"InternetCloseHandle", decltype(::InternetCloseHandle)>;

    struct Handle
    {
        DWORD thread;
        HINTERNET parent;
    };

    HINTERNET Opened(HINTERNET handle, HINTERNET parent)
    {
        const VeltAutoCriticalSection lock(&m_lock);
        // A parent that was closed during the call has taken the new handle with it, and the value
        // may be another thread's by now.
        if (handle && (!parent || IsOwn(parent)))
        {
            m_open.insert_or_assign(handle, Handle{::GetCurrentThreadId(), parent});
        }
        return handle;
    }

    /// Null belongs to nobody and does no harm.
    void Use(const char* function, HINTERNET handle)
    {
        const VeltAutoCriticalSection lock(&m_lock);
        if (handle && !IsOwn(handle))
        {
            m_faults.Add(std::string(function) + (m_open.contains(handle)
                                                      ? ": another thread's handle"
                                                      : ": a handle that is not open"));
        }
    }

    void Closing(HINTERNET handle)
    {
        Use("InternetCloseHandle", handle);
        const VeltAutoCriticalSection lock(&m_lock);
        if (IsOwn(handle))
        {
            Forget(handle);
        }
    }

    // With the lock:

    bool IsOwn(HINTERNET handle) const
    {
        const auto found = m_open.find(handle);
        return found != m_open.end() && found->second.thread == ::GetCurrentThreadId();
    }

    void Forget(HINTERNET handle)
    {
        m_open.erase(handle);
        for (auto child = m_open.begin(); child != m_open.end();)
        {
            const bool isChild = child->second.parent == handle;
            const HINTERNET value = child->first;
            ++child;
            if (isChild)
            {
                Forget(value);
                child = m_open.upper_bound(value);
            }
        }
    }

    mutable WinCriticalSection m_lock;
    std::map<HINTERNET, Handle> m_open; // guarded by m_lock
    CountedTexts m_faults;              // guarded by m_lock

    const OpenPatch m_openPatch{
        "wininet.dll", [this](const wchar_t* agent, DWORD type, const wchar_t* proxy,
                              const wchar_t* bypass, DWORD flags) {
            return Opened(OpenPatch::Original(agent, type, proxy, bypass, flags), nullptr);
        }};
    const ConnectPatch m_connectPatch{
        "wininet.dll",
        [this](HINTERNET session, const wchar_t* server, INTERNET_PORT port, const wchar_t* user,
               const wchar_t* password, DWORD service, DWORD flags, DWORD_PTR context) {
            Use("InternetConnectW", session);
            return Opened(ConnectPatch::Original(session, server, port, user, password, service,
                                                 flags, context),
                          session);
        }};
    const OpenRequestPatch m_openRequestPatch{
        "wininet.dll", [this](HINTERNET connection, const wchar_t* verb, const wchar_t* object,
                              const wchar_t* version, const wchar_t* referer,
                              const wchar_t** acceptTypes, DWORD flags, DWORD_PTR context) {
            Use("HttpOpenRequestW", connection);
            return Opened(OpenRequestPatch::Original(connection, verb, object, version, referer,
                                                     acceptTypes, flags, context),
                          connection);
        }};
    const SendPatch m_sendPatch{
        "wininet.dll",
        [this](HINTERNET file, const wchar_t* headers, DWORD length, void* data, DWORD dataLength) {
            Use("HttpSendRequestW", file);
            return SendPatch::Original(file, headers, length, data, dataLength);
        }};
    const QueryPatch m_queryPatch{
        "wininet.dll",
        [this](HINTERNET file, DWORD level, void* buffer, DWORD* length, DWORD* index) {
            Use("HttpQueryInfoW", file);
            return QueryPatch::Original(file, level, buffer, length, index);
        }};
    const ReadPatch m_readPatch{"wininet.dll",
                                [this](HINTERNET file, void* buffer, DWORD count, DWORD* read) {
                                    Use("InternetReadFile", file);
                                    return ReadPatch::Original(file, buffer, count, read);
                                }};
    const ClosePatch m_closePatch{"wininet.dll", [this](HINTERNET handle) {
                                      Closing(handle);
                                      return ClosePatch::Original(handle);
                                  }};
};
} // namespace velt::test
