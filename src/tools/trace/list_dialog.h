#pragma once

#include "tools/trace/window_look.h"

#include <windows.h>

#include <commctrl.h>

#include <span>

namespace velt
{
/// A column of a list.
struct ListColumn
{
    const wchar_t* name = nullptr;
    int width = 0; // in dialog units
    int format = LVCFMT_LEFT;
};

/// A window with a list that stays open beside the main window, in the same look. It belongs to one
/// thread.
class ListDialog
{
public:
    ListDialog(const ListDialog&) = delete;
    ListDialog& operator=(const ListDialog&) = delete;

    /// The look must outlive its use here: until the next call.
    void SetLook(const WindowLook& look) noexcept;

    /// Whether a message was for one of its controls.
    bool Takes(MSG& message) const noexcept
    {
        return m_window && ::IsDialogMessageW(m_window, &message);
    }

protected:
    /// The template of the dialog, and the list's identifier in it.
    ListDialog(int dialog, int list) noexcept : m_dialog(dialog), m_list(list) {}

    virtual ~ListDialog();

    /// Makes the window, which must not be there. Throws SystemException::Win32.
    void Create(HWND owner);
    void BringToFront() const noexcept;
    void InsertColumns(std::span<const ListColumn> columns) const noexcept;

    HWND Window() const noexcept
    {
        return m_window;
    }

    HWND Item(int id) const noexcept
    {
        return ::GetDlgItem(m_window, id);
    }

    HWND List() const noexcept
    {
        return Item(m_list);
    }

private:
    static INT_PTR CALLBACK DialogProc(HWND window, UINT message, WPARAM wParam,
                                       LPARAM lParam) noexcept;
    INT_PTR Handle(UINT message, WPARAM wParam, LPARAM lParam);

    // What these throw is shown in a message box.
    virtual void Build() = 0; // fills the new window
    virtual void OnCommand(UINT command, UINT code) = 0;
    virtual void OnNotify(LPARAM notification) = 0;
    virtual void OnClosed() {}

    int m_dialog;
    int m_list;
    HWND m_window = nullptr;
    const WindowLook* m_look = nullptr;
};
} // namespace velt
