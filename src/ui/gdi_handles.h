#pragma once

#include "foundation/unique_handle.h"

#include <windows.h>

namespace velt
{
/// One kind of drawing object; it must not be selected into a context when it is closed.
template <class Handle>
struct GdiObjectTraits
{
    using Type = Handle;

    static Type Invalid() noexcept
    {
        return nullptr;
    }

    static void Close(Type object) noexcept
    {
        ::DeleteObject(object);
    }
};
using UniqueBitmap = UniqueHandle<GdiObjectTraits<HBITMAP>>;
using UniqueBrush = UniqueHandle<GdiObjectTraits<HBRUSH>>;
using UniqueFont = UniqueHandle<GdiObjectTraits<HFONT>>;
using UniqueRegion = UniqueHandle<GdiObjectTraits<HRGN>>;

/// A memory context, made by CreateCompatibleDC.
struct MemoryDcTraits
{
    using Type = HDC;

    static Type Invalid() noexcept
    {
        return nullptr;
    }

    static void Close(Type context) noexcept
    {
        ::DeleteDC(context);
    }
};
using UniqueMemoryDc = UniqueHandle<MemoryDcTraits>;

/// A window that this object's thread has made.
struct WindowTraits
{
    using Type = HWND;

    static Type Invalid() noexcept
    {
        return nullptr;
    }

    static void Close(Type window) noexcept
    {
        ::DestroyWindow(window);
    }
};
using UniqueWindow = UniqueHandle<WindowTraits>;
} // namespace velt
