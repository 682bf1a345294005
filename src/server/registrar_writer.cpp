#include "server/registrar_writer.h"

#include "foundation/reg_key.h"
#include "foundation/system_exception.h"

#include <windows.h>

#include <string>

namespace velt
{
namespace
{
/// A text with its final NUL.
RegistryData TextData(DWORD type, const std::wstring& text)
{
    const std::span<const wchar_t> characters(text.c_str(), text.size() + 1);
    const auto bytes = std::as_bytes(characters);
    return {type, {bytes.begin(), bytes.end()}};
}

/// One form for each kind of data.
struct ValueEncoder
{
    RegistryData operator()(const std::wstring& text) const
    {
        return TextData(REG_SZ, text);
    }

    RegistryData operator()(std::uint32_t number) const
    {
        const auto bytes = std::as_bytes(std::span(&number, 1));
        return {REG_DWORD, {bytes.begin(), bytes.end()}};
    }

    RegistryData operator()(const std::vector<std::uint8_t>& data) const
    {
        const auto bytes = std::as_bytes(std::span(data));
        return {REG_BINARY, {bytes.begin(), bytes.end()}};
    }

    RegistryData operator()(const std::vector<std::wstring>& texts) const
    {
        std::wstring joined;
        for (const std::wstring& text : texts)
        {
            joined.append(text).push_back(L'\0');
        }
        return TextData(REG_MULTI_SZ, joined);
    }
};

void Write(const RegistryOperation& operation, RegistrationScope scope)
{
    const RegistryLocation at = Locate(operation, scope);
    if (operation.kind == RegistryOperation::Kind::deleteTree)
    {
        DeleteTree(at);
        return;
    }
    CRegKeyW key;
    ThrowIfRegistryError(
        key.Create(at.root, at.path.c_str(), nullptr, REG_OPTION_NON_VOLATILE, KEY_WRITE));
    if (operation.kind == RegistryOperation::Kind::setValue)
    {
        const RegistryData data = EncodeValue(operation.value);
        ThrowIfRegistryError(::RegSetValueExW(key.GetKey(), operation.valueName.c_str(), 0,
                                              data.type,
                                              reinterpret_cast<const BYTE*>(data.bytes.data()),
                                              static_cast<DWORD>(data.bytes.size())));
    }
}
} // namespace

void ThrowIfRegistryError(LSTATUS error)
{
    if (error != ERROR_SUCCESS)
    {
        throw SystemException::Win32(static_cast<DWORD>(error));
    }
}

void DeleteTree(const RegistryLocation& at)
{
    const LSTATUS error = ::RegDeleteTreeW(at.root, at.path.c_str());
    if (error != ERROR_FILE_NOT_FOUND)
    {
        ThrowIfRegistryError(error);
    }
}

RegistryLocation ClassesOf(RegistrationScope scope)
{
    return {scope == RegistrationScope::user ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE,
            L"Software\\Classes"};
}

RegistryLocation Locate(const RegistryOperation& operation, RegistrationScope scope)
{
    switch (operation.root)
    {
    case RegistryRoot::classesRoot:
    {
        RegistryLocation at = ClassesOf(scope);
        at.path.append(L"\\").append(operation.path);
        return at;
    }
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

RegistryData EncodeValue(const RegistryOperation::Value& value)
{
    return std::visit(ValueEncoder(), value);
}

void WriteRegistry(std::span<const RegistryOperation> operations, RegistrationScope scope)
{
    for (const RegistryOperation& operation : operations)
    {
        Write(operation, scope);
    }
}
} // namespace velt
