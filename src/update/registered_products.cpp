#include "update/registered_products.h"

#include "foundation/reg_key.h"
#include "foundation/system_exception.h"
#include "foundation/utrace.h"
#include "foundation/wide_text.h"

#include <windows.h>

namespace velt
{
namespace
{
constexpr wchar_t kProductsKey[] = L"Software\\Velt\\UpdateManager";

/// Whether a text is the same after the conversions that CRegKeyW makes, which end at a NUL. Two
/// that are not may well become one and the same value.
bool SurvivesNarrowing(const std::wstring& text)
{
    return text.find(L'\0') == std::wstring::npos &&
           ExactNarrowFromWide(text, CP_THREAD_ACP).has_value();
}

LSTATUS WriteProduct(const wchar_t* installerGuid, const wchar_t* productVersion)
{
    CRegKeyW key;
    const LSTATUS error =
        key.Create(HKEY_CURRENT_USER, kProductsKey, nullptr, REG_OPTION_NON_VOLATILE, KEY_WRITE);
    return error == ERROR_SUCCESS ? key.SetStringValue(installerGuid, productVersion) : error;
}
} // namespace

bool IsUpdateGUIDRegistered(const std::wstring& installerGuid, const std::wstring& productVersion)
{
    CRegKeyW key;
    DWORD size = 0;
    if (!SurvivesNarrowing(installerGuid) ||
        key.Open(HKEY_CURRENT_USER, kProductsKey, KEY_READ) != ERROR_SUCCESS ||
        key.QueryStringValue(installerGuid.c_str(), nullptr, &size) != ERROR_SUCCESS)
    {
        return false;
    }
    std::string recorded(size, '\0');
    if (key.QueryStringValue(installerGuid.c_str(), recorded.data(), &size) != ERROR_SUCCESS)
    {
        return false;
    }
    recorded.resize(size - 1); // without the NUL, which is there
    try
    {
        return WideFromNarrow(recorded, CP_THREAD_ACP) == productVersion;
    }
    catch (const SystemException::Win32&)
    {
        return false;
    }
}

void SetRegisteredUpdateGUIDIntoRegistry(const std::wstring& installerGuid,
                                         const std::wstring& productVersion)
{
    const LSTATUS error = SurvivesNarrowing(installerGuid)
                              ? WriteProduct(installerGuid.c_str(), productVersion.c_str())
                              : ERROR_NO_UNICODE_TRANSLATION;
    if (error != ERROR_SUCCESS)
    {
        UTrace::TraceLevel1("the product's registration cannot be recorded: %ld", error);
    }
}
} // namespace velt
