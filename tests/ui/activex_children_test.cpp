#include "tests/support/import_patch.h"
#include "tests/ui/test_dialog.h"

#include <ole2.h>

#include <catch.hpp>

#include <array>
#include <cstring>
#include <optional>
#include <string>
#include <utility>
#include <vector>

using namespace velt::test;

namespace
{
/// OLE on this thread, which hosts of ActiveX controls need.
class OleScope
{
public:
    OleScope()
    {
        REQUIRE(SUCCEEDED(::OleInitialize(nullptr)));
    }

    OleScope(const OleScope&) = delete;
    OleScope& operator=(const OleScope&) = delete;

    ~OleScope()
    {
        ::OleUninitialize();
    }
};

std::wstring ClassOf(HWND window)
{
    std::array<wchar_t, 64> name{};
    ::GetClassNameW(window, name.data(), static_cast<int>(name.size()));
    return name.data();
}

/// Notes what hosts of ActiveX controls are created with on this thread, by their numbers: null, or
/// a size of 16 bits and so many bytes.
class HostsCreated
{
public:
    HostsCreated()
        : m_hook(::SetWindowsHookExW(WH_CBT, &HostsCreated::See, nullptr, ::GetCurrentThreadId()))
    {
        s_parameters.clear();
    }

    HostsCreated(const HostsCreated&) = delete;
    HostsCreated& operator=(const HostsCreated&) = delete;

    ~HostsCreated()
    {
        ::UnhookWindowsHookEx(m_hook);
    }

    /// Number and data of each, in the order of their creation.
    static std::vector<std::pair<int, std::optional<std::string>>> Parameters()
    {
        return s_parameters;
    }

private:
    static LRESULT CALLBACK See(int code, WPARAM wParam, LPARAM lParam)
    {
        if (code == HCBT_CREATEWND && ClassOf(reinterpret_cast<HWND>(wParam)) == L"AtlAxWin")
        {
            const CREATESTRUCTW& made = *reinterpret_cast<const CBT_CREATEWNDW*>(lParam)->lpcs;
            std::optional<std::string> data;
            if (const auto* const bytes = static_cast<const char*>(made.lpCreateParams))
            {
                WORD size = 0;
                std::memcpy(&size, bytes, sizeof(size));
                data.emplace(bytes + sizeof(size), size);
            }
            s_parameters.emplace_back(static_cast<int>(reinterpret_cast<INT_PTR>(made.hMenu)),
                                      data);
        }
        return ::CallNextHookEx(nullptr, code, wParam, lParam);
    }

    inline static std::vector<std::pair<int, std::optional<std::string>>> s_parameters;

    HHOOK m_hook;
};
} // namespace

TEST_CASE("ActiveX children: the system's library hosts the control at its place of the template",
          "[ui]")
{
    const OleScope ole;
    TestDialog dialog(TEST_DIALOG_ACTIVEX);
    HWND host = nullptr;
    CHECK(dialog.Show([&] {
        host = dialog.Child(TEST_CHILD_BROWSER);
        REQUIRE(host);
        CHECK(ClassOf(host) == L"AtlAxWin");
        CHECK(::GetWindow(host, GW_CHILD) != nullptr); // the browser's own window
        CHECK(::IsWindowVisible(host));

        RECT expected{30, 20, 90, 60};
        ::MapDialogRect(dialog.Window(), &expected);
        RECT place{};
        ::GetWindowRect(host, &place);
        ::MapWindowPoints(nullptr, dialog.Window(), reinterpret_cast<POINT*>(&place), 2);
        CHECK(::EqualRect(&place, &expected));

        CHECK(::GetWindow(host, GW_HWNDPREV) == dialog.Child(TEST_CHILD_BUTTON));
        CHECK(::GetWindow(host, GW_HWNDNEXT) == dialog.Child(TEST_CHILD_LABEL));
    }) == 7);
    CHECK_FALSE(::IsWindow(host));
}

TEST_CASE("ActiveX children: without the system's library the dialog works without them", "[ui]")
{
    using LoadPatch = velt::test::ImportPatch<"LoadLibraryExW", decltype(::LoadLibraryExW)>;
    const LoadPatch missing("kernel32.dll", [](const wchar_t* name, HANDLE file, DWORD flags) {
        if (::lstrcmpiW(name, L"ATL.DLL") == 0)
        {
            ::SetLastError(ERROR_MOD_NOT_FOUND);
            return static_cast<HMODULE>(nullptr);
        }
        return LoadPatch::Original(name, file, flags);
    });
    TestDialog dialog(TEST_DIALOG_ACTIVEX);
    CHECK(dialog.Show([&] {
        CHECK(dialog.Child(TEST_CHILD_BROWSER) == nullptr);
        CHECK(dialog.Child(TEST_CHILD_BUTTON) != nullptr);
        CHECK(dialog.Child(TEST_CHILD_LABEL) != nullptr);
    }) == 7);
    CHECK(missing.Calls() == 1);
}

