#pragma once

#include <windows.h>

#include <oaidl.h>

#include <string>

namespace velt::tool
{
/// A value as a text, whatever the user's locale is. Throws CommandFailure.
std::wstring VariantText(const VARIANT& value);

/// A value as a whole number. Throws CommandFailure.
long VariantNumber(const VARIANT& value);
} // namespace velt::tool
