#include "samples/update_agent/update_window.h"

void UpdateWindow::Show(const std::wstring& text)
{
    constexpr wchar_t kName[] = L"Software Manager";
    if (!s_text)
    {
        WNDCLASSW type{};
        type.lpfnWndProc = &UpdateWindow::Procedure;
        type.hInstance = ::GetModuleHandleW(nullptr);
        type.hCursor = ::LoadCursorW(nullptr, MAKEINTRESOURCEW(32512)); // the arrow
        type.hbrBackground = ::GetSysColorBrush(COLOR_BTNFACE);
        type.lpszClassName = kName;
        ::RegisterClassW(&type); // fails from the second time on
        const HWND window =
            ::CreateWindowExW(0, kName, kName, WS_OVERLAPPEDWINDOW, CW_USEDEFAULT, CW_USEDEFAULT,
                              420, 160, nullptr, nullptr, type.hInstance, nullptr);
        if (!window)
        {
            return;
        }
        s_text = ::CreateWindowExW(0, L"STATIC", L"", WS_CHILD | WS_VISIBLE | SS_CENTER, 10, 40,
                                   380, 60, window, nullptr, type.hInstance, nullptr);
        s_process = std::make_unique<ProcessReference>();
        ::ShowWindow(window, SW_SHOWNOACTIVATE);
    }
    ::SetWindowTextW(s_text, text.c_str());
}

LRESULT CALLBACK UpdateWindow::Procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam)
{
    if (message == WM_DESTROY)
    {
        s_text = nullptr;
        s_process.reset();
    }
    return ::DefWindowProcW(window, message, wParam, lParam);
}
