// What the probe does when it finds no memory. Here and not beside its other tests, because it
// replaces this program's allocation.

#include "connection/connection_probe.h"

#include "tests/support/failing_allocation.h"
#include "tests/support/import_patch.h"

#include <windows.h>

#include <wininet.h>

#include <catch.hpp>

#include <cstring>
#include <new>
#include <set>
#include <string>

using namespace velt::test;
using velt::ConnectionProbe;

namespace
{
using QueryPatch = ImportPatch<"InternetQueryOptionW", decltype(::InternetQueryOptionW)>;
using FreePatch = ImportPatch<"GlobalFree", decltype(::GlobalFree)>;

wchar_t* Allocated(const std::wstring& text)
{
    const std::size_t bytes = (text.size() + 1) * sizeof(wchar_t);
    auto* const copy = static_cast<wchar_t*>(::GlobalAlloc(GMEM_FIXED, bytes));
    std::memcpy(copy, text.c_str(), bytes);
    return copy;
}
} // namespace

TEST_CASE("ConnectionProbe: every text of the configuration is freed when memory ends",
          "[connection]")
{
    const int failing = GENERATE(0, 1, 2); // at the first text, at the second, not at all
    CAPTURE(failing);
    wchar_t* const texts[] = {Allocated(std::wstring(100, L'u')), Allocated(std::wstring(50, L'b')),
                              Allocated(std::wstring(500, L'p'))};
    const QueryPatch queries("wininet.dll", [&](HINTERNET, DWORD, void* buffer, DWORD*) -> WINBOOL {
        auto& list = *static_cast<INTERNET_PER_CONN_OPTION_LISTW*>(buffer);
        list.pOptions[0].Value.pszValue = texts[0];
        list.pOptions[3].Value.pszValue = texts[1];
        list.pOptions[4].Value.pszValue = texts[2];
        return TRUE;
    });
    int freed = 0;
    const FreePatch frees("kernel32.dll", [&](HGLOBAL memory) {
        freed += memory == texts[0] || memory == texts[1] || memory == texts[2] ? 1 : 0;
        return FreePatch::Original(memory);
    });
    std::wstring text;
    bool isConfigured = false;
    bool hasMemory = true;
    try
    {
        const FailingAllocation allocation(failing);
        isConfigured = ConnectionProbe::QueryProxySettings(text);
    }
    catch (const std::bad_alloc&)
    {
        hasMemory = false;
    }
    CHECK(hasMemory == (failing == 2));
    CHECK(isConfigured == hasMemory);
    CHECK(freed == 3);
}
