#pragma once

#include "foundation/unique_handle.h"

#include <windows.h>

namespace velt::tool
{
struct FileTraits
{
    using Type = HANDLE;

    static Type Invalid() noexcept
    {
        return INVALID_HANDLE_VALUE;
    }

    static void Close(Type file) noexcept
    {
        ::CloseHandle(file);
    }
};
using UniqueFile = UniqueHandle<FileTraits>;
} // namespace velt::tool
