#pragma once

#include "server/registrar_eraser.h"
#include "server/registration.h"
#include "tools/velt/component.h"

#include <optional>
#include <string>
#include <vector>

namespace velt::tool
{
/// What the component's registration writes, read from the scripts in the component itself, and
/// what of it is in the registry.
class ComponentRegistry
{
public:
    /// The component outlives this object. Throws SystemException::Win32.
    explicit ComponentRegistry(const Component& component);

    ComponentRegistry(const ComponentRegistry&) = delete;
    ComponentRegistry& operator=(const ComponentRegistry&) = delete;

    ~ComponentRegistry() = default;

    /// The library that the classes are registered with: this one when one of them is, else another
    /// copy; nothing when they are not registered there.
    std::optional<std::wstring> LibraryOf(RegistrationScope scope) const;

    /// Whether that is this component.
    bool IsOwn(const std::wstring& library) const noexcept;

    /// Takes everything back that registering this component has written there, its type library
    /// included. Classes that another copy is registered with stay, and with them what all classes
    /// share, as do the keys that the other edition has in
    /// common with this one. COM is initialised. Throws SystemException::Win32 and CommandFailure.
    void Erase(RegistrationScope scope) const;

private:
    using Operations = std::vector<RegistryOperation>; // of a script, in their order

    std::optional<std::wstring> LibraryOf(const Operations& operations,
                                          RegistrationScope scope) const;
    /// Returns how far erasing goes then.
    EraseExtent EraseTypeLibrary(RegistrationScope scope) const;

    const Component& m_component;
    Operations m_shared;
    std::vector<Operations> m_classes;
};

/// Registers the component for the user, as it does itself where the machine's classes cannot be
/// written. Throws SystemException::Win32, SystemException::HRESULT and std::bad_alloc.
void RegisterForUser(const Component& component);
} // namespace velt::tool
