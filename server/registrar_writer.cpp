#include "server/registrar_writer.h"

#include "foundation/reg_key.h"
#include "foundation/system_exception.h"

#include <windows.h>

#include <string>

namespace velt
{
namespace
{
void ThrowIfError(LSTATUS error)
{
    if (error != ERROR_SUCCESS)
    {
        throw SystemException::Win32(static_cast<DWORD>(error));
    }
}

struct Location
{
    HKEY root;
    std::wstring path;
};

Location Locate(const RegistryOperation& operation, RegistrationScope scope)
{
    switch (operation.root)
    {
    case RegistryRoot::classesRoot:
        if (scope == RegistrationScope::user)
        {
            return {HKEY_CURRENT_USER, L"Software\\Classes\\" + operation.path};
        }
        return {HKEY_CLASSES_ROOT, operation.path};
    case RegistryRoot::currentUser:
        return {HKEY_CURRENT_USER, operation.path};
    case RegistryRoot::localMachine:
        return {HKEY_LOCAL_MACHINE, operation.path};
    case RegistryRoot::users:
        return {HKEY_USERS, operation.path};
    case RegistryRoot::currentConfig:
        return {HKEY_CURRENT_CONFIG, operation.path};
    }
    throw VeltException(__FILE__, __LINE__);
}

void SetData(const CRegKeyW& key, const std::wstring& name, DWORD type, const void* data,
             std::size_t sizeBytes)
{
    ThrowIfError(::RegSetValueExW(key.GetKey(), name.c_str(), 0, type,
                                  static_cast<const BYTE*>(data), static_cast<DWORD>(sizeBytes)));
}

std::size_t SizeWithNul(const std::wstring& text) noexcept
{
    return (text.size() + 1) * sizeof(wchar_t);
}

/// One writer for each kind of data.
struct ValueWriter
{
    const CRegKeyW& key;
    const std::wstring& name;

    void operator()(const std::wstring& text) const
    {
        SetData(key, name, REG_SZ, text.c_str(), SizeWithNul(text));
    }

    void operator()(std::uint32_t number) const
    {
        SetData(key, name, REG_DWORD, &number, sizeof(number));
    }

    void operator()(const std::vector<std::uint8_t>& bytes) const
    {
        SetData(key, name, REG_BINARY, bytes.data(), bytes.size());
    }

    void operator()(const std::vector<std::wstring>& texts) const
    {
        std::wstring joined;
        for (const std::wstring& text : texts)
        {
            joined.append(text).push_back(L'\0');
        }
        SetData(key, name, REG_MULTI_SZ, joined.c_str(), SizeWithNul(joined));
    }
};

void DeleteTree(const Location& at)
{
    const LSTATUS error = ::RegDeleteTreeW(at.root, at.path.c_str());
    if (error != ERROR_FILE_NOT_FOUND)
    {
        ThrowIfError(error);
    }
}

void Write(const RegistryOperation& operation, RegistrationScope scope)
{
    const Location at = Locate(operation, scope);
    if (operation.kind == RegistryOperation::Kind::deleteTree)
    {
        DeleteTree(at);
        return;
    }
    CRegKeyW key;
    ThrowIfError(key.Create(at.root, at.path.c_str(), nullptr, REG_OPTION_NON_VOLATILE, KEY_WRITE));
    if (operation.kind == RegistryOperation::Kind::setValue)
    {
        std::visit(ValueWriter{key, operation.valueName}, operation.value);
    }
}
} // namespace

void WriteRegistry(std::span<const RegistryOperation> operations, RegistrationScope scope)
{
    for (const RegistryOperation& operation : operations)
    {
        Write(operation, scope);
    }
}
} // namespace velt
