#pragma once

#include "foundation/library_utils.h"

#include <windows.h>

#include <unknwn.h>
#include <wrl/client.h>

#include <string>

namespace velt::tool
{
/// Full path of a file that lies beside the program.
std::wstring FileBesideProgram(const wchar_t* name);

/// The component's DLL beside the program, registered or not. Everything throws CommandFailure.
/// Objects must be gone before it is.
class Component
{
public:
    Component();

    Component(const Component&) = delete;
    Component& operator=(const Component&) = delete;

    ~Component() = default;

    HMODULE Module() const noexcept
    {
        return m_library.GetModule();
    }

    const std::wstring& Path() const noexcept
    {
        return m_path;
    }

    /// Its file's version, four numbers.
    std::wstring Version() const;

    /// What the export DllRegisterServer answers.
    HRESULT Register() const;

    /// A new object of a class, whose CLSID the caller has initialised COM for.
    template <class Interface>
    Microsoft::WRL::ComPtr<Interface> Create(REFCLSID clsid) const
    {
        Microsoft::WRL::ComPtr<Interface> object;
        Create(clsid, IID_PPV_ARGS(&object));
        return object;
    }

private:
    void Create(REFCLSID clsid, REFIID iid, void** object) const;

    std::wstring m_path;
    CLibraryUtils::CLibraryUtilsImpl m_library;
};
} // namespace velt::tool
