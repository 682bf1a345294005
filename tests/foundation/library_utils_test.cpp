#include "foundation/library_utils.h"

#include "tests/support/import_patch.h"
#include "tests/support/initialize_spy.h"
#include "tests/support/message_module.h"
#include "tests/support/temp_folder.h"
#include "tests/support/test_thread.h"

#include <catch.hpp>

#include <array>
#include <string>
#include <type_traits>
#include <vector>

using CLibraryUtils::CLibraryUtilsImpl;
using CLibraryUtils::SmartComInitializer;
using velt::LoadSystemLibrary;
using velt::test::ImportPatch;
using velt::test::InitializeSpy;
using velt::test::MessageModule;
using velt::test::OnOtherThread;

namespace
{
bool IsComInitialised()
{
    APTTYPE type{};
    APTTYPEQUALIFIER qualifier{};
    return ::CoGetApartmentType(&type, &qualifier) == S_OK;
}

/// What a test thread has seen of a SmartComInitializer.
struct Seen
{
    HRESULT result = E_PENDING;
    int uninitialised = -1;
    bool isInitialisedInside = false;
    bool isInitialisedAfter = true;
};

/// Makes and destroys one on a thread that has done `coInit` (COINIT_...) first, unless -1.
Seen MakeOne(int coInit)
{
    return OnOtherThread([&] {
        if (coInit != -1)
        {
            ::CoInitializeEx(nullptr, static_cast<DWORD>(coInit));
        }
        Seen seen;
        const InitializeSpy spy;
        {
            const SmartComInitializer com;
            seen.result = com.GetResult();
            seen.isInitialisedInside = IsComInitialised();
        }
        seen.uninitialised = spy.Uninitialised();
        seen.isInitialisedAfter = IsComInitialised();
        if (coInit != -1)
        {
            ::CoUninitialize();
        }
        return seen;
    });
}
} // namespace

TEST_CASE("SmartComInitializer: on a new thread it initialises COM for its life", "[foundation]")
{
    const Seen seen = MakeOne(-1);
    CHECK(seen.result == S_OK);
    CHECK(seen.isInitialisedInside);
    CHECK(seen.uninitialised == 1);
    CHECK_FALSE(seen.isInitialisedAfter);
}

TEST_CASE("SmartComInitializer: it makes a single-threaded apartment", "[foundation]")
{
    const APTTYPE type = OnOtherThread([] {
        const SmartComInitializer com;
        APTTYPE found{};
        APTTYPEQUALIFIER qualifier{};
        ::CoGetApartmentType(&found, &qualifier);
        return found;
    });
    CHECK((type == APTTYPE_STA || type == APTTYPE_MAINSTA));
}

TEST_CASE("SmartComInitializer: S_FALSE is balanced", "[foundation]")
{
    const Seen seen = MakeOne(COINIT_APARTMENTTHREADED);
    CHECK(seen.result == S_FALSE);
    CHECK(seen.uninitialised == 1);
    CHECK(seen.isInitialisedAfter); // by the thread's own initialisation
}

TEST_CASE("SmartComInitializer: in the multithreaded apartment it does not uninitialise",
          "[foundation]")
{
    const Seen seen = MakeOne(COINIT_MULTITHREADED);
    CHECK(seen.result == RPC_E_CHANGED_MODE);
    CHECK(seen.uninitialised == 0);
    CHECK(seen.isInitialisedAfter);
}

TEST_CASE("SmartComInitializer: any other failure is followed by an uninitialisation",
          "[foundation]")
{
    const auto [result, uninitialised] = OnOtherThread([] {
        InitializeSpy spy;
        spy.AnswerWith(E_FAIL);
        HRESULT kept = S_OK;
        {
            const SmartComInitializer com;
            kept = com.GetResult();
        }
        return std::pair(kept, spy.Uninitialised());
    });
    CHECK(result == E_FAIL);
    CHECK(uninitialised == 1);
    CHECK(std::has_virtual_destructor_v<SmartComInitializer>);
}

TEST_CASE("CLibraryUtilsImpl: it frees the library", "[foundation]")
{
    const velt::test::TempFolder folder;
    const MessageModule file(folder.File(L"velt_owned.dll"), 1, L"text");
    {
        const CLibraryUtilsImpl library(::LoadLibraryW(file.Path().c_str()));
        REQUIRE(library.GetModule() != nullptr);
        CHECK(::GetModuleHandleW(L"velt_owned.dll") == library.GetModule());
        {
            const CLibraryUtilsImpl again(::LoadLibraryW(file.Path().c_str()));
            CHECK(again.GetModule() == library.GetModule());
        }
        CHECK(::GetModuleHandleW(L"velt_owned.dll") == library.GetModule());
    }
    CHECK(::GetModuleHandleW(L"velt_owned.dll") == nullptr);
}

