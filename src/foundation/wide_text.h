#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <string_view>

namespace velt
{
/// Converts between the platform's UTF-16 and our UTF-8. Ill-formed input becomes U+FFFD.
/// Throws std::bad_alloc only.
std::wstring WideFromUtf8(std::string_view text);
std::string Utf8FromWide(std::wstring_view text);

/// Converts UTF-16 to the code page `codePage` (CP_ACP, CP_THREAD_ACP, ...); characters that it
/// lacks become its default character. Throws SystemException::Win32 when the system refuses the
/// text, and std::bad_alloc.
std::string NarrowFromWide(std::wstring_view text, UINT codePage);

/// The same for texts whose meaning must not change: none when the way back would give another
/// text, or the system refuses it. Throws std::bad_alloc only.
std::optional<std::string> ExactNarrowFromWide(std::wstring_view text, UINT codePage);

/// The reverse of NarrowFromWide; otherwise the same.
std::wstring WideFromNarrow(std::string_view text, UINT codePage);
} // namespace velt
