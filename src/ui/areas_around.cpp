#include "ui/areas_around.h"

#include <algorithm>

namespace velt
{
std::array<Area, 4> AreasAround(Size client, const PixelRect& child) noexcept
{
    const std::int32_t width = std::max(client.width, 0);
    const std::int32_t height = std::max(client.height, 0);
    const std::int32_t top = std::clamp(child.top, 0, height);
    const std::int32_t bottom = std::clamp(child.bottom, top, height);
    const std::int32_t left = std::clamp(child.left, 0, width);
    const std::int32_t right = std::clamp(child.right, left, width);
    return {{
        {0, 0, width, top},
        {0, top, left, bottom - top},
        {right, top, width - right, bottom - top},
        {0, bottom, width, height - bottom},
    }};
}
} // namespace velt
