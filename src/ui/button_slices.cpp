#include "ui/button_slices.h"

namespace velt
{
std::array<SliceCopy, 3> PlaceButtonSlices(Size face, Size button) noexcept
{
    constexpr std::int32_t kEndWidth = 10;
    const auto at = [](std::int32_t x, std::int32_t width, Size whole) {
        return Area{x, 0, width, whole.height};
    };
    const auto middle = [&](Size whole) {
        return at(kEndWidth, Coordinate(std::int64_t{whole.width} - kEndWidth - kEndWidth), whole);
    };
    const auto right = [&](Size whole) {
        return at(Coordinate(std::int64_t{whole.width} - kEndWidth), kEndWidth, whole);
    };
    return {{
        {at(0, kEndWidth, face), at(0, kEndWidth, button)},
        {middle(face), middle(button)},
        {right(face), right(button)},
    }};
}
} // namespace velt
