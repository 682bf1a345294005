#pragma once

#include "ui/button_face.h"
#include "ui/gdi_handles.h"
#include "ui/window_subclass.h"

#include <windows.h>

#include <cstdint>
#include <string>

#undef SubclassWindow // which <windowsx.h> defines

/// A push button that is drawn from three bitmaps of this module, with an optional tooltip. It
/// takes an existing button of a dialog over; from then on that button's messages come here first.
/// Lives on the thread of its window.
class CHaldenStyleButton
{
public:
    /// The numbers of the bitmap resources: as it is, under the pointer or with the focus, pressed.
    CHaldenStyleButton(UINT normalId, UINT hotId, UINT pressedId) noexcept;

    CHaldenStyleButton(const CHaldenStyleButton&) = delete;
    CHaldenStyleButton& operator=(const CHaldenStyleButton&) = delete;

    /// Gives the button its own procedure and its kind back.
    ~CHaldenStyleButton();

    /// Takes the button over and makes it owner-drawn. An object takes one button at a time; false,
    /// and nothing has changed, when it has one or the window cannot be taken.
    bool SubclassWindow(HWND button) noexcept;

    /// What the tooltip says; none when it is empty. Throws std::bad_alloc.
    void SetTooltipText(std::wstring text);

    /// The button; null when there is none.
    HWND Window() const noexcept;

private:
    static constexpr std::uint32_t kHot = 1; // the pointer is over it
    static constexpr std::uint32_t kFocused = 2;
    static constexpr std::uint32_t kPressed = 4;

    static LRESULT HandleMessage(void* button, UINT message, WPARAM wParam, LPARAM lParam) noexcept;

    LRESULT Receive(UINT message, WPARAM wParam, LPARAM lParam) noexcept;
    LRESULT OnInitialise() noexcept;
    LRESULT OnPaint() noexcept;
    LRESULT OnPrintClient(HDC context) noexcept;
    LRESULT OnLeftButtonDown(WPARAM keys, LPARAM point) noexcept;
    LRESULT OnLeftButtonUp(WPARAM keys, LPARAM point) noexcept;
    LRESULT OnLeftButtonDoubleClick(WPARAM keys, LPARAM point) noexcept;
    LRESULT OnMouseLeave() noexcept;
    void OnMouseMove(LPARAM point) noexcept;
    void OnFocus(bool focused) noexcept;
    void OnDestroyed() noexcept;

    void RelayToTooltip(UINT message, WPARAM wParam, LPARAM lParam) const noexcept;
    void ShowTooltipText() const noexcept;
    void SetState(std::uint32_t bit, bool on) noexcept;
    bool Has(std::uint32_t bit) const noexcept;
    void Repaint() const noexcept;
    void Draw(HDC context) noexcept;
    LPARAM InParent(LPARAM point) const noexcept;

    velt::UniqueWindow m_tooltip;
    std::wstring m_tooltipText;
    velt::ButtonFace m_normalFace;
    velt::ButtonFace m_hotFace;
    velt::ButtonFace m_pressedFace;
    std::uint32_t m_state = 0;       // of the bits above
    LONG_PTR m_typeBefore = 0;       // the kind of button it was, of BS_TYPEMASK
    velt::WindowSubclass m_subclass; // last: no message comes to what has ended
};
