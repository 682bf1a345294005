#include "ui/window_subclass.h"

#include <utility>

namespace velt
{
namespace
{
constexpr wchar_t kObject[] = L"VeltWindowSubclass";
constexpr wchar_t kOriginal[] = L"VeltWindowSubclassOriginal"; // outlives the object if it must

WNDPROC ProcedureOf(HWND window) noexcept
{
    return reinterpret_cast<WNDPROC>(::GetWindowLongPtrW(window, GWLP_WNDPROC));
}
} // namespace

WindowSubclass::~WindowSubclass()
{
    Detach();
}

bool WindowSubclass::Attach(HWND window, Handler handler, void* owner) noexcept
{
    const WNDPROC original = window ? ProcedureOf(window) : nullptr;
    if (m_window || !original || ::GetPropW(window, kOriginal) ||
        !::SetPropW(window, kOriginal, reinterpret_cast<HANDLE>(original)))
    {
        return false;
    }
    m_original = original;
    m_handler = handler;
    m_owner = owner;
    if (!::SetPropW(window, kObject, this) ||
        ::SetWindowLongPtrW(window, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&Procedure)) == 0)
    {
        ::RemovePropW(window, kObject);
        ::RemovePropW(window, kOriginal);
        m_original = &::DefWindowProcW;
        return false;
    }
    m_window = window;
    return true;
}

void WindowSubclass::Detach() noexcept
{
    const HWND window = std::exchange(m_window, nullptr);
    if (!window)
    {
        return;
    }
    ::RemovePropW(window, kObject);
    if (ProcedureOf(window) == &Procedure)
    {
        ::SetWindowLongPtrW(window, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(m_original));
        ::RemovePropW(window, kOriginal);
    }
    m_original = &::DefWindowProcW;
}

HWND WindowSubclass::Window() const noexcept
{
    return m_window;
}

WNDPROC WindowSubclass::Original() const noexcept
{
    return m_original;
}

LRESULT CALLBACK WindowSubclass::Procedure(HWND window, UINT message, WPARAM wParam,
                                           LPARAM lParam) noexcept
{
    if (const auto* const self = static_cast<const WindowSubclass*>(::GetPropW(window, kObject)))
    {
        return self->m_handler(self->m_owner, message, wParam, lParam);
    }
    const HANDLE kept = ::GetPropW(window, kOriginal);
    if (message == WM_NCDESTROY)
    {
        ::RemovePropW(window, kOriginal);
    }
    const auto original = kept ? reinterpret_cast<WNDPROC>(kept) : &::DefWindowProcW;
    return ::CallWindowProcW(original, window, message, wParam, lParam);
}
} // namespace velt
