#include "internet/connection_properties.h"

#include "internet/internet_settings.h"

CConnectionProperties::CConnectionProperties()
    : headers{{"User-Agent", "Velt Connection Manager\r\n"}}
{
    constexpr std::size_t kLongestAgent = 2048;
    // By design, the value's name has the hyphen that the header's has.
    if (auto agent =
            velt::ReadInternetSetting(velt::kInternetSettingsKey, L"User-Agent", kLongestAgent))
    {
        headers["User-Agent"] = std::move(*agent);
    }
}
