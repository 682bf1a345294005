#pragma once

#include <windows.h>

#include <string>

namespace velt
{
/// Puts an RTF file into a rich edit control; of a file that cannot be read to its end, what could
/// be read. A control takes no more text than its limit, and says nothing; a file whose end it has
/// not come to is traced. Nobody may have the file open, and nobody can open it meanwhile. Returns
/// false when it cannot be opened; the control is as it was then.
bool StreamRtfFile(HWND view, const std::wstring& path) noexcept;
} // namespace velt
