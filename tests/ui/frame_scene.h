#pragma once

#include "tests/support/import_patch.h"
#include "tests/ui/pixels.h"
#include "tests/ui/reference_skin.h"
#include "tests/ui/test_dialog.h"

#include <windows.h>

namespace velt::test
{
inline Pixels ExpectedSkin(UINT skinId, int width, int height)
{
    return ReferenceSkin(Pixels::OfResource(skinId), kTestCorners, width, height);
}

/// How many pixels are neither outside nor as expected.
inline int WrongPixels(const TestDialog& dialog, const Pixels& expected)
{
    return WrongPixels(dialog.Window(), expected);
}

inline RECT ChildRect(const TestDialog& dialog, int id)
{
    RECT area{};
    ::GetWindowRect(dialog.Child(id), &area);
    ::MapWindowPoints(nullptr, dialog.Window(), reinterpret_cast<POINT*>(&area), 2);
    return area;
}

/// The whole dialog is painted, its children are not.
inline void PaintAlone(const TestDialog& dialog)
{
    ::RedrawWindow(dialog.Window(), nullptr, nullptr,
                   RDW_INVALIDATE | RDW_ERASE | RDW_UPDATENOW | RDW_NOCHILDREN);
}
} // namespace velt::test
