#pragma once

#include <cstddef>

namespace velt::test
{
/// What this process has of the system's drawing objects and windows.
struct GuiUsage
{
    std::size_t gdiObjects;
    std::size_t windows; // of all kinds, children and message-only ones too
};

/// Throws std::runtime_error when the system does not tell.
GuiUsage CurrentGuiUsage();

/// How many drawing objects the system itself keeps of each window that was shown with a region:
/// none on Windows.
std::size_t GdiObjectsKeptOfShapedWindow();
} // namespace velt::test
