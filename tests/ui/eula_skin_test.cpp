#include "tests/support/temp_folder.h"
#include "tests/ui/eula_files.h"
#include "tests/ui/eula_session.h"
#include "tests/ui/reference_skin.h"
#include "ui/resources/resource_ids.h"

#include <catch.hpp>

#include <vector>

using namespace velt::test;

namespace
{
constexpr velt::CornerSizes kCorners{{109, 63}, {109, 63}, {109, 63}, {109, 63}};
constexpr UINT kSkin = 206;
constexpr UINT kNormalFace = 1009;
constexpr UINT kHotFace = 1008;
constexpr UINT kPressedFace = 1007;

/// The shipped dialog at the front, painted.
struct ShownSkin
{
    ShownSkin() : session(library, (folder.Write(L"a.rtf", kSmallAgreement), folder.File(L"a.rtf")))
    {
        ::SetCursorPos(1, 1); // away from the button
        session.Activate();
        Repaint();
    }

    void Repaint()
    {
        ::RedrawWindow(session.Dialog(), nullptr, nullptr,
                       RDW_INVALIDATE | RDW_ERASE | RDW_ALLCHILDREN | RDW_UPDATENOW);
    }

    /// Where something else than the skin is drawn: the controls and the caption.
    std::vector<RECT> Others()
    {
        std::vector<RECT> places;
        for (const int id :
             {VELT_EULA_DECLINE, VELT_EULA_ACCEPT, VELT_EULA_VIEW, VELT_EULA_OK, VELT_EULA_TITLE})
        {
            places.push_back(PlaceInParent(session.Item(id)));
        }
        return places;
    }

    Pixels Resource(UINT id) const
    {
        return Pixels::OfResource(id, library.Module());
    }

    const TempFolder folder;
    const ComponentLibrary library;
    EulaSession session;
};

/// How many pixels of the button beside its text are not those of the face.
int WrongFacePixels(HWND button, const Pixels& face)
{
    const Pixels shown = Pixels::Of(button);
    const Pixels expected = ReferenceFace(face, shown.Width(), shown.Height());
    const RECT text{20, 5, shown.Width() - 20, shown.Height() - 5};
    int wrong = 0;
    for (int y = 0; y < shown.Height(); ++y)
    {
        for (int x = 0; x < shown.Width(); ++x)
        {
            wrong += ::PtInRect(&text, {x, y}) || shown.At(x, y) == expected.At(x, y) ? 0 : 1;
        }
    }
    return wrong;
}
} // namespace

TEST_CASE("CEulaDialog: it is skin 206 with corners of 109 x 63, and cut to what is not red",
          "[ui]")
{
    ShownSkin shown;
    const HWND dialog = shown.session.Dialog();
    const auto [isResized, width, height] =
        GENERATE(table<bool, int, int>({{false, 0, 0}, {true, 300, 180}, {true, 900, 500}}));
    if (isResized)
    {
        ::SetWindowPos(dialog, nullptr, 10, 10, width, height, SWP_NOZORDER | SWP_NOACTIVATE);
        shown.Repaint();
    }
    RECT client{};
    ::GetClientRect(dialog, &client);
    CHECK((!isResized || (client.right == width && client.bottom == height)));
    const Pixels expected =
        ReferenceSkin(shown.Resource(kSkin), kCorners, client.right, client.bottom);
    CHECK(expected.Count(kRed) > 0);
    const std::vector<RECT> others = shown.Others();
    CHECK(WaitUntil([&] { return WrongPixels(dialog, expected, others) == 0; }));
    CHECK(WrongPixels(dialog, expected, others) == 0);
}

TEST_CASE("CEulaDialog: OK has face 1009, 1008 with the focus and 1007 while it is pressed", "[ui]")
{
    ShownSkin shown;
    const HWND ok = shown.session.Item(VELT_EULA_OK);
    // The pointer may have been over it before, and its leaving is a message of its own.
    const auto shows = [&](UINT face) {
        const Pixels expected = shown.Resource(face);
        return WaitUntil([&] { return WrongFacePixels(ok, expected) == 0; });
    };
    CHECK(shows(kNormalFace));
    CHECK(WrongFacePixels(ok, shown.Resource(kHotFace)) > 0);

    ::SendMessageW(shown.session.Dialog(), WM_NEXTDLGCTL, reinterpret_cast<WPARAM>(ok), TRUE);
    CHECK(shown.session.FocusedId() == VELT_EULA_OK);
    CHECK(shows(kHotFace));
    CHECK(WrongFacePixels(ok, shown.Resource(kPressedFace)) > 0);

    ::SendMessageW(ok, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(10, 10));
    CHECK(shows(kPressedFace));
    ::SendMessageW(ok, WM_MOUSEMOVE, MK_LBUTTON, MAKELPARAM(-10, -10));
    CHECK(shows(kHotFace));
    ::SendMessageW(ok, WM_LBUTTONUP, 0, MAKELPARAM(-10, -10));
    CHECK(shown.session.IsOpen());
}
