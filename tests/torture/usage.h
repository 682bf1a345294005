#pragma once

#include <cstddef>

namespace velt::torture
{
/// What the process has in use, less what the system itself keeps of classes that are not there.
struct Usage
{
    std::ptrdiff_t values[5] = {};

    static constexpr const char* kNames[5] = {"blocks", "handles", "heap bytes", "drawing objects",
                                              "windows"};
};

/// The drawing objects and windows are counted only with `withGui`, for it takes time.
Usage CurrentUsage(bool withGui);
} // namespace velt::torture
