#include "internet/internet_settings.h"

#include "foundation/reg_key.h"

namespace velt
{
std::optional<std::string> ReadInternetSetting(const wchar_t* key, const wchar_t* name,
                                               std::size_t capacity)
{
    CRegKeyW settings;
    if (settings.Open(HKEY_CURRENT_USER, key, KEY_READ | KEY_WRITE) != ERROR_SUCCESS)
    {
        return std::nullopt;
    }
    std::string text(capacity, '\0');
    auto size = static_cast<DWORD>(text.size());
    if (settings.QueryStringValue(name, text.data(), &size) != ERROR_SUCCESS)
    {
        return std::nullopt;
    }
    text.resize(text.find('\0')); // the value ends with one
    return text;
}
} // namespace velt
