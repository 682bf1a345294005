#include "connection/connection_probe.h"

#include "foundation/exception_to_hresult.h"
#include "foundation/find_function.h"
#include "foundation/system_exception.h"
#include "foundation/unique_handle.h"

#include <winsock2.h>

#include <wininet.h>

#include <array>
#include <string_view>

namespace velt
{
namespace
{
constexpr DWORD kUnknownState = 0xFFFFFFFF;

struct GlobalMemoryTraits
{
    using Type = wchar_t*;

    static Type Invalid() noexcept
    {
        return nullptr;
    }

    static void Close(Type memory) noexcept
    {
        ::GlobalFree(memory);
    }
};
using UniqueGlobalMemory = UniqueHandle<GlobalMemoryTraits>;

/// A text of the internet API, now owned.
UniqueGlobalMemory Own(const INTERNET_PER_CONN_OPTIONW& option) noexcept
{
    return UniqueGlobalMemory(option.Value.pszValue);
}

/// Appends a text; whether there was one, and something in it.
bool Append(std::wstring& text, const UniqueGlobalMemory& part)
{
    if (!part || *part.Get() == L'\0')
    {
        return false;
    }
    text.append(part.Get());
    return true;
}
} // namespace

ConnectionProbe::ConnectionProbe()
    : m_module(LoadSystemLibrary(L"wininet.DLL")),
      m_connectedState(
          FindFunction<ConnectedStateFunction>(m_module.GetModule(), "InternetGetConnectedState")),
      m_checkConnection(
          FindFunction<CheckConnectionFunction>(m_module.GetModule(), "InternetCheckConnection")),
      m_echo(CEchoDLL::Load())
{
}

HRESULT ConnectionProbe::IsConnected(DWORD* flags) const noexcept
{
    if (!flags)
    {
        return E_POINTER;
    }
    *flags = 0;
    return m_connectedState && m_connectedState(flags, 0) ? S_OK : S_FALSE;
}

HRESULT ConnectionProbe::CheckConnection(const wchar_t* url, DWORD* state) const noexcept
{
    if (!state)
    {
        return E_POINTER;
    }
    *state = kUnknownState;
    HRESULT result = E_FAIL;
    try
    {
        std::wstring settings;
        if (QueryProxySettings(settings))
        {
            *state = 0;
            result = S_OK;
        }
    }
    catch (...)
    {
        TraceCurrentException(); // it counts as no configuration
    }
    try
    {
        if (::InternetAttemptConnect(0) == ERROR_SUCCESS &&
            ::InternetCheckConnectionW(url, FLAG_ICC_FORCE_CONNECTION, 0))
        {
            *state = 0;
            return S_OK;
        }
        *state = ::GetLastError();
    }
    catch (const SystemException::Win32& missing) // a library that is loaded late
    {
        *state = missing.GetCode();
    }
    return result;
}

HRESULT ConnectionProbe::Ping(const char* address, DWORD timeoutMs) const noexcept
{
    if (!m_echo || !address)
    {
        return E_FAIL;
    }
    try
    {
        const IPAddr converted = ::inet_addr(address);
        return converted != INADDR_NONE && m_echo->Send(converted, timeoutMs) == CEchoDLL::kReplied
                   ? S_OK
                   : E_FAIL;
    }
    catch (const SystemException::Win32&) // a library that is loaded late
    {
        return E_FAIL;
    }
}

bool ConnectionProbe::QueryProxySettings(std::wstring& text)
{
    std::array<INTERNET_PER_CONN_OPTIONW, 5> options{};
    options[0].dwOption = INTERNET_PER_CONN_AUTOCONFIG_URL;
    options[1].dwOption = INTERNET_PER_CONN_AUTODISCOVERY_FLAGS;
    options[2].dwOption = INTERNET_PER_CONN_FLAGS;
    options[3].dwOption = INTERNET_PER_CONN_PROXY_BYPASS;
    options[4].dwOption = INTERNET_PER_CONN_PROXY_SERVER;
    INTERNET_PER_CONN_OPTION_LISTW list{};
    list.dwSize = sizeof(list);
    list.dwOptionCount = static_cast<DWORD>(options.size());
    list.pOptions = options.data();
    DWORD size = sizeof(list);
    if (!::InternetQueryOptionW(nullptr, INTERNET_OPTION_PER_CONNECTION_OPTION, &list, &size))
    {
        return false;
    }
    const UniqueGlobalMemory url = Own(options[0]);
    const UniqueGlobalMemory bypass = Own(options[3]); // not asked for, but ours to free
    const UniqueGlobalMemory proxy = Own(options[4]);
    const bool hasUrl = Append(text, url);
    const bool hasProxy = Append(text, proxy);
    return hasUrl || hasProxy;
}
} // namespace velt
