#pragma once

#include "server/registrar_script.h"
#include "server/resource_ids.h"

#include <windows.h>

#include <comcat.h>

#include <provider_lib.h>

#include <array>
#include <span>

namespace velt
{
inline constexpr wchar_t kAppId[] = L"{0808C913-0251-4F8F-9EB2-5EF1D9FFD5DC}";

/// A component category that a class implements, or requires of its container.
struct CategoryRow
{
    enum class Kind
    {
        implemented,
        required,
    };

    Kind kind;
    CATID category;
};

/// What registration writes for one class.
struct ClassRegistration
{
    const CLSID* clsid;
    UINT script;                   // a resource of type REGISTRY
    const wchar_t* threadingModel; // what the script writes for it
    std::span<const CategoryRow> categories;
};

inline constexpr ClassRegistration kServiceRegistration{
    &CLSID_CVeltHTTPService, VELT_REGISTRY_VELT_HTTP_SERVICE, L"Free", {}};
inline constexpr ClassRegistration kCollectionRegistration{
    &CLSID_CEnumVariantCol, VELT_REGISTRY_ENUM_VARIANT_COL, L"Apartment", {}};
inline constexpr ClassRegistration kEulaRegistration{
    &CLSID_CVeltEulaDlg, VELT_REGISTRY_VELT_EULA_DLG, L"Both", {}};

/// The classes in the order in which they are registered, after VELT_REGISTRY_APPID.
inline constexpr std::array kClassRegistrations = {kServiceRegistration, kCollectionRegistration,
                                                   kEulaRegistration};

/// The text for %APPID%, which every script may use beside %MODULE%.
inline void AddCommonReplacements(RegistrarReplacements& replacements)
{
    replacements.insert_or_assign(L"APPID", kAppId);
}

/// The text for %THREADINGMODEL%, which a class's script may use beside those.
inline void AddClassReplacement(RegistrarReplacements& replacements, const ClassRegistration& row)
{
    replacements.insert_or_assign(L"THREADINGMODEL", row.threadingModel);
}
} // namespace velt
