#pragma once

namespace velt
{
/// From now on libraries of the system come from the system's folder only, where the system knows
/// how: Windows 7 has learnt it with an update.
void SearchSystemFolderOnly() noexcept;
} // namespace velt
