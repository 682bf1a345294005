#pragma once

#include "server/registrar_script.h"
#include "server/resource_ids.h"

#include <array>

namespace velt
{
inline constexpr wchar_t kAppId[] = L"{0808C913-0251-4F8F-9EB2-5EF1D9FFD5DC}";

/// What a class's registrar script gets beside what all scripts get.
struct ClassScript
{
    unsigned script; // a resource of type REGISTRY
    const wchar_t* threadingModel;
};

inline constexpr ClassScript kServiceScript{VELT_REGISTRY_VELT_HTTP_SERVICE, L"Free"};
inline constexpr ClassScript kCollectionScript{VELT_REGISTRY_ENUM_VARIANT_COL, L"Apartment"};
inline constexpr ClassScript kEulaScript{VELT_REGISTRY_VELT_EULA_DLG, L"Both"};

/// The classes' scripts in the order in which they run, after VELT_REGISTRY_APPID.
inline constexpr std::array kClassScripts = {kServiceScript, kCollectionScript, kEulaScript};

/// The texts for %MODULE%, the library's full path, and %APPID%.
inline RegistrarReplacements CommonReplacements(const std::wstring& module)
{
    return {{L"MODULE", module}, {L"APPID", kAppId}};
}

/// Beside those, the text for %THREADINGMODEL%.
inline void AddClassReplacements(RegistrarReplacements& replacements, const wchar_t* threadingModel)
{
    replacements.insert_or_assign(L"THREADINGMODEL", threadingModel);
}
} // namespace velt
