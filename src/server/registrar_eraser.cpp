#include "server/registrar_eraser.h"

#include "foundation/reg_key.h"
#include "foundation/system_exception.h"

#include <algorithm>
#include <cstddef>
#include <ranges>

namespace velt
{
namespace
{
void ThrowUnlessMissing(LSTATUS error)
{
    if (error != ERROR_FILE_NOT_FOUND && error != ERROR_PATH_NOT_FOUND)
    {
        ThrowIfRegistryError(error);
    }
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

/// Whether an operation is about a key that programs of both kinds have in common.
bool IsForBothEditions(const RegistryOperation& operation) noexcept
{
    return operation.root == RegistryRoot::classesRoot && !operation.path.starts_with(L"CLSID\\") &&
           !operation.path.starts_with(L"Interface\\");
}

/// The operations that are to be undone, the last one first.
auto ToUndo(std::span<const RegistryOperation> operations, EraseExtent extent)
{
    return operations | std::views::reverse |
           std::views::filter([extent](const RegistryOperation& operation) {
               return extent == EraseExtent::all || !IsForBothEditions(operation);
           });
}
} // namespace

std::optional<RegistryData> ReadValue(const RegistryLocation& at, const wchar_t* name)
{
    CRegKeyW key;
    RegistryData data{};
    DWORD size = 0;
    if (key.Open(at.root, at.path.c_str(), KEY_QUERY_VALUE) != ERROR_SUCCESS ||
        ::RegQueryValueExW(key.GetKey(), name, nullptr, &data.type, nullptr, &size) !=
            ERROR_SUCCESS)
    {
        return std::nullopt;
    }
    data.bytes.resize(size);
    if (::RegQueryValueExW(key.GetKey(), name, nullptr, &data.type,
                           reinterpret_cast<BYTE*>(data.bytes.data()), &size) != ERROR_SUCCESS)
    {
        return std::nullopt; // has grown in between
    }
    data.bytes.resize(size);
    return data;
}

std::optional<std::wstring> ReadText(const RegistryLocation& at, const wchar_t* name)
{
    const auto data = ReadValue(at, name);
    if (!data || data->type != REG_SZ)
    {
        return std::nullopt;
    }
    std::wstring text(data->bytes.size() / sizeof(wchar_t), L'\0');
    std::copy_n(data->bytes.data(), text.size() * sizeof(wchar_t),
                reinterpret_cast<std::byte*>(text.data()));
    text.resize(std::min(text.find(L'\0'), text.size()));
    return text;
}

void DeleteEmptyKey(HKEY root, const wchar_t* path, REGSAM view)
{
    CRegKeyW key;
    DWORD keys = 0;
    DWORD values = 0;
    LSTATUS error = key.Open(root, path, KEY_QUERY_VALUE | view);
    if (error == ERROR_SUCCESS)
    {
        error = ::RegQueryInfoKeyW(key.GetKey(), nullptr, nullptr, nullptr, &keys, nullptr, nullptr,
                                   &values, nullptr, nullptr, nullptr, nullptr);
    }
    if (error == ERROR_SUCCESS && keys == 0 && values == 0)
    {
        error = ::RegDeleteKeyExW(root, path, view, 0);
    }
    ThrowUnlessMissing(error);
}

void EraseValue(HKEY root, const wchar_t* path, const wchar_t* name, REGSAM view)
{
    CRegKeyW key;
    LSTATUS error = key.Open(root, path, KEY_SET_VALUE | view);
    if (error == ERROR_SUCCESS)
    {
        error = ::RegDeleteValueW(key.GetKey(), name);
    }
    ThrowUnlessMissing(error);
}

void EraseEntry(HKEY root, const wchar_t* path, const wchar_t* name, REGSAM view)
{
    EraseValue(root, path, name, view);
    DeleteEmptyKey(root, path, view);
}

void EraseRegistry(std::span<const RegistryOperation> operations, RegistrationScope scope,
                   EraseExtent extent)
{
    for (const RegistryOperation& operation : ToUndo(operations, extent))
    {
        const RegistryLocation at = Locate(operation, scope);
        if (operation.kind == RegistryOperation::Kind::setValue)
        {
            const auto present = ReadValue(at, operation.valueName.c_str());
            if (present && IsSame(*present, EncodeValue(operation.value)))
            {
                EraseValue(at.root, at.path.c_str(), operation.valueName.c_str());
            }
        }
        else if (operation.kind == RegistryOperation::Kind::createKey &&
                 (!operation.shared || scope == RegistrationScope::user))
        {
            DeleteEmptyKey(at.root, at.path.c_str());
        }
    }
}

void EraseHidingEntries(std::span<const RegistryOperation> operations, EraseExtent extent)
{
    for (const RegistryOperation& operation : ToUndo(operations, extent))
    {
        const RegistryLocation at = Locate(operation, RegistrationScope::user);
        switch (operation.kind)
        {
        case RegistryOperation::Kind::setValue:
            EraseValue(at.root, at.path.c_str(), operation.valueName.c_str());
            break;
        case RegistryOperation::Kind::createKey:
            DeleteEmptyKey(at.root, at.path.c_str());
            break;
        case RegistryOperation::Kind::deleteTree:
            DeleteTree(at);
            break;
        }
    }
}
} // namespace velt
