#include "foundation/bstr.h"

#include "foundation/system_exception.h"
#include "tests/support/import_patch.h"

#include <catch.hpp>

#include <string>

using namespace velt;
using namespace velt::test;

using AllocationPatch = ImportPatch<"SysAllocStringLen", decltype(::SysAllocStringLen)>;

TEST_CASE("MakeBstr: the text is copied whole", "[foundation]")
{
    const std::wstring text =
        GENERATE(values<std::wstring>({L"", L"text", std::wstring(L"a\0b\0", 4), L"\x65E5\x672C"}));
    const UniqueBstr made = MakeBstr(text);
    REQUIRE(made.Get() != nullptr);
    CHECK(std::wstring(made.Get(), ::SysStringLen(made.Get())) == text);
    CHECK(made.Get()[text.size()] == L'\0');
    CHECK(made.Get() != text.data());
}

TEST_CASE("MakeBstr: a text that the system does not allocate is out of memory", "[foundation]")
{
    const AllocationPatch patch("oleaut32.dll",
                                [](const OLECHAR*, UINT) -> BSTR { return nullptr; });
    CHECK_THROWS_MATCHES(MakeBstr(L"text"), SystemException::HRESULT,
                         Catch::Predicate<SystemException::HRESULT>(
                             [](const auto& e) { return e.GetCode() == E_OUTOFMEMORY; }));
}

TEST_CASE("UniqueBstr: it frees the string that it owns, once", "[foundation]")
{
    int freed = 0;
    const ImportPatch<"SysFreeString", decltype(::SysFreeString)> patch(
        "oleaut32.dll", [&](BSTR text) {
            ++freed;
            decltype(patch)::Original(text);
        });
    {
        UniqueBstr first = MakeBstr(L"first");
        UniqueBstr second = std::move(first);
        CHECK_FALSE(first);
        second = MakeBstr(L"second");
        CHECK(freed == 1);
        const UniqueBstr given(second.Release());
        CHECK(freed == 1);
    }
    CHECK(freed == 2);
}
