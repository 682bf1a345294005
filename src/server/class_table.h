#pragma once

#include "server/class_factory.h"
#include "server/class_registration.h"

#include <windows.h>

#include <array>
#include <span>

namespace velt
{
/// One creatable class.
struct ClassRow
{
    ObjectCreator create; // null while the class is not part of the library
    ClassRegistration registration;
};

/// The classes of the library, in the order in which they are searched.
inline constexpr std::size_t kClassCount = 3;
extern const std::array<ClassRow, kClassCount> kClassTable;

/// The first row of a class that has a creator; null when there is none.
const ClassRow* FindClass(std::span<const ClassRow> table, REFCLSID clsid) noexcept;
} // namespace velt
