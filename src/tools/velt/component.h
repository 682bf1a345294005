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

/// A file's version, four numbers. Throws CommandFailure.
std::wstring FileVersion(const std::wstring& path);

/// Whether a file is an image for programs of that kind.
bool IsOfEdition(const std::wstring& path, bool is64Bit);

/// Throws CommandFailure for a file that is not.
void RequireEdition(const std::wstring& path, bool is64Bit);

/// Throws CommandFailure, with the code that loading would fail with, for a file that this process
/// cannot make objects with, as far as that shows without loading it and what it needs.
void CheckLibrary(const std::wstring& path);

/// A copy of the component's DLL, registered or not. Everything throws CommandFailure. Objects must
/// be gone before it is.
class Component
{
public:
    /// The one beside the program.
    Component();

    /// Another one, by its full path.
    explicit Component(std::wstring path);

    /// Full path of the one beside the program, whether it is there or not.
    static std::wstring OwnPath();

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
