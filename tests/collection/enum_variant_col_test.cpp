#include "tests/support/component_library.h"

#include <provider_lib.h>

#include <catch.hpp>

using velt::test::ComponentLibrary;

TEST_CASE("CEnumVariantCol: a new collection is empty", "[collection]")
{
    const ComponentLibrary library;
    const auto collection = library.Create<IEnumVariantCol>(CLSID_CEnumVariantCol);
    LONG count = 77;
    REQUIRE(collection->get_Count(&count) == S_OK);
    CHECK(count == 0);
}
