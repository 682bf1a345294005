#include "ui/skinned_frame.h"

#include "tests/support/import_patch.h"
#include "tests/ui/test_dialog.h"

#include <comdef.h>

#include <catch.hpp>

#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using namespace velt;
using namespace velt::test;

TEST_CASE("InitSkin: a skin that is not there is a _com_error with the last error's HRESULT",
          "[ui]")
{
    try
    {
        const TestDialog dialog(TEST_DIALOG, TEST_SKIN_MISSING);
        FAIL("made");
    }
    catch (const _com_error& e)
    {
        CHECK(e.Error() == HRESULT_FROM_WIN32(ERROR_RESOURCE_NAME_NOT_FOUND));
    }
}

TEST_CASE("InitSkin: the error's code is what the system left, also none", "[ui]")
{
    const auto [error, hr] =
        GENERATE(table<DWORD, HRESULT>({{ERROR_NOT_ENOUGH_MEMORY, static_cast<HRESULT>(0x80070008)},
                                        {0, S_OK},
                                        {static_cast<DWORD>(E_ACCESSDENIED), E_ACCESSDENIED}}));
    const DWORD lastError = error;
    const ImportPatch<"LoadBitmapW", decltype(::LoadBitmapW)> load(
        "user32.dll", [lastError](HINSTANCE, const wchar_t*) {
            ::SetLastError(lastError);
            return static_cast<HBITMAP>(nullptr);
        });
    try
    {
        const TestDialog dialog(TEST_DIALOG);
        FAIL("made");
    }
    catch (const _com_error& e)
    {
        CHECK(e.Error() == hr);
    }
}

TEST_CASE("InitSkin: a dialog that is not skinned needs no skin, and makes no font and no brush",
          "[ui]")
{
    using FontPatch = ImportPatch<"CreateFontIndirectW", decltype(::CreateFontIndirectW)>;
    using BrushPatch = ImportPatch<"CreateSolidBrush", decltype(::CreateSolidBrush)>;
    const FontPatch font("gdi32.dll", [](const LOGFONTW* f) { return FontPatch::Original(f); });
    const BrushPatch brush("gdi32.dll", [](COLORREF c) { return BrushPatch::Original(c); });
    CHECK_NOTHROW(TestDialog(TEST_DIALOG, TEST_SKIN_MISSING, false));
    CHECK(font.Calls() == 0);
    CHECK(brush.Calls() == 0);
    const TestDialog skinned(TEST_DIALOG);
    CHECK(font.Calls() == 1);
    CHECK(brush.Calls() == 1);
}

TEST_CASE("DoModal: shows the dialog until it is ended and returns its result", "[ui]")
{
    TestDialog dialog(TEST_DIALOG);
    CHECK(dialog.Window() == nullptr);
    HWND window = nullptr;
    CHECK(dialog.Show([&] {
        window = dialog.Window();
        CHECK(::IsWindowVisible(window));
        CHECK(dialog.messages.front().message == WM_INITDIALOG);
    }) == 7);
    CHECK_FALSE(::IsWindow(window));
    CHECK(dialog.Window() == nullptr);
    CHECK(dialog.messages.back().message == WM_NCDESTROY);
    CHECK(dialog.Show([] {}) == 7); // and once more
}

TEST_CASE("DoModal: -1 without a template, and the last error says why", "[ui]")
{
    TestDialog dialog(TEST_DIALOG_MISSING);
    CHECK(dialog.Show([] {}) == -1);
    CHECK(::GetLastError() == ERROR_RESOURCE_NAME_NOT_FOUND);
}

TEST_CASE("DoModal: an exception of a handler ends the dialog and comes out", "[ui]")
{
    const UINT message = GENERATE(as<UINT>(), WM_INITDIALOG, WM_APP + 1, WM_DESTROY);
    TestDialog dialog(TEST_DIALOG);
    dialog.onMessage = [message](const TestDialog::Message& got) {
        if (got.message == message)
        {
            throw std::out_of_range("the test's");
        }
    };
    CHECK_THROWS_AS(dialog.Show([] {}), std::out_of_range);
    CHECK(dialog.Window() == nullptr);
    dialog.onMessage = nullptr;
    CHECK(dialog.Show([] {}) == 7);
}

TEST_CASE("WM_INITDIALOG, WM_CREATE: copy at most 519 characters of child 1006; the result is TRUE",
          "[ui]")
{
    const UINT message = GENERATE(as<UINT>(), WM_INITDIALOG, WM_CREATE);
    TestDialog dialog(TEST_DIALOG);
    dialog.Show([&] {
        CHECK(dialog.CaptionText() == L"Caption");
        const std::wstring text(600, L'x');
        ::SetDlgItemTextW(dialog.Window(), TEST_CHILD_CAPTION, text.c_str());
        ::SendMessageW(dialog.Window(), message, 0, 0);
        CHECK(dialog.CaptionText() == text.substr(0, 519));
        const std::optional<LRESULT> result =
            static_cast<TestDialog&>(dialog).ProcessMessage(WM_CREATE, 0, 0);
        CHECK(result == TRUE);
    });
}

TEST_CASE("End: the dialog is over, its window stays until it is initialised", "[ui]")
{
    TestDialog dialog(TEST_DIALOG);
    CHECK_FALSE(dialog.HasEnded());
    bool isShown = false;
    dialog.onMessage = [&](const TestDialog::Message& message) {
        if (message.message == WM_INITDIALOG)
        {
            CHECK_FALSE(dialog.HasEnded());
            dialog.End(42);
            CHECK(dialog.HasEnded());
            CHECK(::IsWindow(dialog.Window()));
        }
    };
    CHECK(dialog.Show([&] { isShown = true; }) == 42);
    CHECK_FALSE(isShown);
    CHECK(dialog.HasEnded());
    CHECK(dialog.Window() == nullptr);

    dialog.onMessage = nullptr;
    CHECK(dialog.Show([&] { CHECK_FALSE(dialog.HasEnded()); }) == 7);
}

TEST_CASE("SkinnedFrame: deletes brush, source, composed skin, region and font in this order",
          "[ui]")
{
    using DeletePatch = ImportPatch<"DeleteObject", decltype(::DeleteObject)>;
    const bool isShown = GENERATE(true, false); // before that there is neither skin nor region
    std::vector<DWORD> kinds;
    std::vector<LONG> widths; // of the bitmaps
    {
        std::optional<TestDialog> dialog(std::in_place, TEST_DIALOG);
        if (isShown)
        {
            dialog->Show([&] { dialog->Resize(250, 150); });
        }
        const DeletePatch gone("gdi32.dll", [&](HGDIOBJ object) {
            kinds.push_back(::GetObjectType(object));
            BITMAP info{};
            if (kinds.back() == OBJ_BITMAP)
            {
                ::GetObjectW(object, sizeof(info), &info);
                widths.push_back(info.bmWidth);
            }
            return DeletePatch::Original(object);
        });
        dialog.reset();
    }
    if (isShown)
    {
        CHECK(kinds == std::vector<DWORD>{OBJ_BRUSH, OBJ_BITMAP, OBJ_BITMAP, OBJ_REGION, OBJ_FONT});
        REQUIRE(widths.size() == 2);
        CHECK(widths[0] != 250);
        CHECK(widths[1] == 250);
    }
    else
    {
        CHECK(kinds == std::vector<DWORD>{OBJ_BRUSH, OBJ_BITMAP, OBJ_FONT});
    }
}
