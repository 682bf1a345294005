#pragma once

#include "foundation/unique_handle.h"

#include <windows.h>

namespace velt
{
/// A handle whose failed creation answers INVALID_HANDLE_VALUE (files, snapshots).
struct FileTraits
{
    using Type = HANDLE;

    static Type Invalid() noexcept
    {
        return INVALID_HANDLE_VALUE;
    }

    static void Close(Type handle) noexcept
    {
        ::CloseHandle(handle);
    }
};
using UniqueFile = UniqueHandle<FileTraits>;
} // namespace velt
