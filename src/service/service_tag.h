#pragma once

#include "foundation/bstr.h"

namespace velt
{
/// The serial number of the machine's enclosure, from the platform's management instrumentation;
/// none when any step on the way there fails, be it for lack of memory. The calling thread has
/// initialised COM, in any apartment.
UniqueBstr ReadServiceTag() noexcept;
} // namespace velt
