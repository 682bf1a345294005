#pragma once

#include "connection/echo_dll.h"
#include "foundation/library_utils.h"

#include <windows.h>

#include <memory>
#include <string>

namespace velt
{
/// Answers whether the machine can reach the internet. System functions that are missing make for a
/// quiet no.
class ConnectionProbe
{
public:
    /// Throws std::bad_alloc.
    ConnectionProbe();

    ConnectionProbe(const ConnectionProbe&) = delete;
    ConnectionProbe& operator=(const ConnectionProbe&) = delete;

    ~ConnectionProbe() = default;

    /// The system's connected state: S_OK or S_FALSE; the flags are the system's, 0 without it.
    HRESULT IsConnected(DWORD* flags) const noexcept;

    /// Has the system try to reach a URL. The state is 0 when it was reached, else the system's
    /// last error. A configured proxy counts as connected, by design, even when the try fails: S_OK
    /// then, E_FAIL without one. Throws nothing.
    HRESULT CheckConnection(const wchar_t* url, DWORD* state) const noexcept;

    /// Sends one echo to a dotted IPv4 address: S_OK when it was answered within `timeoutMs`
    /// milliseconds, else E_FAIL.
    HRESULT Ping(const char* address, DWORD timeoutMs) const noexcept;

    /// Appends the URL of the automatic configuration and the proxy server of the default
    /// connection; true when there was either. Throws std::bad_alloc.
    static bool QueryProxySettings(std::wstring& text);

private:
    using ConnectedStateFunction = BOOL(WINAPI*)(DWORD* flags, DWORD reserved);
    using CheckConnectionFunction = BOOL(WINAPI*)(const char* url, DWORD flags, DWORD reserved);

    CLibraryUtils::CLibraryUtilsImpl m_module; // the internet API, loaded by name
    ConnectedStateFunction m_connectedState;
    // By design taken and not called: CheckConnection needs the function for wide texts, which
    // every system has.
    [[maybe_unused]] CheckConnectionFunction m_checkConnection;
    std::unique_ptr<CEchoDLL> m_echo;
};
} // namespace velt
