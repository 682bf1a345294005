#pragma once

#include "ui/button_face.h"

#include <windows.h>

namespace velt
{
struct ButtonLook
{
    ButtonFace& face;
    bool isPressed;
    bool isFocused;
};

/// Draws the whole button, with its text, at the context's origin. While the system's high-contrast
/// setting is on, the button is the system's own instead of the face.
void DrawButton(HDC target, HWND button, const ButtonLook& look) noexcept;
} // namespace velt
