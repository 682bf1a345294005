#pragma once

#include "ui/geometry.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace velt
{
/// An ActiveX control of a dialog template: an item whose window class is a class identifier in
/// braces. The system cannot create it; a host window of its place, style and number can.
struct ActiveXItem
{
    std::u16string classId; // with its braces
    std::uint32_t style;
    std::uint32_t exStyle;
    std::uint32_t id;
    std::uint32_t before;            // how many items that the system creates stand before it
    Area place;                      // in dialog units
    std::span<const std::byte> data; // its creation data, without their size, in the template

    bool operator==(const ActiveXItem& other) const
    {
        return classId == other.classId && style == other.style && exStyle == other.exStyle &&
               id == other.id && before == other.before && place == other.place &&
               std::ranges::equal(data, other.data);
    }
};

struct DialogTemplate
{
    std::vector<std::uint32_t> words; // the template without its ActiveX items, at an aligned place
    std::vector<ActiveXItem> activeX; // in the template's order
    bool hasHostWindows = false;      // an item asks for the class AtlAxWin by name
};

/// Divides the bytes of a dialog template, plain or extended, into what the system creates and the
/// ActiveX controls. None when the bytes are not a whole template. Bytes after the last item are
/// ignored. The result refers to the bytes. Throws std::bad_alloc only.
std::optional<DialogTemplate> SplitDialogTemplate(std::span<const std::byte> bytes);
} // namespace velt
