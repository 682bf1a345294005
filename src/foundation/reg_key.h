#pragma once

#include <windows.h>

/// A registry key addressed by wide names. Every result is a Win32 error code, 0 on success;
/// nothing is thrown.
///
/// By design, string values go through the system's narrow calls (code page CP_THREAD_ACP), while
/// keys and numbers go through the wide ones.
class CRegKeyW
{
public:
    CRegKeyW() noexcept = default;

    CRegKeyW(const CRegKeyW&) = delete;
    CRegKeyW& operator=(const CRegKeyW&) = delete;

    virtual ~CRegKeyW();

    /// The open key, null when none; still owned by this object.
    HKEY GetKey() const noexcept;

    /// Creates or opens a key and closes the one that was open; the result is then that of the
    /// closing. After a failure the old key stays open. The disposition is written whenever its
    /// pointer is not null.
    LSTATUS Create(HKEY parent, const wchar_t* name, const wchar_t* className = nullptr,
                   DWORD options = REG_OPTION_NON_VOLATILE, REGSAM access = KEY_READ | KEY_WRITE,
                   SECURITY_ATTRIBUTES* security = nullptr, DWORD* disposition = nullptr) noexcept;

    /// Opens a key that exists; otherwise as Create.
    LSTATUS Open(HKEY parent, const wchar_t* name, REGSAM access = KEY_READ | KEY_WRITE) noexcept;

    /// By design, reports nothing, not even a failure.
    void DeleteSubKey(const wchar_t* name) noexcept;

    /// ERROR_INVALID_DATA (13) for a value of another type than REG_DWORD.
    LSTATUS QueryDWORDValue(const wchar_t* name, DWORD* value) noexcept;
    LSTATUS SetDWORDValue(const wchar_t* name, DWORD value) noexcept;

    /// Reads narrow text; `size` is the buffer's size in bytes and becomes the text's, with its
    /// final NUL. A null buffer asks for the size only. ERROR_INVALID_DATA (13) for a type other
    /// than REG_SZ and REG_EXPAND_SZ, and for data that does not end in NUL.
    LSTATUS QueryStringValue(const wchar_t* name, char* buffer, DWORD* size) noexcept;

    /// Writes narrow text; `type` is REG_SZ or REG_EXPAND_SZ.
    LSTATUS SetStringValue(const wchar_t* name, const wchar_t* value, DWORD type = REG_SZ) noexcept;

private:
    /// Closes the open key and keeps another one.
    LSTATUS Replace(HKEY key) noexcept;

    HKEY m_key = nullptr;
};
