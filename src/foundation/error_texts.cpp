#include "foundation/error_texts.h"

namespace velt::error_texts
{
namespace
{
// Not raised by the component; registered because language files translate them.
const VeltText kMemoryError(-1, "memory allocation error");
const VeltText kRuntimeError(-3, "runtime error: %0");
const VeltText kUnknownError(-4, "unknown error: %0");
const VeltText kSystemError(-11, "operating system error: number = %0 - %1"); // by design as -12
const VeltText kMmResultError(-15, "operating system error: MMRESULT = %0");
} // namespace

const VeltText kInternalError(-2, "internal software error: %0, line %1");
const VeltText kWin32Error(-12, "operating system error: number = %0 - %1");
const VeltText kHResultError(-14, "operating system error: HRESULT = %0 - %1");
} // namespace velt::error_texts
