#pragma once

#include "ui/skinned_frame.h"

#include <windows.h>

#include <cstdint>
#include <optional>

/// A dialog that one bitmap, stretched in nine slices, gives its face and its outline. It is moved
/// by a press anywhere on its bare surface; its static and edit children draw on a light grey
/// brush, with one text colour. Child 1006, which stays hidden, has the caption; child 201 may be a
/// web browser, which is never painted over.
///
/// The concrete dialog derives from CHaldenStyleDlg of itself and has an accessible
///
///     std::optional<LRESULT> ProcessMessage(UINT message, WPARAM wParam, LPARAM lParam);
///
/// which sees every message first, from WM_INITDIALOG on, and hands to CHaldenStyleDlg's own
/// whatever it leaves to the frame. No value leaves a message to the system.
template <class Dialog>
class CHaldenStyleDlg : public velt::SkinnedFrame
{
protected:
    /// In pixels of the skin: the corners that are not stretched.
    CHaldenStyleDlg(std::int32_t topLeftWidth, std::int32_t topLeftHeight,
                    std::int32_t topRightWidth, std::int32_t topRightHeight,
                    std::int32_t bottomLeftWidth, std::int32_t bottomLeftHeight,
                    std::int32_t bottomRightWidth, std::int32_t bottomRightHeight) noexcept
        : SkinnedFrame({{topLeftWidth, topLeftHeight},
                        {topRightWidth, topRightHeight},
                        {bottomLeftWidth, bottomLeftHeight},
                        {bottomRightWidth, bottomRightHeight}})
    {
    }

    ~CHaldenStyleDlg() override = default;

private:
    std::optional<LRESULT> Dispatch(UINT message, WPARAM wParam, LPARAM lParam) final
    {
        return static_cast<Dialog*>(this)->ProcessMessage(message, wParam, lParam);
    }
};
