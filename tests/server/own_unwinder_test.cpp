#include "foundation/library_utils.h"
#include "tests/support/component_library.h"

#include <provider_lib.h>

#include <catch.hpp>

#include <memory>
#include <string_view>

using CLibraryUtils::CLibraryUtilsImpl;
using velt::test::ComponentLibrary;

namespace
{
/// A call inside which the component throws and catches an exception.
HRESULT CallThatThrowsInside(const ComponentLibrary& library)
{
    const auto collection = library.Create<IEnumVariantCol>(CLSID_CEnumVariantCol);
    VARIANT impossible{};
    impossible.vt = 0x0FFF; // a type that VariantCopy refuses
    return collection->Remove(impossible);
}

constexpr std::wstring_view kSharedUnwinder = VELT_SHARED_UNWINDER; // its path

/// The compiler's shared unwinder, which a host may have loaded for itself.
HMODULE LoadSharedUnwinder()
{
    return ::LoadLibraryW(kSharedUnwinder.data());
}
} // namespace

// First: the shared unwinder stays loaded once it was.
TEST_CASE("The component: it can be unloaded after a shared unwinder came", "[server]")
{
    REQUIRE(!::GetModuleHandleW(kSharedUnwinder.substr(kSharedUnwinder.rfind(L'\\') + 1).data()));
    auto library = std::make_unique<ComponentLibrary>();
    const CLibraryUtilsImpl unwinder(LoadSharedUnwinder());
    CHECK(CallThatThrowsInside(*library) == DISP_E_BADVARTYPE);
    library.reset();
    CHECK(unwinder.GetModule());
}

TEST_CASE("The component: exceptions work beside a host's shared unwinder", "[server]")
{
    const CLibraryUtilsImpl unwinder(LoadSharedUnwinder());
    REQUIRE(unwinder.GetModule());
    const ComponentLibrary library;
    CHECK(CallThatThrowsInside(library) == DISP_E_BADVARTYPE);
}
