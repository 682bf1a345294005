// What happens when a library of the system that is loaded late cannot be loaded. Each host is a
// process of its own, because a library that was loaded once stays.

#include "foundation/unique_file.h"
#include "tests/support/catch_options.h"
#include "tests/support/child_process.h"
#include "tests/support/com_apartment.h"
#include "tests/support/component_library.h"
#include "tests/support/import_patch.h"
#include "tests/support/message_module.h"
#include "tests/support/missing_system_library.h"
#include "tests/support/temp_folder.h"
#include "tests/ui/eula_files.h"
#include "ui/resources/resource_ids.h"

#include <provider_lib.h>

#include <comutil.h>

#include <array>
#include <string_view>

#include <catch.hpp>

using velt::test::ComponentLibrary;
using velt::test::MessageModule;
using velt::test::MissingSystemLibrary;
using velt::test::TempFolder;

namespace
{
constexpr HRESULT kModuleNotFound = HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND);

/// This program in a folder of its own, with a false library of the system beside it.
class Host
{
public:
    explicit Host(const std::wstring& library)
        : m_program(m_folder.File(L"host.exe")),
          m_false(m_folder.File(library), 1, L"false")
    {
        std::array<wchar_t, MAX_PATH> self{};
        ::GetModuleFileNameW(nullptr, self.data(), MAX_PATH);
        REQUIRE(::CopyFileW(self.data(), m_program.c_str(), TRUE));
        velt::test::PreferFiles(L"host.exe", library);
    }

    /// Runs one of the hidden test cases; 0 when it has passed.
    DWORD Run(const std::wstring& testCase) const
    {
        return velt::test::RunProcess(L"\"" + m_program + L"\"" VELT_FAIL_WITHOUT_TESTS L" \"" +
                                      testCase + L"\"");
    }

private:
    TempFolder m_folder{L"host"};
    std::wstring m_program;
    MessageModule m_false;
};

/// Calls each cookie member and checks its result.
void UseCookies(IVeltHTTPService& service, HRESULT expected)
{
    const _bstr_t url(L"http://localhost/delay");
    const _bstr_t name(L"name");
    const _bstr_t value(L"value");
    CHECK(service.WriteData(url, name, value) == expected);
    CHECK(service.SafeWriteData(url, name, value) == expected);
    for (const auto member : {&IVeltHTTPService::ReadData, &IVeltHTTPService::SafeReadData})
    {
        wchar_t poison = 0;
        BSTR text = &poison;
        CHECK((service.*member)(url, name, &text) == expected);
        if (text != &poison)
        {
            CHECK(expected == S_OK);
            ::SysFreeString(text);
        }
    }
}
} // namespace

TEST_CASE("late loading: without the system's library a member fails and works once it is there",
          "[.child]")
{
    MissingSystemLibrary missing(L"wininet.dll");
    const ComponentLibrary library;
    const auto service = library.Create<IVeltHTTPService>(CLSID_CVeltHTTPService);
    UseCookies(*service.Get(), kModuleNotFound);
    UseCookies(*service.Get(), kModuleNotFound);          // nothing of the first attempt is kept
    CHECK(::GetModuleHandleW(L"wininet.dll") == nullptr); // not the one beside the host either
    missing.PutBack();
    UseCookies(*service.Get(), S_OK);
}

TEST_CASE("late loading: a system's library that is no library is a failure too", "[.child]")
{
    const MissingSystemLibrary missing(L"wininet.dll");
    const std::wstring path = velt::test::InSystemFolder(L"wininet.dll");
    {
        const velt::UniqueFile file(
            ::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr));
        DWORD written = 0;
        REQUIRE(::WriteFile(file.Get(), "text", 4, &written, nullptr));
    }
    {
        const ComponentLibrary library;
        const auto service = library.Create<IVeltHTTPService>(CLSID_CVeltHTTPService);
        UseCookies(*service.Get(), HRESULT_FROM_WIN32(ERROR_BAD_EXE_FORMAT));
    }
    ::DeleteFileW(path.c_str());
}

