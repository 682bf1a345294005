#pragma once

#include "tools/trace/window_look.h"

#include <windows.h>

#include <optional>

namespace velt
{
/// Has the controls that know no dark colours of their own painted while the look is dark: the
/// names of a list's columns, a choice, a button. Others stay as they are. The look must outlive
/// the control, and is asked again at each painting.
void PaintByLook(HWND control, const WindowLook& look) noexcept;

/// The answer to a notification of a button that PaintByLook was told of; none when it is for
/// somebody else, or the system is to paint.
std::optional<LRESULT> PaintButton(LPARAM notification, const WindowLook& look) noexcept;
} // namespace velt
