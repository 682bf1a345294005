#pragma once

#include "foundation/velt_text.h"

/// The texts of the exception family. Their ids, -1 to -15, are fixed: language files use them.
namespace velt::error_texts
{
extern const VeltText kInternalError; // -2: source file, line
extern const VeltText kWin32Error;    // -12: error number, the system's text
extern const VeltText kHResultError;  // -14: HRESULT, its text
} // namespace velt::error_texts