TEST_CASE("CLibraryUtilsImpl: without a library it does nothing", "[foundation]")
{
    ::SetLastError(ERROR_BUSY);
    {
        const CLibraryUtilsImpl none;
        CHECK(none.GetModule() == nullptr);
        const CLibraryUtilsImpl null(nullptr);
        CHECK(null.GetModule() == nullptr);
    }
    CHECK(::GetLastError() == ERROR_BUSY);
    CHECK(std::has_virtual_destructor_v<CLibraryUtilsImpl>);
}

TEST_CASE("LoadSystemLibrary: it loads from the system directory", "[foundation]")
{
    const CLibraryUtilsImpl library(LoadSystemLibrary(L"lz32.dll"));
    REQUIRE(library.GetModule() != nullptr);
    std::array<wchar_t, MAX_PATH> path{};
    ::GetModuleFileNameW(library.GetModule(), path.data(), static_cast<DWORD>(path.size()));
    CHECK(::_wcsicmp(path.data(), velt::test::InSystemFolder(L"lz32.dll").c_str()) == 0);
}

TEST_CASE("LoadSystemLibrary: a missing library sets the last error", "[foundation]")
{
    ::SetLastError(0);
    CHECK(LoadSystemLibrary(L"velt_none.dll") == nullptr);
    CHECK(::GetLastError() == ERROR_MOD_NOT_FOUND);
}

TEST_CASE("LoadSystemLibrary: a library beside the program is not loaded", "[foundation]")
{
    const MessageModule planted(velt::test::BesideProgram(L"velt_planted.dll"), 1, L"text");
    {
        const CLibraryUtilsImpl usual(::LoadLibraryW(L"velt_planted.dll"));
        REQUIRE(usual.GetModule() != nullptr); // the plant is one that the usual search finds
    }
    CHECK(LoadSystemLibrary(L"velt_planted.dll") == nullptr);
}

namespace
{
/// A system that does not know how to search its own directory alone. Keeps what it is asked for
/// otherwise.
class OlderSystem
{
public:
    struct Load
    {
        std::wstring path;
        DWORD flags;
    };

    const std::vector<Load>& Loads() const noexcept
    {
        return m_loads;
    }

private:
    using Patch = ImportPatch<"LoadLibraryExW", decltype(::LoadLibraryExW)>;

    std::vector<Load> m_loads;
    Patch m_patch{"kernel32.dll", [this](const wchar_t* path, HANDLE file, DWORD flags) -> HMODULE {
                      if ((flags & LOAD_LIBRARY_SEARCH_SYSTEM32) != 0)
                      {
                          ::SetLastError(ERROR_INVALID_PARAMETER);
                          return nullptr;
                      }
                      m_loads.push_back({path, flags});
                      return Patch::Original(path, file, flags);
                  }};
};
} // namespace

TEST_CASE("LoadSystemLibrary: a system that does not know the flag loads by the full path",
          "[foundation]")
{
    const OlderSystem system;
    SECTION("a library of the system")
    {
        const CLibraryUtilsImpl library(LoadSystemLibrary(L"lz32.dll"));
        CHECK(library.GetModule() != nullptr);
        REQUIRE(system.Loads().size() == 1);
        CHECK(system.Loads()[0].path == velt::test::InSystemFolder(L"lz32.dll"));
        CHECK(system.Loads()[0].flags == LOAD_WITH_ALTERED_SEARCH_PATH);
    }
    SECTION("one that is missing")
    {
        CHECK(LoadSystemLibrary(L"velt_none.dll") == nullptr);
        CHECK(::GetLastError() == ERROR_MOD_NOT_FOUND);
    }
    SECTION("one that lies beside the program")
    {
        const MessageModule planted(velt::test::BesideProgram(L"velt_planted.dll"), 1, L"text");
        CHECK(LoadSystemLibrary(L"velt_planted.dll") == nullptr);
    }
    SECTION("a name that leaves no room for the path")
    {
        CHECK(LoadSystemLibrary(std::wstring(MAX_PATH - 8, L'a').c_str()) == nullptr);
        CHECK(::GetLastError() == ERROR_BAD_PATHNAME);
        CHECK(system.Loads().empty());
    }
    SECTION("a system directory that cannot be had")
    {
        const ImportPatch<"GetSystemDirectoryW", decltype(::GetSystemDirectoryW)> none(
            "kernel32.dll", [](wchar_t*, UINT) -> UINT { return 0; });
        CHECK(LoadSystemLibrary(L"lz32.dll") == nullptr);
        CHECK(::GetLastError() == ERROR_BAD_PATHNAME);
        CHECK(system.Loads().empty());
    }
}

TEST_CASE("LoadSystemLibrary: any other failure is final", "[foundation]")
{
    const ImportPatch<"LoadLibraryExW", decltype(::LoadLibraryExW)> failing(
        "kernel32.dll", [](const wchar_t*, HANDLE, DWORD) -> HMODULE {
            ::SetLastError(ERROR_BAD_EXE_FORMAT);
            return nullptr;
        });
    CHECK(LoadSystemLibrary(L"lz32.dll") == nullptr);
    CHECK(::GetLastError() == ERROR_BAD_EXE_FORMAT);
    CHECK(failing.Calls() == 1);
}
