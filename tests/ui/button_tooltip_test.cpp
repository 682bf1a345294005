#include "tests/support/import_patch.h"
#include "tests/ui/button_scene.h"

#include <commctrl.h>

#include <catch.hpp>

#include <array>
#include <string>
#include <vector>

using namespace velt;
using namespace velt::test;

namespace
{
/// The tooltip of the button: the one window of that class that it owns through its dialog.
HWND FindTooltip(const TestDialog& dialog)
{
    HWND found = nullptr;
    while ((found = ::FindWindowExW(nullptr, found, TOOLTIPS_CLASSW, nullptr)) != nullptr)
    {
        if (::GetWindow(found, GW_OWNER) == dialog.Window())
        {
            return found;
        }
    }
    return nullptr;
}

std::wstring ToolText(HWND tooltip, HWND button)
{
    std::array<wchar_t, 100> text{};
    TTTOOLINFOW tool{};
    tool.cbSize = TTTOOLINFOW_V1_SIZE;
    tool.hwnd = button;
    tool.uId = reinterpret_cast<UINT_PTR>(button);
    tool.lpszText = text.data();
    ::SendMessageW(tooltip, TTM_GETTEXTW, 100, reinterpret_cast<LPARAM>(&tool));
    return text.data();
}
} // namespace

TEST_CASE("Tooltip: one tool for the whole button with the text; none without a text", "[ui]")
{
    ButtonScene scene;
    const bool isSetBefore = GENERATE(false, true);
    if (isSetBefore)
    {
        scene.button.SetTooltipText(L"What it does");
    }
    scene.Show([&] {
        const HWND tooltip = FindTooltip(scene.dialog);
        REQUIRE(tooltip);
        CHECK(::SendMessageW(tooltip, TTM_GETTOOLCOUNT, 0, 0) == (isSetBefore ? 1 : 0));
        scene.button.SetTooltipText(L"Something else");
        CHECK(::SendMessageW(tooltip, TTM_GETTOOLCOUNT, 0, 0) == 1);
        CHECK(ToolText(tooltip, scene.window) == L"Something else");
        scene.button.SetTooltipText(L"");
        CHECK(::SendMessageW(tooltip, TTM_GETTOOLCOUNT, 0, 0) == 0);
        ::DestroyWindow(scene.window);
        CHECK_FALSE(::IsWindow(tooltip));
    });
}

TEST_CASE("Tooltip: gets every mouse message, and nothing else", "[ui]")
{
    ButtonScene scene;
    scene.button.SetTooltipText(L"What it does");
    scene.Show([&] {
        using SendPatch = ImportPatch<"SendMessageW", decltype(::SendMessageW)>;
        const HWND tooltip = FindTooltip(scene.dialog);
        std::vector<UINT> relayed;
        const SendPatch patch("user32.dll",
                              [&](HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
                                  if (window == tooltip && message == TTM_RELAYEVENT)
                                  {
                                      const MSG& given = *reinterpret_cast<const MSG*>(lParam);
                                      CHECK(given.hwnd == scene.window);
                                      CHECK(given.lParam == kInside);
                                      CHECK(given.time == 0);
                                      CHECK(given.pt.x == 0);
                                      relayed.push_back(given.message);
                                  }
                                  return SendPatch::Original(window, message, wParam, lParam);
                              });
        std::vector<UINT> sent;
        for (UINT message = WM_MOUSEMOVE - 1; message <= WM_MOUSEWHEEL + 1; ++message)
        {
            SendPatch::Original(scene.window, message, 0, kInside);
            if (message >= WM_MOUSEMOVE && message <= WM_MOUSEWHEEL)
            {
                sent.push_back(message);
            }
        }
        CHECK(relayed == sent);
        CHECK(sent.size() == 11);
    });
}

TEST_CASE("Tooltip: the button works without the control", "[ui]")
{
    ButtonScene scene;
    scene.button.SetTooltipText(L"What it does");
    using CreatePatch = ImportPatch<"CreateWindowExW", decltype(::CreateWindowExW)>;
    const CreatePatch failing("user32.dll", [](DWORD, const wchar_t*, const wchar_t*, DWORD, int,
                                               int, int, int, HWND, HMENU, HINSTANCE,
                                               void*) { return static_cast<HWND>(nullptr); });
    scene.Show([&] {
        CHECK(failing.Calls() == 1);
        scene.Send(WM_LBUTTONDOWN, MK_LBUTTON, kInside);
        scene.Send(WM_LBUTTONUP, 0, kInside);
        CHECK(scene.Commands().size() == 1);
    });
}

TEST_CASE("Tooltip: it is activated before it gets its tool, which is the whole button", "[ui]")
{
    ButtonScene scene;
    scene.button.SetTooltipText(L"What it does");
    using SendPatch = ImportPatch<"SendMessageW", decltype(::SendMessageW)>;
    std::vector<UINT> sent;
    TTTOOLINFOW added{};
    const SendPatch patch("user32.dll",
                          [&](HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
                              if (message == TTM_ACTIVATE || message == TTM_ADDTOOLW)
                              {
                                  sent.push_back(message);
                                  CHECK((message != TTM_ACTIVATE || wParam == TRUE));
                              }
                              if (message == TTM_ADDTOOLW)
                              {
                                  added = *reinterpret_cast<const TTTOOLINFOW*>(lParam);
                              }
                              return SendPatch::Original(window, message, wParam, lParam);
                          });
    scene.Show([&] {
        CHECK(sent == std::vector<UINT>{TTM_ACTIVATE, TTM_ADDTOOLW});
        CHECK(added.hwnd == scene.window);
        // The tool is the window itself, whatever size that takes.
        CHECK((added.uFlags & TTF_IDISHWND) != 0);
        CHECK(added.uId == reinterpret_cast<UINT_PTR>(scene.window));
    });
}
