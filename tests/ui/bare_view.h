#pragma once

#include "tests/ui/eula_files.h"

#include <windows.h>

#include <richedit.h>

#include <string_view>

namespace velt::test
{
inline DWORD CALLBACK ReadAgreement(DWORD_PTR cookie, LPBYTE buffer, LONG wanted, LONG* read)
{
    auto& left = *reinterpret_cast<std::string_view*>(cookie);
    *read = static_cast<LONG>(
        left.copy(reinterpret_cast<char*>(buffer), static_cast<std::size_t>(wanted)));
    left.remove_prefix(static_cast<std::size_t>(*read));
    return 0;
}

/// Has the system's own control read the small agreement, with its library loaded for that as the
/// dialog loads it.
inline void ReadWithBareView()
{
    const HMODULE library = ::LoadLibraryW(L"riched32.dll");
    const HWND view = ::CreateWindowExW(0, L"RICHEDIT", L"", WS_POPUP | ES_MULTILINE, 0, 0, 300,
                                        200, nullptr, nullptr, nullptr, nullptr);
    std::string_view left = kSmallAgreement;
    EDITSTREAM stream{reinterpret_cast<DWORD_PTR>(&left), 0, &ReadAgreement};
    ::SendMessageW(view, EM_STREAMIN, SF_RTF, reinterpret_cast<LPARAM>(&stream));
    ::DestroyWindow(view);
    ::FreeLibrary(library);
}
} // namespace velt::test
