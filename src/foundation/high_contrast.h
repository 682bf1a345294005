#pragma once

namespace velt
{
/// Whether the user has the system's high-contrast setting on.
bool IsHighContrastOn() noexcept;
} // namespace velt
