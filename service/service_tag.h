#pragma once

#include "foundation/bstr.h"

namespace velt
{
/// The serial number of the machine's enclosure, from the platform's management instrumentation;
/// none when any step on the way there fails. The calling thread has initialised COM, in any
/// apartment. Throws nothing but what the trace throws.
UniqueBstr ReadServiceTag();
} // namespace velt
