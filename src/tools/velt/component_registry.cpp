#include "tools/velt/component_registry.h"

#include "foundation/reg_key.h"
#include "server/registrar_eraser.h"
#include "server/registrar_replacements.h"
#include "server/registration.h"
#include "tools/velt/command_context.h"

#include <oleauto.h>

#include <comutil.h>

#include <algorithm>
#include <array>
#include <ranges>

using Microsoft::WRL::ComPtr;

namespace velt::tool
{
namespace
{
std::wstring TextOf(const RegistryData& data)
{
    std::wstring text(data.bytes.size() / sizeof(wchar_t), L'\0');
    std::copy_n(data.bytes.data(), text.size() * sizeof(wchar_t),
                reinterpret_cast<std::byte*>(text.data()));
    text.resize(std::min(text.find(L'\0'), text.size()));
    return text;
}

bool IsSamePath(const std::wstring& a, const std::wstring& b) noexcept
{
    return ::CompareStringOrdinal(a.data(), static_cast<int>(a.size()), b.data(),
                                  static_cast<int>(b.size()), TRUE) == CSTR_EQUAL;
}

std::wstring GuidText(const GUID& guid)
{
    std::array<wchar_t, 39> text{};
    ::StringFromGUID2(guid, text.data(), static_cast<int>(text.size()));
    return text.data();
}

/// The keys of a library's interfaces with their names, which the system leaves when other programs
/// have keys below.
std::vector<RegistryOperation> InterfaceKeysOf(ITypeLib& library)
{
    using Kind = RegistryOperation::Kind;
    std::vector<RegistryOperation> operations;
    const UINT count = library.GetTypeInfoCount();
    for (UINT i = 0; i < count; ++i)
    {
        TYPEKIND kind{};
        Require(library.GetTypeInfoType(i, &kind), L"a type's kind");
        if (kind != TKIND_INTERFACE && kind != TKIND_DISPATCH)
        {
            continue;
        }
        ComPtr<ITypeInfo> info;
        TYPEATTR* attributes = nullptr;
        _bstr_t name;
        Require(library.GetTypeInfo(i, &info), L"a type");
        Require(info->GetDocumentation(MEMBERID_NIL, name.GetAddress(), nullptr, nullptr, nullptr),
                L"a type's name");
        Require(info->GetTypeAttr(&attributes), L"a type's attributes");
        const std::wstring key = L"Interface\\" + GuidText(attributes->guid);
        info->ReleaseTypeAttr(attributes);
        operations.push_back({Kind::createKey, RegistryRoot::classesRoot, key, {}, {}});
        operations.push_back({Kind::setValue,
                              RegistryRoot::classesRoot,
                              key,
                              {},
                              std::wstring(name.GetBSTR(), name.length())});
    }
    return operations;
}

/// What a type library says of itself.
TLIBATTR AttributesOf(ITypeLib& library)
{
    TLIBATTR* attributes = nullptr;
    Require(library.GetLibAttr(&attributes), L"the type library's attributes");
    const TLIBATTR copy = *attributes;
    library.ReleaseTLibAttr(attributes);
    return copy;
}
} // namespace

ComponentRegistry::ComponentRegistry(const Component& component) : m_component(component)
{
    RegistrarReplacements replacements = CommonReplacements(component.Path());
    m_shared = ReadRegistrarScript(component.Module(), VELT_REGISTRY_APPID, replacements);
    for (const ClassScript& row : kClassScripts)
    {
        AddClassReplacements(replacements, row.threadingModel);
        m_classes.push_back(ReadRegistrarScript(component.Module(), row.script, replacements));
    }
}

std::optional<std::wstring> ComponentRegistry::LibraryOf(RegistrationScope scope) const
{
    std::optional<std::wstring> other;
    for (const Operations& operations : m_classes)
    {
        auto library = LibraryOf(operations, scope);
        if (library && IsOwn(*library))
        {
            return library;
        }
        other = other ? std::move(other) : std::move(library);
    }
    return other;
}

std::optional<std::wstring> ComponentRegistry::LibraryOf(const Operations& operations,
                                                         RegistrationScope scope) const
{
    for (const RegistryOperation& operation : operations)
    {
        const auto* text = std::get_if<std::wstring>(&operation.value);
        if (operation.kind == RegistryOperation::Kind::setValue && text &&
            *text == m_component.Path())
        {
            const auto present = ReadValue(operation, scope);
            if (present && present->type == REG_SZ)
            {
                return TextOf(*present);
            }
        }
    }
    return std::nullopt;
}

bool ComponentRegistry::IsOwn(const std::wstring& library) const noexcept
{
    return IsSamePath(library, m_component.Path());
}

void ComponentRegistry::Erase(RegistrationScope scope) const
{
    EraseTypeLibrary(scope);
    bool others = false;
    for (const Operations& operations : m_classes | std::views::reverse)
    {
        const auto library = LibraryOf(operations, scope);
        if (library && !IsOwn(*library))
        {
            others = true;
            continue;
        }
        EraseRegistry(operations, scope);
    }
    if (!others)
    {
        EraseRegistry(m_shared, scope);
    }
}

void ComponentRegistry::EraseTypeLibrary(RegistrationScope scope) const
{
    ComPtr<ITypeLib> library;
    Require(::LoadTypeLibEx(m_component.Path().c_str(), REGKIND_NONE, &library),
            L"the type library");
    const TLIBATTR attributes = AttributesOf(*library.Get());
    RegistryOperation file{RegistryOperation::Kind::setValue,
                           RegistryRoot::classesRoot,
                           L"TypeLib\\" + GuidText(attributes.guid) + L"\\" +
                               std::to_wstring(attributes.wMajorVerNum) + L"." +
                               std::to_wstring(attributes.wMinorVerNum) + L"\\" +
                               std::to_wstring(attributes.lcid) + L"\\win32",
                           {},
                           m_component.Path()};
    const auto present = ReadValue(file, scope);
    if (!present || present->type != REG_SZ || !IsOwn(TextOf(*present)))
    {
        return;
    }
    Require(::UnRegisterTypeLib(attributes.guid, attributes.wMajorVerNum, attributes.wMinorVerNum,
                                attributes.lcid, attributes.syskind),
            L"the type library's registration");
    EraseRegistry(InterfaceKeysOf(*library.Get()), scope);
    if (scope == RegistrationScope::user)
    {
        for (const wchar_t* const shared : {L"TypeLib", L"Interface"})
        {
            file.path = shared;
            DeleteEmptyKey(LocateAlone(file, scope));
        }
    }
}

UserClassesScope::UserClassesScope()
{
    CRegKeyW classes;
    LSTATUS error = classes.Create(HKEY_CURRENT_USER, L"Software\\Classes", nullptr,
                                   REG_OPTION_NON_VOLATILE, KEY_READ | KEY_WRITE);
    if (error == ERROR_SUCCESS)
    {
        error = ::RegOverridePredefKey(HKEY_CLASSES_ROOT, classes.GetKey());
    }
    if (error != ERROR_SUCCESS)
    {
        throw CommandFailure{HRESULT_FROM_WIN32(static_cast<DWORD>(error)), L"the user's classes"};
    }
}

UserClassesScope::~UserClassesScope()
{
    ::RegOverridePredefKey(HKEY_CLASSES_ROOT, nullptr);
}
} // namespace velt::tool
