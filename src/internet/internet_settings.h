#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace velt
{
/// The current user's internet settings, below HKEY_CURRENT_USER.
inline constexpr wchar_t kInternetSettingsKey[] =
    L"Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings";

/// The legacy key of the program's family, below HKEY_CURRENT_USER.
inline constexpr wchar_t kLegacyProxyKey[] =
    L"SOFTWARE\\Lumenfield Technologies\\Quillplayer\\Internet";

/// Reads a text of up to `capacity` bytes with its final NUL from a key of the current user, in the
/// thread's ANSI code page. Nothing when the key or value cannot be read, or is longer.
/// Throws std::bad_alloc only.
std::optional<std::string> ReadInternetSetting(const wchar_t* key, const wchar_t* name,
                                               std::size_t capacity);
} // namespace velt
