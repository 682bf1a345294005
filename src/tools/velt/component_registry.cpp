#include "tools/velt/component_registry.h"

#include "server/registrar_eraser.h"
#include "server/registration.h"
#include "server/type_library_entries.h"
#include "tools/velt/command_context.h"
#include "tools/velt/registered_copy.h"

#include <oleauto.h>
#include <wrl/client.h>

#include <ranges>

using Microsoft::WRL::ComPtr;

namespace velt::tool
{
namespace
{
RegistrarReplacements OwnReplacements()
{
    RegistrarReplacements replacements;
    AddCommonReplacements(replacements);
    return replacements;
}
} // namespace

ComponentRegistry::ComponentRegistry(const Component& component) : m_component(component)
{
    RegistrarReplacements replacements = OwnReplacements();
    AddModuleReplacement(replacements, component.Module());
    m_shared = ReadRegistrarScript(component.Module(), VELT_REGISTRY_APPID, replacements);
    for (const ClassRegistration& row : kClassRegistrations)
    {
        AddClassReplacement(replacements, row);
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
        if (!other)
        {
            other = std::move(library);
        }
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
            if (auto library = ReadText(Locate(operation, scope), operation.valueName.c_str()))
            {
                return library;
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
    const EraseExtent extent = EraseTypeLibrary(scope);
    bool others = false;
    for (const Operations& operations : m_classes | std::views::reverse)
    {
        const auto library = LibraryOf(operations, scope);
        if (library && !IsOwn(*library))
        {
            others = true;
            continue;
        }
        EraseRegistry(operations, scope, extent);
    }
    if (!others)
    {
        EraseRegistry(m_shared, scope, extent);
    }
}

EraseExtent ComponentRegistry::EraseTypeLibrary(RegistrationScope scope) const
{
    ComPtr<ITypeLib> library;
    Require(::LoadTypeLibEx(m_component.Path().c_str(), REGKIND_NONE, &library),
            L"the type library");
    const TypeLibraryEntries entries(*library.Get());
    const auto file = entries.File(scope);
    if (file && IsOwn(*file))
    {
        entries.Erase(scope);
    }
    return entries.Extent(scope);
}

void RegisterForUser(const Component& component)
{
    RegisterComponent(component.Module(), RegistrationScope::user, OwnReplacements(),
                      kClassRegistrations);
}
} // namespace velt::tool
