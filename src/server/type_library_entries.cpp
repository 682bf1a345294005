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

/// The system registers the interfaces for programs of both kinds, whichever kind asks. 32-bit
/// Windows has one view, by either name.
constexpr std::array<REGSAM, 2> kViews = {KEY_WOW64_32KEY, KEY_WOW64_64KEY};

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
Path SystemKey(const TLIBATTR& library, SYSKIND system)
{
    return Format(system == SYS_WIN64 ? L"%s\\win64" : L"%s\\win32", LanguageKey(library).data());
}

SYSKIND OtherSystem(const TLIBATTR& library) noexcept
{
    return library.syskind == SYS_WIN64 ? SYS_WIN32 : SYS_WIN64;
}

RegistryLocation Below(const RegistryLocation& at, const Path& path)
{
    return {at.root, at.path + L'\\' + path.data()};
}

bool Exists(const RegistryLocation& at)
{
    CRegKeyW key;
    const LSTATUS error = key.Open(at.root, at.path.c_str(), KEY_QUERY_VALUE);
    if (error != ERROR_FILE_NOT_FOUND)
    {
        ThrowIfRegistryError(error);
    }
    return error == ERROR_SUCCESS;
}

/// The classes, open for reading; nothing when there are none.
CRegKeyW& OpenClasses(CRegKeyW& classes, RegistrationScope scope)
{
    const RegistryLocation at = ClassesOf(scope);
    const LSTATUS error = classes.Open(at.root, at.path.c_str(), KEY_READ);
    if (error != ERROR_FILE_NOT_FOUND)
    {
        ThrowIfRegistryError(error);
    }
    return classes;
}

/// The directory of a file's full path, without the final backslash.
std::wstring DirectoryOf(const std::wstring& file)
{
    return file.substr(0, file.find_last_of(L'\\'));
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
    return ReadText(Below(ClassesOf(scope), SystemKey(m_library, m_library.syskind)), L"");
}

EraseExtent TypeLibraryEntries::Extent(RegistrationScope scope) const
{
    return Exists(Below(ClassesOf(scope), SystemKey(m_library, OtherSystem(m_library))))
               ? EraseExtent::ownView
               : EraseExtent::all;
}

void TypeLibraryEntries::Erase(RegistrationScope scope) const
{
    CRegKeyW classes;
    const HKEY root = OpenClasses(classes, scope).GetKey();
    if (!root)
    {
        return;
    }
    const auto file = File(scope);
    EraseEntry(root, SystemKey(m_library, m_library.syskind).data(), L"");
    DeleteEmptyKey(root, LanguageKey(m_library).data());
    if (Exists(Below(ClassesOf(scope), LanguageKey(m_library)))) // for another kind
    {
        if (file)
        {
            HandHelpFolderOver(scope, *file);
        }
        return;
    }
    for (const wchar_t* const part : kVersionParts)
    {
        EraseEntry(root, Format(L"%s%s", VersionKey(m_library).data(), part).data(), L"");
    }
    DeleteEmptyKey(root, LibraryKey(m_library).data());
    EraseInterfaces(scope);
    if (scope == RegistrationScope::user) // the machine always has them
    {
        DeleteEmptyKey(root, L"TypeLib");
    }
}

void TypeLibraryEntries::HandHelpFolderOver(RegistrationScope scope,
                                            const std::wstring& ownFile) const
{
    const RegistryLocation help =
        Below(ClassesOf(scope), Format(L"%s\\HELPDIR", VersionKey(m_library).data()));
    const auto other =
        ReadText(Below(ClassesOf(scope), SystemKey(m_library, OtherSystem(m_library))), L"");
    if (!other || ReadText(help, L"") != DirectoryOf(ownFile))
    {
        return;
    }
    const RegistryData folder = EncodeValue(DirectoryOf(*other));
    CRegKeyW key;
    ThrowIfRegistryError(key.Open(help.root, help.path.c_str(), KEY_SET_VALUE));
    ThrowIfRegistryError(::RegSetValueExW(key.GetKey(), nullptr, 0, folder.type,
                                          reinterpret_cast<const BYTE*>(folder.bytes.data()),
                                          static_cast<DWORD>(folder.bytes.size())));
}

void TypeLibraryEntries::EraseInterfaces(RegistrationScope scope) const
{
    // By whole paths: a view is that of a path from the root.
    const RegistryLocation at = ClassesOf(scope);
    for (const REGSAM view : kViews)
    {
        for (const GUID& iid : m_interfaces)
        {
            const Path key = Format(L"%s\\Interface\\%s", at.path.c_str(), GuidText(iid).data());
            EraseValue(at.root, Format(L"%s\\TypeLib", key.data()).data(), L"Version", view);
            for (const wchar_t* const part : kInterfaceParts)
            {
                EraseEntry(at.root, Format(L"%s%s", key.data(), part).data(), L"", view);
            }
        }
        if (scope == RegistrationScope::user) // the machine always has it
        {
            DeleteEmptyKey(at.root, (at.path + L"\\Interface").c_str(), view);
        }
    }
}
} // namespace velt
