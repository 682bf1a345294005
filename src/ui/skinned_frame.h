#pragma once

#include "ui/dialog_template.h"
#include "ui/gdi_handles.h"
#include "ui/nine_slice.h"

#include <windows.h>

#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velt
{
/// What CHaldenStyleDlg does whatever its concrete dialog is; see there. Lives on the thread that
/// shows the dialog.
class SkinnedFrame
{
public:
    SkinnedFrame(const SkinnedFrame&) = delete;
    SkinnedFrame& operator=(const SkinnedFrame&) = delete;

    /// Says how the dialog looks; to be called before it is shown, once. `module` has the template
    /// and, for a skinned dialog, the skin. Throws _com_error when the skin cannot be loaded.
    void InitSkin(bool skinned, UINT dialogId, HINSTANCE module, UINT skinId);

    /// The colour of the caption and of the text of child controls; white at first.
    void SetTextColour(COLORREF colour) noexcept;

    /// Shows the dialog and returns what End was given; 0 when the dialog was over without End: the
    /// thread was told to quit, whose message stays for the caller's own loop, or the window was
    /// destroyed. -1 when it could not be created, and the thread's last error says why. An
    /// exception of a message handler ends the dialog and is rethrown here.
    INT_PTR DoModal(HWND owner);

    /// Ends the dialog, which DoModal answers with `result`. While it is still being initialised,
    /// its window stays until that is over.
    void End(INT_PTR result) noexcept;

    /// Whether the dialog has been ended.
    bool HasEnded() const noexcept;

    /// The dialog's window; null when there is none.
    HWND Window() const noexcept;

protected:
    explicit SkinnedFrame(const CornerSizes& corners) noexcept;

    virtual ~SkinnedFrame();

    /// What the frame does with a message; no value for one that it leaves to the system.
    std::optional<LRESULT> ProcessMessage(UINT message, WPARAM wParam, LPARAM lParam);

    /// The client area has another size, in pixels: skin and outline are made anew for it, and the
    /// window is painted.
    virtual void OnSize(int width, int height);

    /// What the frame draws as the caption: the text of child 1006 when the dialog was initialised.
    const std::wstring& CaptionText() const noexcept;

    /// Has another caption drawn from now on, cut after 519 characters like the first one.
    void SetCaptionText(std::wstring_view text);

private:
    /// Hands a message to the concrete dialog.
    virtual std::optional<LRESULT> Dispatch(UINT message, WPARAM wParam, LPARAM lParam) = 0;

    /// The one dialog procedure.
    static INT_PTR CALLBACK DialogProc(HWND window, UINT message, WPARAM wParam,
                                       LPARAM lParam) noexcept;
    static INT_PTR Receive(HWND window, UINT message, WPARAM wParam, LPARAM lParam) noexcept;
    INT_PTR Answer(UINT message, WPARAM wParam, LPARAM lParam) noexcept;

    LRESULT OnInitialise();
    LRESULT OnPaint();
    LRESULT OnLeftButtonDown(LPARAM point);
    std::optional<LRESULT> OnControlColour(HDC context, HWND control);
    void ComposeFace(Size client) noexcept;
    void CutOutline(Size client) noexcept;
    void DropFace() noexcept;
    void PaintSkin(HDC context);
    void DrawCaption(HDC context, const PixelRect& area) const noexcept;
    std::optional<PixelRect> CaptionArea() const noexcept;
    std::optional<PixelRect> ChildArea(int id) const noexcept;
    Size ClientSize() const noexcept;

    // constant after InitSkin
    CornerSizes m_corners;
    bool m_skinned = true;
    UINT m_dialogId = 0;
    UINT m_skinId = 0;
    HINSTANCE m_module = nullptr;

    COLORREF m_textColour = RGB(255, 255, 255);
    std::wstring m_captionText;

    // Deleted from the last to the first.
    UniqueFont m_captionFont;
    UniqueRegion m_region; // a copy of ours: the system owns the one that the window has
    UniqueBitmap m_composedSkin;
    UniqueBitmap m_skinSource;
    UniqueBrush m_controlBrush;

    std::optional<PixelRect> m_captionAt;    // where m_composedSkin has the caption already
    bool m_isCut = false;                    // the window has the outline that is its own
    bool m_isMade = false;                   // the dialog that is or was shown has had a window
    std::optional<INT_PTR> m_result;         // what that dialog was ended with
    std::vector<ActiveXItem> m_activeXItems; // of the dialog that is shown
    HWND m_window = nullptr;                 // while the dialog is shown
    std::exception_ptr m_failure;            // of a message handler, for DoModal
};
} // namespace velt
