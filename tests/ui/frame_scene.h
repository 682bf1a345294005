#pragma once

#include "tests/support/import_patch.h"
#include "tests/ui/pixels.h"
#include "tests/ui/test_dialog.h"

#include <windows.h>

#include <vector>

namespace velt::test
{
inline constexpr COLORREF kRed = RGB(255, 0, 0);

struct NineCopies
{
    int source[4];
    int target[4];
};

/// The test's own account of the nine slices: where each part of the skin goes for a size.
inline std::vector<NineCopies> NineCopiesFor(int bw, int bh, int w, int h)
{
    const int tlw = 12, tlh = 8, trw = 10, trh = 6, blw = 9, blh = 7, brw = 11, brh = 5;
    const int mw = w - tlw - trw;
    const int mh = h - blh - tlh;
    const int mb = w - blw - brw;
    return {
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
}

inline Pixels ExpectedSkin(UINT skinId, int width, int height)
{
    const Pixels skin = Pixels::OfResource(skinId);
    Pixels expected(width, height);
    ::SetStretchBltMode(expected.Context(), COLORONCOLOR);
    for (const auto& [s, t] : NineCopiesFor(skin.Width(), skin.Height(), width, height))
    {
        ::StretchBlt(expected.Context(), t[0], t[1], t[2], t[3], skin.Context(), s[0], s[1], s[2],
                     s[3], SRCCOPY);
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
/// of the skin's colour elsewhere.
inline int WrongPixels(const TestDialog& dialog, const Pixels& expected)
{
    const Pixels shown = Pixels::Of(dialog.Window());
    const Outline outline(dialog.Window());
    int wrong = 0;
    for (int y = 0; y < expected.Height(); ++y)
    {
        for (int x = 0; x < expected.Width(); ++x)
        {
            const COLORREF colour = expected.At(x, y);
            const bool isRight = colour == kRed
                                     ? !outline.Contains(x, y)
                                     : outline.Contains(x, y) && shown.At(x, y) == colour;
            wrong += isRight ? 0 : 1;
        }
    }
    return wrong;
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

/// The user's high-contrast setting, as the component sees it. Not every system can change it.
class HighContrast
{
public:
    HighContrast()
        : m_patch("user32.dll", [](UINT action, UINT size, void* value, UINT flags) {
              const BOOL done = decltype(m_patch)::Original(action, size, value, flags);
              if (action == SPI_GETHIGHCONTRAST)
              {
                  static_cast<HIGHCONTRASTW*>(value)->dwFlags |= HCF_HIGHCONTRASTON;
                  return TRUE;
              }
              return done;
          })
    {
    }

private:
    ImportPatch<"SystemParametersInfoW", decltype(::SystemParametersInfoW)> m_patch;
};
} // namespace velt::test
