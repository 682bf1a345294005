#include "server/type_library_entries.h"

#include "foundation/reg_key.h"
#include "foundation/system_exception.h"
#include "server/registrar_eraser.h"

#include <oleauto.h>
#include <wrl/client.h>

#include <array>
#include <cstdarg>

using Microsoft::WRL::ComPtr;

namespace velt
{
namespace
{
// The first one on systems before Windows 8.
constexpr std::array kInterfaceParts = {L"\\ProxyStubClsid", L"\\ProxyStubClsid32", L"\\TypeLib",
                                        L""};
constexpr std::array kVersionParts = {L"\\FLAGS", L"\\HELPDIR", L""};

/// A key below the classes. The longest is that of a kind of system, with numbers of 32 bits.
using Path = std::array<wchar_t, 128>;

Path Format(const wchar_t* format, ...)
{
    Path path{};
    va_list arguments;
    va_start(arguments, format);
    ::wvsprintfW(path.data(), format, arguments);
    va_end(arguments);
    return path;
}

Path GuidText(const GUID& guid)
{
    Path text{};
    ::StringFromGUID2(guid, text.data(), static_cast<int>(text.size()));
    return text;
}

Path LibraryKey(const TLIBATTR& library)
{
    return Format(L"TypeLib\\%s", GuidText(library.guid).data());
}

Path VersionKey(const TLIBATTR& library)
{
    return Format(L"%s\\%x.%x", LibraryKey(library).data(), library.wMajorVerNum,
                  library.wMinorVerNum);
}

/// Has a key for each kind of system.
Path LanguageKey(const TLIBATTR& library)
{
    return Format(L"%s\\%lx", VersionKey(library).data(), library.lcid);
}

/// Its default value is the file.
Path SystemKey(const TLIBATTR& library)
{
    return Format(library.syskind == SYS_WIN64 ? L"%s\\win64" : L"%s\\win32",
                  LanguageKey(library).data());
}
} // namespace

TypeLibraryEntries::TypeLibraryEntries(ITypeLib& library)
{
    TLIBATTR* own = nullptr;
    ThrowIfFailed(library.GetLibAttr(&own));
    m_library = *own;
    library.ReleaseTLibAttr(own);
    for (UINT i = 0; i < library.GetTypeInfoCount(); ++i)
    {
        ComPtr<ITypeInfo> info;
        ThrowIfFailed(library.GetTypeInfo(i, &info));
        TYPEATTR* type = nullptr;
        ThrowIfFailed(info->GetTypeAttr(&type));
        const TYPEKIND kind = type->typekind;
        const GUID iid = type->guid;
        info->ReleaseTypeAttr(type);
        if (kind == TKIND_INTERFACE || kind == TKIND_DISPATCH) // others have no key
        {
            m_interfaces.push_back(iid);
        }
    }
}

std::optional<std::wstring> TypeLibraryEntries::File(RegistrationScope scope) const
{
    RegistryLocation at = ClassesOf(scope);
    at.path.append(1, L'\\').append(SystemKey(m_library).data());
    return ReadText(at, L"");
}

void TypeLibraryEntries::Erase(RegistrationScope scope) const
{
    const RegistryLocation at = ClassesOf(scope);
    CRegKeyW classes;
    LSTATUS error = classes.Open(at.root, at.path.c_str(), KEY_READ);
    if (error == ERROR_FILE_NOT_FOUND)
    {
        return;
    }
    ThrowIfRegistryError(error);
    const HKEY root = classes.GetKey();
    EraseEntry(root, SystemKey(m_library).data(), L"");
    const Path language = LanguageKey(m_library);
    DeleteEmptyKey(root, language.data());
    CRegKeyW others;
    error = others.Open(root, language.data(), KEY_QUERY_VALUE);
    if (error == ERROR_FILE_NOT_FOUND) // that was the last kind of system
    {
        for (const wchar_t* const part : kVersionParts)
        {
            EraseEntry(root, Format(L"%s%s", VersionKey(m_library).data(), part).data(), L"");
        }
        DeleteEmptyKey(root, LibraryKey(m_library).data());
    }
    for (const GUID& iid : m_interfaces)
    {
        const Path key = Format(L"Interface\\%s", GuidText(iid).data());
        EraseValue(root, Format(L"%s\\TypeLib", key.data()).data(), L"Version");
        for (const wchar_t* const part : kInterfaceParts)
        {
            EraseEntry(root, Format(L"%s%s", key.data(), part).data(), L"");
        }
    }
    if (scope == RegistrationScope::user) // the machine always has them
    {
        DeleteEmptyKey(root, L"TypeLib");
        DeleteEmptyKey(root, L"Interface");
    }
}
} // namespace velt
