#pragma once

#include "foundation/unique_handle.h"

#include <windows.h>

#include <oleauto.h>

#include <string_view>

namespace velt
{
struct BstrTraits
{
    using Type = BSTR;

    static Type Invalid() noexcept
    {
        return nullptr;
    }

    static void Close(Type text) noexcept
    {
        ::SysFreeString(text);
    }
};

/// Owns one BSTR; null stands for none.
using UniqueBstr = UniqueHandle<BstrTraits>;

/// A new BSTR with this text, NULs inside it too. Throws SystemException::HRESULT with
/// E_OUTOFMEMORY.
UniqueBstr MakeBstr(std::wstring_view text);
} // namespace velt