TEST_CASE("late loading: a function that the system's library lacks is a failure", "[.child]")
{
    const MissingSystemLibrary missing(L"wininet.dll");
    const MessageModule empty(velt::test::InSystemFolder(L"wininet.dll"), 1, L"empty");
    const ComponentLibrary library;
    const auto service = library.Create<IVeltHTTPService>(CLSID_CVeltHTTPService);
    UseCookies(*service.Get(), HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND));
    UseCookies(*service.Get(), HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND)); // each time
}

TEST_CASE("late loading: without the controls' library the dialog fails", "[.child]")
{
    const velt::test::ComApartment apartment;
    const MissingSystemLibrary missing(L"comctl32.dll");
    const ComponentLibrary library;
    const auto dialog = library.Create<IVeltEulaDlg>(CLSID_CVeltEulaDlg);
    VARIANT_BOOL accepted = 77;
    const HRESULT result = dialog->LaunchEula(nullptr, nullptr, &accepted);
    CHECK(result == kModuleNotFound);
    CHECK(accepted == 77);
    CHECK(::GetModuleHandleW(L"comctl32.dll") == nullptr);
}

TEST_CASE("The library: loads the system's libraries from the system's folder or not at all",
          "[server]")
{
    CHECK(Host(L"wininet.dll")
              .Run(L"late loading: without the system's library a member fails and works once it "
                   L"is there") == 0);
    CHECK(Host(L"comctl32.dll")
              .Run(L"late loading: without the controls' library the dialog fails") == 0);
}

TEST_CASE("The library: what is wrong with a library of the system is the member's failure",
          "[server]")
{
    const Host host(L"wininet.dll");
    CHECK(host.Run(L"late loading: a system's library that is no library is a failure too") == 0);
    CHECK(host.Run(L"late loading: a function that the system's library lacks is a failure") == 0);
}

namespace
{
/// Moves the mouse over the dialog's OK button and presses it. A timer of the dialog's own thread.
void CALLBACK MoveAndPress(HWND, UINT, UINT_PTR, DWORD) noexcept
{
    const auto press = [](HWND window, LPARAM) WINAPI -> BOOL {
        const HWND ok = ::GetDlgItem(window, VELT_EULA_OK);
        if (ok && ::IsWindowVisible(window))
        {
            ::SendMessageW(ok, WM_MOUSEMOVE, 0, MAKELPARAM(3, 3));
            ::PostMessageW(window, WM_COMMAND, IDOK, reinterpret_cast<LPARAM>(ok));
        }
        return TRUE;
    };
    ::EnumThreadWindows(::GetCurrentThreadId(), press, 0);
}
} // namespace

TEST_CASE("late loading: a button whose mouse cannot be followed works", "[server]")
{
    const velt::test::ComApartment apartment;
    const ComponentLibrary library;
    using FindPatch = velt::test::ImportPatch<"GetProcAddress", decltype(::GetProcAddress)>;
    bool isAsked = false;
    const FindPatch find(
        "kernel32.dll",
        [&](HMODULE module, const char* name) -> FARPROC {
            if (!IS_INTRESOURCE(name) && std::string_view(name) == "_TrackMouseEvent")
            {
                isAsked = true;
                ::SetLastError(ERROR_PROC_NOT_FOUND);
                return nullptr;
            }
            return FindPatch::Original(module, name);
        },
        library.Module());
    const TempFolder folder(L"followed");
    folder.Write(L"agreement.rtf", velt::test::kSmallAgreement);
    const _bstr_t agreement(folder.File(L"agreement.rtf").c_str());
    const auto dialog = library.Create<IVeltEulaDlg>(CLSID_CVeltEulaDlg);
    const UINT_PTR timer = ::SetTimer(nullptr, 0, 20, &MoveAndPress);
    VARIANT_BOOL accepted = 0x5555;
    CHECK(dialog->LaunchEula(agreement, nullptr, &accepted) == S_OK);
    ::KillTimer(nullptr, timer);
    CHECK(isAsked);
    CHECK(accepted == VARIANT_FALSE);
}
