#pragma once

#include "tests/support/component_library.h"
#include "tests/support/test_thread.h"

#include <windows.h>

#include <provider_lib.h>

#include <functional>
#include <initializer_list>
#include <string>

namespace velt::test
{
/// What LaunchEula answered.
struct EulaAnswer
{
    HRESULT hr = E_UNEXPECTED;
    VARIANT_BOOL accepted = 0x5A5A; // poisoned
};

/// One call of LaunchEula on a thread of its own, and what a user does with the dialog meanwhile.
/// Failures throw std::runtime_error. A dialog that is still open at the end is answered.
class EulaSession
{
public:
    /// `before` runs on the dialog's thread right before the call, `after` after it; the thread has
    /// initialised COM when `withCom`.
    EulaSession(const ComponentLibrary& library, std::wstring agreement, std::wstring texts = {},
                bool withCom = true, std::function<void()> before = {},
                std::function<void()> after = {});

    EulaSession(const EulaSession&) = delete;
    EulaSession& operator=(const EulaSession&) = delete;

    ~EulaSession();

    /// The dialog, once it has been initialised.
    HWND Dialog();

    /// One of its controls.
    HWND Item(int id);

    /// The text of one of its controls.
    std::wstring Text(int id);

    bool IsChecked(int id);

    /// Which control has the keyboard; 0 for none.
    int FocusedId();

    /// Brings the dialog to the front, so that the keyboard is its own.
    void Activate();

    /// Clicks one of the choices.
    void Choose(int id);

    /// Clicks OK, which ends the dialog.
    void ClickOk();

    /// Presses the mouse over a point of the dialog's surface, in client coordinates, and takes it
    /// `dx` and `dy` pixels away.
    void Drag(POINT from, int dx, int dy);

    /// Presses and releases a key, with others held down.
    void Press(WORD key, std::initializer_list<WORD> held = {});

    /// Whether the dialog is there and answers.
    bool IsOpen() const;

    /// Presses OK by its message.
    void PressOk();

    /// Waits for the end of the call.
    EulaAnswer Join();

    DWORD ThreadId() const noexcept
    {
        return m_threadId;
    }

private:
    /// Presses the mouse over a control and releases it there, again and again until `taken` says
    /// that this had its effect: a press is lost when the screen moves the focus elsewhere
    /// meanwhile.
    void Click(int id, const std::function<bool()>& taken);

    void ClickOnce(int id);

    HWND m_dialog = nullptr;
    volatile DWORD m_threadId = 0;
    EulaAnswer m_answer;
    bool m_joined = false;
    TestThread m_thread; // last: it uses the others
};

/// Waits until a condition holds, looking again and again; false when it does not within the limit.
/// What the screen and other threads do takes its time on a machine that has much else to do.
bool WaitUntil(const std::function<bool()>& condition, DWORD limitMs = 60'000);

/// The text of any window.
std::wstring TextOfWindow(HWND window);

/// A place of a window in the client coordinates of its parent.
RECT PlaceInParent(HWND window);
} // namespace velt::test
