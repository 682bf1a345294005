#pragma once

#include "tests/ui/ui_test_resources.h"
#include "ui/halden_style_dlg.h"

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <utility>
#include <vector>

namespace velt::test
{
/// The corners of the test's skin, all different.
inline constexpr CornerSizes kTestCorners{{12, 8}, {10, 6}, {9, 7}, {11, 5}};

/// A skinned dialog that runs the test's body while it is shown, and keeps the messages that it
/// gets.
class TestDialog final : public CHaldenStyleDlg<TestDialog>
{
public:
    struct Message
    {
        UINT message;
        WPARAM wParam;
        LPARAM lParam;

        bool operator==(const Message&) const = default;
    };

    explicit TestDialog(UINT dialogId, UINT skinId = TEST_SKIN, bool skinned = true,
                        const CornerSizes& corners = kTestCorners)
        : CHaldenStyleDlg(corners.topLeft.width, corners.topLeft.height, corners.topRight.width,
                          corners.topRight.height, corners.bottomLeft.width,
                          corners.bottomLeft.height, corners.bottomRight.width,
                          corners.bottomRight.height)
    {
        InitSkin(skinned, dialogId, ::GetModuleHandleW(nullptr), skinId);
    }

    /// Shows the dialog and runs the body in it; what the body throws comes out of here. The
    /// dialog ends with the body, with the result 7.
    INT_PTR Show(std::function<void()> body)
    {
        m_body = std::move(body);
        return DoModal(nullptr);
    }

    std::optional<LRESULT> ProcessMessage(UINT message, WPARAM wParam, LPARAM lParam)
    {
        messages.push_back({message, wParam, lParam});
        if (onMessage)
        {
            onMessage(messages.back());
        }
        switch (message)
        {
        case WM_INITDIALOG:
            ::PostMessageW(Window(), kRunBody, 0, 0);
            break;
        case kRunBody:
            m_body();
            End(7);
            return 0;
        case WM_NCLBUTTONDOWN:
        case WM_COMMAND:
            return 0; // only looked at
        default:
            break;
        }
        return CHaldenStyleDlg::ProcessMessage(message, wParam, lParam);
    }

    /// Gives the client area a size in pixels; the dialog has no border.
    void Resize(int width, int height) const
    {
        ::SetWindowPos(Window(), nullptr, 40, 40, width, height, SWP_NOZORDER | SWP_NOACTIVATE);
    }

    HWND Child(int id) const
    {
        return ::GetDlgItem(Window(), id);
    }

    /// The messages of one kind since the last Forget.
    std::vector<Message> Got(UINT message) const
    {
        std::vector<Message> found;
        std::copy_if(messages.begin(), messages.end(), std::back_inserter(found),
                     [message](const Message& m) { return m.message == message; });
        return found;
    }

    void Forget()
    {
        messages.clear();
    }

    /// Takes what is posted to this thread's windows now.
    static void Pump()
    {
        MSG message;
        while (::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
        {
            ::DispatchMessageW(&message);
        }
    }

    using SkinnedFrame::CaptionText;
    using SkinnedFrame::SetCaptionText;

    std::vector<Message> messages;
    std::function<void(const Message&)> onMessage;

private:
    static constexpr UINT kRunBody = WM_APP + 1;

    std::function<void()> m_body;
};
} // namespace velt::test
