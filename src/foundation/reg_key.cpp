#include "foundation/reg_key.h"

#include "foundation/system_exception.h"
#include "foundation/wide_text.h"

#include <exception>
#include <new>
#include <utility>

namespace
{
/// Runs a body that may throw and answers with its error code.
template <class Body>
LSTATUS ErrorCodeOf(Body&& body) noexcept
{
    try
    {
        return body();
    }
    catch (const SystemException::Win32& e)
    {
        return static_cast<LSTATUS>(e.GetCode());
    }
    catch (const std::exception&)
    {
        return ERROR_OUTOFMEMORY;
    }
}

/// Null stays null: it names a key's default value.
class NarrowName
{
public:
    explicit NarrowName(const wchar_t* name)
        : m_isNull(!name),
          m_text(name ? velt::NarrowFromWide(name, CP_THREAD_ACP) : std::string())
    {
    }

    const char* Get() const noexcept
    {
        return m_isNull ? nullptr : m_text.c_str();
    }

private:
    bool m_isNull;
    std::string m_text;
};
} // namespace

CRegKeyW::~CRegKeyW()
{
    if (m_key)
    {
        ::RegCloseKey(m_key);
    }
}

HKEY CRegKeyW::GetKey() const noexcept
{
    return m_key;
}

LSTATUS CRegKeyW::Create(HKEY parent, const wchar_t* name, const wchar_t* className, DWORD options,
                         REGSAM access, SECURITY_ATTRIBUTES* security, DWORD* disposition) noexcept
{
    HKEY key = nullptr;
    DWORD outcome = 0;
    // The system takes the class as writable text, but does not write to it.
    const LSTATUS error = ::RegCreateKeyExW(parent, name, 0, const_cast<wchar_t*>(className),
                                            options, access, security, &key, &outcome);
    if (disposition)
    {
        *disposition = outcome;
    }
    return error == ERROR_SUCCESS ? Replace(key) : error;
}

LSTATUS CRegKeyW::Open(HKEY parent, const wchar_t* name, REGSAM access) noexcept
{
    HKEY key = nullptr;
    const LSTATUS error = ::RegOpenKeyExW(parent, name, 0, access, &key);
    return error == ERROR_SUCCESS ? Replace(key) : error;
}

void CRegKeyW::DeleteSubKey(const wchar_t* name) noexcept
{
    ::RegDeleteKeyW(m_key, name);
}

LSTATUS CRegKeyW::QueryDWORDValue(const wchar_t* name, DWORD* value) noexcept
{
    if (!value)
    {
        return ERROR_INVALID_PARAMETER;
    }
    DWORD type = REG_NONE;
    DWORD data = 0;
    DWORD size = sizeof(data);
    const LSTATUS error =
        ::RegQueryValueExW(m_key, name, nullptr, &type, reinterpret_cast<BYTE*>(&data), &size);
    // A value of another type may well be longer than the buffer.
    const bool isDword = type == REG_DWORD && size == sizeof(data);
    if (error == ERROR_MORE_DATA || (error == ERROR_SUCCESS && !isDword))
    {
        return ERROR_INVALID_DATA;
    }
    if (error == ERROR_SUCCESS)
    {
        *value = data;
    }
    return error;
}

LSTATUS CRegKeyW::SetDWORDValue(const wchar_t* name, DWORD value) noexcept
{
    return ::RegSetValueExW(m_key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value),
                            sizeof(value));
}

LSTATUS CRegKeyW::QueryStringValue(const wchar_t* name, char* buffer, DWORD* size) noexcept
{
    if (!size)
    {
        return ERROR_INVALID_PARAMETER;
    }
    return ErrorCodeOf([&]() -> LSTATUS {
        const NarrowName narrowName(name);
        DWORD type = REG_NONE;
        const LSTATUS error = ::RegQueryValueExA(m_key, narrowName.Get(), nullptr, &type,
                                                 reinterpret_cast<BYTE*>(buffer), size);
        // A value of another type may well be longer than the buffer.
        if ((error == ERROR_SUCCESS || error == ERROR_MORE_DATA) && type != REG_SZ &&
            type != REG_EXPAND_SZ)
        {
            return ERROR_INVALID_DATA;
        }
        if (error != ERROR_SUCCESS)
        {
            return error;
        }
        const bool unterminated = buffer && (*size == 0 || buffer[*size - 1] != '\0');
        return unterminated ? ERROR_INVALID_DATA : ERROR_SUCCESS;
    });
}

LSTATUS CRegKeyW::SetStringValue(const wchar_t* name, const wchar_t* value, DWORD type) noexcept
{
    if (!value)
    {
        return ERROR_INVALID_PARAMETER;
    }
    return ErrorCodeOf([&] {
        const NarrowName narrowName(name);
        const std::string narrow = velt::NarrowFromWide(value, CP_THREAD_ACP);
        return ::RegSetValueExA(m_key, narrowName.Get(), 0, type,
                                reinterpret_cast<const BYTE*>(narrow.c_str()),
                                static_cast<DWORD>(narrow.size()) + 1);
    });
}

LSTATUS CRegKeyW::Replace(HKEY key) noexcept
{
    const HKEY old = std::exchange(m_key, key);
    return old ? ::RegCloseKey(old) : ERROR_SUCCESS;
}
