#include "server/registrar_eraser.h"

#include "foundation/reg_key.h"
#include "foundation/system_exception.h"

#include <ranges>

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

bool IsMissing(LSTATUS error) noexcept
{
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

/// The same data; of texts, the same but for capitals, because paths are written either way.
bool IsSame(const RegistryData& a, const RegistryData& b) noexcept
{
    if (a.type != REG_SZ || b.type != REG_SZ)
    {
        return a == b;
    }
    const auto text = [](const RegistryData& data) {
        return reinterpret_cast<const wchar_t*>(data.bytes.data());
    };
    const auto length = [](const RegistryData& data) {
        return static_cast<int>(data.bytes.size() / sizeof(wchar_t));
    };
    return ::CompareStringOrdinal(text(a), length(a), text(b), length(b), TRUE) == CSTR_EQUAL;
}

void EraseValue(const RegistryOperation& operation, RegistrationScope scope)
{
    const auto present = ReadValue(operation, scope);
    if (!present || !IsSame(*present, EncodeValue(operation.value)))
    {
        return;
    }
    const RegistryLocation at = LocateAlone(operation, scope);
    CRegKeyW key;
    ThrowIfError(key.Open(at.root, at.path.c_str(), KEY_SET_VALUE));
    ThrowIfError(::RegDeleteValueW(key.GetKey(), operation.valueName.c_str()));
}
} // namespace

RegistryLocation LocateAlone(const RegistryOperation& operation, RegistrationScope scope)
{
    RegistryLocation at = Locate(operation, scope);
    if (at.root == HKEY_CLASSES_ROOT)
    {
        return {HKEY_LOCAL_MACHINE, L"Software\\Classes\\" + at.path};
    }
    return at;
}

std::optional<RegistryData> ReadValue(const RegistryOperation& operation, RegistrationScope scope)
{
    const RegistryLocation at = LocateAlone(operation, scope);
    CRegKeyW key;
    RegistryData data{};
    DWORD size = 0;
    if (key.Open(at.root, at.path.c_str(), KEY_QUERY_VALUE) != ERROR_SUCCESS ||
        ::RegQueryValueExW(key.GetKey(), operation.valueName.c_str(), nullptr, &data.type, nullptr,
                           &size) != ERROR_SUCCESS)
    {
        return std::nullopt;
    }
    data.bytes.resize(size);
    if (::RegQueryValueExW(key.GetKey(), operation.valueName.c_str(), nullptr, &data.type,
                           reinterpret_cast<BYTE*>(data.bytes.data()), &size) != ERROR_SUCCESS)
    {
        return std::nullopt; // has grown in between
    }
    data.bytes.resize(size);
    return data;
}

void EraseRegistry(std::span<const RegistryOperation> operations, RegistrationScope scope)
{
    for (const RegistryOperation& operation : operations | std::views::reverse)
    {
        if (operation.kind == RegistryOperation::Kind::setValue)
        {
            EraseValue(operation, scope);
        }
        else if (operation.kind == RegistryOperation::Kind::createKey &&
                 (!operation.shared || scope == RegistrationScope::user))
        {
            DeleteEmptyKey(LocateAlone(operation, scope));
        }
    }
}

void DeleteEmptyKey(const RegistryLocation& at)
{
    CRegKeyW key;
    const LSTATUS error = key.Open(at.root, at.path.c_str(), KEY_QUERY_VALUE);
    if (IsMissing(error))
    {
        return;
    }
    ThrowIfError(error);
    DWORD keys = 0;
    DWORD values = 0;
    ThrowIfError(::RegQueryInfoKeyW(key.GetKey(), nullptr, nullptr, nullptr, &keys, nullptr,
                                    nullptr, &values, nullptr, nullptr, nullptr, nullptr));
    if (keys == 0 && values == 0)
    {
        ThrowIfError(::RegDeleteKeyW(at.root, at.path.c_str()));
    }
}
} // namespace velt
