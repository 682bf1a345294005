#include "server/registration.h"

#include "foundation/library_utils.h"
#include "foundation/reg_key.h"
#include "foundation/system_exception.h"
#include "foundation/utrace.h"
#include "foundation/wide_text.h"
#include "server/classes_root_scope.h"
#include "server/registrar_eraser.h"
#include "server/thread_locale_scope.h"
#include "server/type_library_entries.h"

#include <oleauto.h>
#include <wrl/client.h>

#include <string_view>

using Microsoft::WRL::ComPtr;

namespace velt
{
namespace
{
/// The bytes of a resource of the type REGISTRY; valid as long as the module is loaded.
std::string_view ScriptBytes(HMODULE module, UINT id)
{
    const HRSRC found = ::FindResourceW(module, MAKEINTRESOURCEW(id), L"REGISTRY");
    const HGLOBAL loaded = found ? ::LoadResource(module, found) : nullptr;
    const void* const bytes = loaded ? ::LockResource(loaded) : nullptr;
    if (!bytes)
    {
        ThrowLastError();
    }
    return {static_cast<const char*>(bytes), ::SizeofResource(module, found)};
}

/// The directory of a file's full path, without the final backslash.
std::wstring DirectoryOf(const std::wstring& path)
{
    return path.substr(0, path.find_last_of(L'\\'));
}

ComPtr<ITypeLib> LoadModuleTypeLibrary(HMODULE module)
{
    ComPtr<ITypeLib> library;
    ThrowIfFailed(::LoadTypeLib(ModulePath(module).c_str(), &library));
    return library;
}

using RegisterTypeLibFunction = decltype(&::RegisterTypeLib);

/// RegisterTypeLibForUser is looked up because not every system's OLEAUT32.DLL has it.
RegisterTypeLibFunction FindRegisterTypeLibForUser()
{
    const HMODULE module = ::GetModuleHandleW(L"OLEAUT32.DLL");
    const FARPROC function = module ? ::GetProcAddress(module, "RegisterTypeLibForUser") : nullptr;
    if (!function)
    {
        ThrowLastError();
    }
    return reinterpret_cast<RegisterTypeLibFunction>(reinterpret_cast<void*>(function));
}
} // namespace

RegistrationScope CurrentRegistrationScope() noexcept
{
    CRegKeyW classes;
    const LSTATUS error = classes.Open(HKEY_LOCAL_MACHINE, L"Software\\Classes", KEY_WRITE);
    return error == ERROR_SUCCESS ? RegistrationScope::machine : RegistrationScope::user;
}

std::wstring ModulePath(HMODULE module)
{
    std::wstring path(MAX_PATH, L'\0');
    for (;;)
    {
        const DWORD length =
            ::GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size()));
        if (length == 0)
        {
            ThrowLastError();
        }
        if (length < path.size())
        {
            path.resize(length);
            return path;
        }
        path.resize(path.size() * 2); // was cut
    }
}

void AddModuleReplacement(RegistrarReplacements& replacements, HMODULE module)
{
    replacements.insert_or_assign(L"MODULE", ModulePath(module));
}

std::vector<RegistryOperation> ReadRegistrarScript(HMODULE module, UINT id,
                                                   const RegistrarReplacements& replacements)
{
    RegistrarResult result =
        ParseRegistrarScript(WideFromUtf8(ScriptBytes(module, id)), replacements);
    if (const auto* error = std::get_if<RegistrarError>(&result))
    {
        UTrace::TraceLevel1("registrar script %u, line %u, column %u: %s", id,
                            static_cast<unsigned>(error->line),
                            static_cast<unsigned>(error->column), error->message.c_str());
        throw SystemException::Win32(ERROR_INVALID_DATA);
    }
    return std::get<std::vector<RegistryOperation>>(std::move(result));
}

void RunRegistrarScript(HMODULE module, UINT id, const RegistrarReplacements& replacements,
                        RegistrationScope scope)
{
    WriteRegistry(ReadRegistrarScript(module, id, replacements), scope);
}

void RegisterComponent(HMODULE module, RegistrationScope scope, RegistrarReplacements replacements,
                       std::span<const ClassRegistration> classes)
{
    // The scripts' texts are read the same whatever the user's locale is.
    const ThreadLocaleScope locale(LOCALE_SYSTEM_DEFAULT);
    AddModuleReplacement(replacements, module);
    if (scope == RegistrationScope::machine)
    {
        const TypeLibraryEntries entries(*LoadModuleTypeLibrary(module).Get());
        entries.Erase(RegistrationScope::user);
        const EraseExtent extent = entries.Extent(RegistrationScope::user);
        EraseHidingEntries(ReadRegistrarScript(module, VELT_REGISTRY_APPID, replacements), extent);
        for (const ClassRegistration& row : classes)
        {
            AddClassReplacement(replacements, row);
            EraseHidingEntries(ReadRegistrarScript(module, row.script, replacements), extent);
        }
    }
    const ClassesRootScope root(scope); // for what the system writes
    RunRegistrarScript(module, VELT_REGISTRY_APPID, replacements, scope);
    for (const ClassRegistration& row : classes)
    {
        AddClassReplacement(replacements, row);
        RunRegistrarScript(module, row.script, replacements, scope);
        RegisterCategories(*row.clsid, row.categories);
    }
    RegisterModuleTypeLibrary(module, scope);
}

void RegisterCategories(const CLSID& clsid, std::span<const CategoryRow> categories)
{
    if (categories.empty())
    {
        return;
    }
    const CLibraryUtils::SmartComInitializer com;
    ComPtr<ICatRegister> manager;
    ThrowIfFailed(::CoCreateInstance(CLSID_StdComponentCategoriesMgr, nullptr, CLSCTX_INPROC_SERVER,
                                     IID_PPV_ARGS(&manager)));
    for (const CategoryRow& row : categories)
    {
        CATID category = row.category; // the manager takes it as writable
        ThrowIfFailed(row.kind == CategoryRow::Kind::implemented
                          ? manager->RegisterClassImplCategories(clsid, 1, &category)
                          : manager->RegisterClassReqCategories(clsid, 1, &category));
    }
}

void RegisterModuleTypeLibrary(HMODULE module, RegistrationScope scope)
{
    std::wstring path = ModulePath(module);
    std::wstring directory = DirectoryOf(path);
    const ComPtr<ITypeLib> library = LoadModuleTypeLibrary(module);
    const RegisterTypeLibFunction registerTypeLib =
        scope == RegistrationScope::user ? FindRegisterTypeLibForUser() : &::RegisterTypeLib;
    ThrowIfFailed(registerTypeLib(library.Get(), path.data(), directory.data()));
}
} // namespace velt
