#pragma once

#include <string>

namespace velt
{
/// What the exception that is being handled has to say. To be called in a catch clause only.
std::wstring CurrentErrorText() noexcept;
} // namespace velt
