#pragma once

#include "server/class_factory.h"

#include <windows.h>

#include <comcat.h>

#include <array>
#include <span>

namespace velt
{
/// A component category that a class implements, or requires of its container.
struct CategoryRow
{
    enum class Kind
    {
        implemented,
        required,
    };

    Kind kind;
    CATID category;
};

/// One creatable class.
struct ClassRow
{
    const CLSID* clsid;
    ObjectCreator create;          // null while the class is not part of the library
    UINT registrarScript;          // a resource of type REGISTRY
    const wchar_t* threadingModel; // what the script writes for it
    std::span<const CategoryRow> categories;
};

/// The classes of the library, in the order in which they are searched and registered.
inline constexpr std::size_t kClassCount = 3;
extern const std::array<ClassRow, kClassCount> kClassTable;
} // namespace velt
