#include "internet/internet_settings.h"

#include "tests/internet/user_settings.h"
#include "tests/support/registry_snapshot.h"

#include <catch.hpp>

#include <optional>
#include <string>

using velt::kInternetSettingsKey;
using velt::test::DeniedKey;
using velt::test::UserSettings;

namespace
{
std::optional<std::string> Read(std::size_t capacity = 10)
{
    return velt::ReadInternetSetting(kInternetSettingsKey, L"Velt", capacity);
}
} // namespace

TEST_CASE("ReadInternetSetting: reads a text as it stands", "[internet]")
{
    UserSettings settings;
    const DWORD type = GENERATE(as<DWORD>{}, REG_SZ, REG_EXPAND_SZ);
    settings.SetText(kInternetSettingsKey, L"Velt", L"%TEMP%", type);
    CHECK(Read() == "%TEMP%");
    settings.SetText(kInternetSettingsKey, L"Velt", L"", type);
    CHECK(Read() == "");
}

TEST_CASE("ReadInternetSetting: a text ends at its first NUL", "[internet]")
{
    UserSettings settings;
    settings.Set(kInternetSettingsKey, L"Velt", REG_SZ, L"ab\0cd", 12);
    CHECK(Read() == "ab");
}

TEST_CASE("ReadInternetSetting: the capacity counts the final NUL", "[internet]")
{
    UserSettings settings;
    settings.SetText(kInternetSettingsKey, L"Velt", L"123456789");
    CHECK(Read(11) == "123456789");
    CHECK(Read(10) == "123456789");
    CHECK(Read(9) == std::nullopt);
    CHECK(Read(1) == std::nullopt);
}

TEST_CASE("ReadInternetSetting: what is no text, or not there, is nothing", "[internet]")
{
    UserSettings settings;
    CHECK(Read() == std::nullopt);
    CHECK(velt::ReadInternetSetting(L"Software\\Velt no such key", L"Velt", 10) == std::nullopt);
    settings.SetNumber(kInternetSettingsKey, L"Velt", 0x61);
    CHECK(Read() == std::nullopt);
    settings.Set(kInternetSettingsKey, L"Velt", REG_BINARY, "a\0", 2);
    CHECK(Read() == std::nullopt);
    settings.Set(kInternetSettingsKey, L"Velt", REG_MULTI_SZ, L"a\0\0", 6);
    CHECK(Read() == std::nullopt);
    settings.Set(kInternetSettingsKey, L"Velt", REG_SZ, L"", 0);
    CHECK(Read() == std::nullopt);
}

TEST_CASE(
    "ReadInternetSetting: a text without its final NUL is nothing, or completed by the system",
    "[internet]")
{
    UserSettings settings;
    settings.Set(kInternetSettingsKey, L"Velt", REG_SZ, L"ab", 4);
    const auto text = Read();
    if (text)
    {
        WARN("this system completes such texts");
    }
    CHECK((!text || *text == "ab"));
}

TEST_CASE("ReadInternetSetting: a key that may not be written is not read", "[internet]")
{
    UserSettings settings;
    settings.SetText(kInternetSettingsKey, L"Velt", L"text");
    {
        const DeniedKey denied(HKEY_CURRENT_USER, kInternetSettingsKey);
        CHECK(Read() == std::nullopt);
    }
    CHECK(Read() == "text");
}
