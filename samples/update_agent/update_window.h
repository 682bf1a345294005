#pragma once

#include "samples/update_agent/process_reference.h"

#include <windows.h>

#include <memory>
#include <string>

/// The window of an update in the foreground, for as long as the user keeps it open.
class UpdateWindow
{
public:
    /// Shows a text in the window, which is made when there is none.
    static void Show(const std::wstring& text);

private:
    static LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

    inline static HWND s_text = nullptr;
    inline static std::unique_ptr<ProcessReference> s_process; // while there is a window
};
