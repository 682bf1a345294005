#pragma once

#include "tests/ui/pixels.h"
#include "ui/nine_slice.h"

#include <windows.h>

#include <algorithm>
#include <vector>

namespace velt::test
{
inline constexpr COLORREF kRed = RGB(255, 0, 0);

/// What a skin looks like in another size: the test's own account of the nine slices.
inline Pixels ReferenceSkin(const Pixels& skin, const CornerSizes& corners, int w, int h)
{
    const int bw = skin.Width();
    const int bh = skin.Height();
    const int tlw = corners.topLeft.width, tlh = corners.topLeft.height;
    const int trw = corners.topRight.width, trh = corners.topRight.height;
    const int blw = corners.bottomLeft.width, blh = corners.bottomLeft.height;
    const int brw = corners.bottomRight.width, brh = corners.bottomRight.height;
    const int mw = w - tlw - trw;
    const int mh = h - blh - tlh;
    const int mb = w - blw - brw;
    const struct
    {
        int source[4];
        int target[4];
    } copies[] = {
        {{0, 0, tlw, tlh}, {0, 0, tlw, tlh}},
        {{tlw, 0, bw - tlw - trw, tlh}, {tlw, 0, mw, tlh}},
        {{bw - trw, 0, trw, trh}, {tlw + mw, 0, trw, trh}},
        {{0, tlh, tlw, bh - blh - tlh}, {0, tlh, tlw, mh}},
        {{tlw, tlh, bw - tlw - trw, bh - tlh - trh}, {tlw, tlh, mw, mh}},
        {{bw - trw, trh, trw, bh - trh - brh}, {tlw + mw, trh, trw, mh}},
        {{0, bh - blh, blw, blh}, {0, tlh + mh, blw, blh}},
        {{blw, bh - blh, bw - blw - brw, blh}, {blw, tlh + mh, mb, blh}},
        {{bw - brw, bh - brh, brw, brh}, {blw + mb, tlh + mh, brw, brh}},
    };
    Pixels expected(w, h);
    ::SetStretchBltMode(expected.Context(), COLORONCOLOR);
    for (const auto& [s, t] : copies)
    {
        ::StretchBlt(expected.Context(), t[0], t[1], t[2], t[3], skin.Context(), s[0], s[1], s[2],
                     s[3], SRCCOPY);
    }
    expected.Flush();
    return expected;
}

/// What a face looks like on a button of a size, on black ground: the test's own account.
inline Pixels ReferenceFace(const Pixels& face, int width, int height)
{
    Pixels expected(width, height);
    ::SetStretchBltMode(expected.Context(), COLORONCOLOR);
    const int slices[][4] = {{0, 10, 0, 10},
                             {10, face.Width() - 20, 10, width - 20},
                             {face.Width() - 10, 10, width - 10, 10}};
    for (const auto& [sourceX, sourceWidth, targetX, targetWidth] : slices)
    {
        ::StretchBlt(expected.Context(), targetX, 0, targetWidth, height, face.Context(), sourceX,
                     0, sourceWidth, face.Height(), SRCCOPY);
    }
    expected.Flush();
    return expected;
}

/// The window's region; its type is ERROR when it has none.
struct Outline
{
    explicit Outline(HWND window) : type(::GetWindowRgn(window, region.Get())) {}

    bool Contains(int x, int y) const
    {
        return ::PtInRegion(region.Get(), x, y) != FALSE;
    }

    UniqueRegion region{::CreateRectRgn(0, 0, 0, 0)};
    int type;
};

/// How many pixels are not as expected: outside the outline where the skin is red, inside it and
/// of the skin's colour elsewhere. What `except` holds is not looked at.
inline int WrongPixels(HWND window, const Pixels& expected, const std::vector<RECT>& except = {})
{
    const Pixels shown = Pixels::Of(window);
    const Outline outline(window);
    int wrong = 0;
    for (int y = 0; y < expected.Height(); ++y)
    {
        for (int x = 0; x < expected.Width(); ++x)
        {
            const COLORREF colour = expected.At(x, y);
            const bool isLeftOut = std::any_of(except.begin(), except.end(), [=](const RECT& area) {
                return ::PtInRect(&area, {x, y}) != FALSE;
            });
            const bool isInside = outline.Contains(x, y);
            const bool isRight = colour == kRed ? !isInside : isInside && shown.At(x, y) == colour;
            wrong += isLeftOut || isRight ? 0 : 1;
        }
    }
    return wrong;
}
} // namespace velt::test
