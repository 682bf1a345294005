#include "foundation/high_contrast.h"

#include "tests/support/high_contrast_on.h"
#include "tests/support/import_patch.h"

#include <catch.hpp>

using namespace velt::test;
using velt::IsHighContrastOn;

namespace
{
using SettingPatch = ImportPatch<"SystemParametersInfoW", decltype(::SystemParametersInfoW)>;
} // namespace

TEST_CASE("IsHighContrastOn: as the user has chosen", "[foundation]")
{
    {
        const HighContrastOn on;
        CHECK(IsHighContrastOn());
    }
    const SettingPatch off("user32.dll", [](UINT, UINT, void* value, UINT) -> BOOL {
        static_cast<HIGHCONTRASTW*>(value)->dwFlags = HCF_AVAILABLE | HCF_HOTKEYACTIVE;
        return TRUE;
    });
    CHECK_FALSE(IsHighContrastOn());
}

TEST_CASE("IsHighContrastOn: not when the system does not tell", "[foundation]")
{
    const SettingPatch refused("user32.dll", [](UINT, UINT, void* value, UINT) -> BOOL {
        static_cast<HIGHCONTRASTW*>(value)->dwFlags = HCF_HIGHCONTRASTON;
        ::SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    });
    CHECK_FALSE(IsHighContrastOn());
}