TEST_CASE("ActiveX children: a control that cannot be made does not keep the dialog from showing",
          "[ui]")
{
    // On this thread OLE is not initialised.
    TestDialog dialog(TEST_DIALOG_ACTIVEX);
    CHECK(dialog.Show([&] { CHECK(dialog.Child(TEST_CHILD_LABEL) != nullptr); }) == 7);
}

TEST_CASE("ActiveX children: a dialog without them does not load the library", "[ui]")
{
    using LoadPatch = velt::test::ImportPatch<"LoadLibraryExW", decltype(::LoadLibraryExW)>;
    const LoadPatch load("kernel32.dll", [](const wchar_t* name, HANDLE file, DWORD flags) {
        return LoadPatch::Original(name, file, flags);
    });
    TestDialog dialog(TEST_DIALOG);
    CHECK(dialog.Show([] {}) == 7);
    CHECK(load.Calls() == 0);
}

TEST_CASE("ActiveX children: places, sizes and order are the template's, whatever the numbers are",
          "[ui]")
{
    const OleScope ole;
    TestDialog dialog(TEST_DIALOG_ACTIVEX_MANY);
    CHECK(dialog.Show([&] {
        std::vector<std::wstring> order;
        std::vector<RECT> places;
        for (HWND child = ::GetWindow(dialog.Window(), GW_CHILD); child;
             child = ::GetWindow(child, GW_HWNDNEXT))
        {
            std::array<wchar_t, 64> text{};
            ::GetWindowTextW(child, text.data(), static_cast<int>(text.size()));
            order.push_back(ClassOf(child) == L"Static" ? std::wstring(text.data())
                                                        : std::to_wstring(::GetDlgCtrlID(child)));
            RECT place{};
            ::GetWindowRect(child, &place);
            places.push_back(place);
        }
        REQUIRE(order ==
                std::vector<std::wstring>{L"0", L"First", L"Second", L"201", L"202", L"Third"});
        CHECK(::EqualRect(&places[3], &places[2])); // of the same numbers in the template
        CHECK(::EqualRect(&places[4], &places[5]));
    }) == 7);
}

TEST_CASE("ActiveX children: the library that knows the window class stays", "[ui]")
{
    using HandlePatch =
        velt::test::ImportPatch<"GetModuleHandleExW", decltype(::GetModuleHandleExW)>;
    const OleScope ole;
    DWORD asked = 0;
    HMODULE pinned = nullptr;
    const HandlePatch patch("kernel32.dll", [&](DWORD flags, const wchar_t* name, HMODULE* module) {
        const BOOL done = HandlePatch::Original(flags, name, module);
        asked = flags;
        pinned = *module;
        return done;
    });
    TestDialog dialog(TEST_DIALOG_ACTIVEX);
    CHECK(dialog.Show([] {}) == 7);
    // By an address in it: a host may have a library of the same name.
    CHECK(asked == (GET_MODULE_HANDLE_EX_FLAG_PIN | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS));
    std::array<wchar_t, MAX_PATH> path{};
    ::GetModuleFileNameW(pinned, path.data(), static_cast<DWORD>(path.size()));
    std::array<wchar_t, MAX_PATH> system{};
    ::GetSystemDirectoryW(system.data(), static_cast<UINT>(system.size()));
    CHECK(::lstrcmpiW(path.data(), (std::wstring(system.data()) + L"\\ATL.DLL").c_str()) == 0);
}

TEST_CASE("ActiveX children: hosts are created with the initial data, else with the creation data",
          "[ui]")
{
    // The system's host has the control load itself from that. Wine's does not look at it.
    const OleScope ole;
    const HostsCreated hosts;
    TestDialog dialog(TEST_DIALOG_ACTIVEX_DATA);
    CHECK(dialog.Show([&] {
        for (const int id : {201, 202, 203, 204})
        {
            CHECK(dialog.Child(id) != nullptr);
        }
    }) == 7);
    std::string longer; // than one byte of the size can say
    for (int i = 0; i < 320; ++i)
    {
        longer += static_cast<char>('0' + i % 10);
    }
    using Parameters = std::vector<std::pair<int, std::optional<std::string>>>;
    CHECK(HostsCreated::Parameters() == Parameters{{201, "template"},
                                                   {202, std::string("initial\0", 8)},
                                                   {203, std::nullopt},
                                                   {204, longer}});
}
