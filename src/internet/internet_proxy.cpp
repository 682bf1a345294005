#include "internet/internet_proxy.h"

#include "foundation/reg_key.h"
#include "foundation/system_exception.h"
#include "foundation/wide_text.h"
#include "internet/internet_settings.h"

namespace
{
constexpr std::size_t kLongestProxy = 260;

/// A proxy text of the registry; empty when there is none.
std::wstring ReadProxyText(const wchar_t* key, const wchar_t* name)
{
    const auto text = velt::ReadInternetSetting(key, name, kLongestProxy);
    try
    {
        return text ? velt::WideFromNarrow(*text, CP_THREAD_ACP) : std::wstring();
    }
    catch (const SystemException::Win32&)
    {
        return {}; // not readable in this code page
    }
}

bool IsSystemProxyEnabled()
{
    CRegKeyW settings;
    DWORD enabled = 0;
    return settings.Open(HKEY_CURRENT_USER, velt::kInternetSettingsKey, KEY_READ | KEY_WRITE) ==
               ERROR_SUCCESS &&
           settings.QueryDWORDValue(L"ProxyEnable", &enabled) == ERROR_SUCCESS && enabled != 0;
}
} // namespace

CInternetProxy::CInternetProxy() : m_text(ReadProxyText(velt::kLegacyProxyKey, L"proxy"))
{
    if (!m_text.empty())
    {
        m_endpoint = velt::SplitHostPort(m_text);
    }
    else if (IsSystemProxyEnabled())
    {
        m_endpoint =
            velt::SplitSystemProxy(ReadProxyText(velt::kInternetSettingsKey, L"ProxyServer"));
    }
    m_url = velt::ProxyUrl(m_endpoint.host);
}

const std::wstring& CInternetProxy::GetText() const noexcept
{
    return m_text;
}

const std::wstring& CInternetProxy::GetHost() const noexcept
{
    return m_endpoint.host;
}

const std::wstring& CInternetProxy::GetPort() const noexcept
{
    return m_endpoint.port;
}

const std::wstring& CInternetProxy::GetUrl() const noexcept
{
    return m_url;
}

std::wstring CInternetProxy::GetSessionProxy() const
{
    return velt::SessionProxy(m_endpoint);
}
