#pragma once

#include <windows.h>

#include <ostream>
#include <vector>

namespace velt::test
{
/// Where something stands along one side of a picture: pixels from `from` to before `to`.
struct InkSpan
{
    int from;
    int to;

    int Middle() const
    {
        return (from + to) / 2;
    }

    bool operator==(const InkSpan&) const = default;

    friend std::ostream& operator<<(std::ostream& out, const InkSpan& span)
    {
        return out << span.from << " to " << span.to;
    }
};

/// How light a place on the screen is, 0 to 255; the other one's is in a window's client area.
int LightnessAt(const POINT& place);
int LightnessAt(HWND window, int x, int y);

/// The menu bar, which ends where the client area begins: at the first menu's name, or right of the
/// last one.
int LightnessOfMenu(HWND window, bool first);

/// What is on the screen at a place, taken once; nothing for a place without size, such as that of
/// a window which is gone.
class ScreenPicture
{
public:
    explicit ScreenPicture(const RECT& place);

    /// 0 to 255.
    int LightnessAt(int x, int y) const;

    bool operator==(const ScreenPicture&) const = default;

    int Width() const noexcept
    {
        return m_width;
    }

    /// Where columns, of all rows or some, have pixels that stand out of the ground, which is what
    /// most pixels of the picture are. What is no further apart than `gap` is one.
    std::vector<InkSpan> Columns(int gap) const;
    std::vector<InkSpan> Columns(int gap, const InkSpan& rows) const;

    /// The same of rows.
    std::vector<InkSpan> Rows(int gap) const;

private:
    bool StandsOut(int x, int y) const;

    int m_width;
    int m_height;
    int m_ground = 0;
    std::vector<unsigned char> m_lightness; // row by row
};
} // namespace velt::test
