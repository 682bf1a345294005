#include "tools/velt/proxy_origin.h"

#include "internet/internet_settings.h"

namespace velt::tool
{
std::wstring ProxyOrigin(const CInternetProxy& proxy)
{
    return std::wstring(L"HKEY_CURRENT_USER\\") +
           (proxy.GetText().empty() ? kInternetSettingsKey : kLegacyProxyKey);
}
} // namespace velt::tool
