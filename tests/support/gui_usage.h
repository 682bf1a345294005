#pragma once

#include <windows.h>

#include <cstddef>

namespace velt::test
{
/// What a process has of the system's drawing objects and windows.
struct GuiUsage
{
    std::size_t gdiObjects;
    std::size_t windows; // of all kinds, children and message-only ones too
};

/// Throws std::runtime_error when the system does not tell. The process is of this edition.
GuiUsage GuiUsageOf(HANDLE process);
GuiUsage CurrentGuiUsage();

/// How many drawing objects the system itself keeps of each window that was shown with a region:
/// none on Windows.
std::size_t GdiObjectsKeptOfShapedWindow();
} // namespace velt::test
